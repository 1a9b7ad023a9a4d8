#include "copy_comb.h"

#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string>

#include "copy.h"
#include "copy_walk.h"
#include "directory_stream.h"
#include "owner_mode.h"
#include "path_helpers.h"
#include "prepare_dir.h"
#include "record_file.h"
#include "removal_queue.h"

namespace TAVO::FileMigrateOrvane {
namespace {

class CombinedCopy final : public CopyWalk {
public:
    CombinedCopy(const CopyPair& top, Link topLink, const PermPara& permPara, const Report& where)
        : CopyWalk(OnFailure::Continue, Threads::One),
          destinationLink(topLink),
          perm(permPara),
          report(where),
          queue(top.src.path, top.dst.path, where) {}

    /// Copies the source of a request, then runs the rest of the queue.
    int CopyTop(const CopyPair& top, bool isDirectory);

private:
    /// A directory on both sides, open while its entries are copied.
    struct Level : CopyLevel {
        Level() : CopyLevel{destination} {}

        QueuedHandle from;
        UniqueFd destination;
        dev_t device = 0;  ///< of `destination`
    };

    int CopyFile(const CopyPair& pair, const Level& level);
    int CopyAndFinish(const CopyPair& pair, const Level& level, CopyResult& result);
    int VisitPair(const CopyPair& pair, const CopyLevel& level, const Report& report) override;
    int CopyDirectory(const CopyPair& pair, const QueuedHandle& parent);
    int Open(const CopyPair& pair, const QueuedHandle& parent, Level& level);
    int OpenInto(const CopyPair& pair, Level& level);
    int CopyContents(const CopyPair& pair, const Level& level);
    void EndIfExhausted(int error);
    void RunIfFull() { hasEnded = queue.RunIfFull() != 0 || hasEnded; }

    const Link destinationLink;
    const PermPara& perm;
    const Report& report;
    RemovalQueue queue;
    Learned learned;
    CopyJob file{
        {.finish = Finish::Nothing, .isKeptOpen = true}, learned, &queue.Watch(), {perm.uid, perm.gid}, perm.mode};
    /// Of the request's destination. If that cannot be opened this stays zero and matches no directory.
    struct stat destination {};
    bool hasMetDestination = false;  ///< inside the source, so the directories above it must not be removed
    bool hasEnded = false;           ///< copy and queue nothing more; what was not copied stays
};

int CombinedCopy::CopyTop(const CopyPair& top, bool isDirectory) {
    const int copyError = isDirectory ? CopyDirectory(top, nullptr) : CopyFile(top, Level());
    const int flushError = queue.Run();
    if (flushError != 0 || queue.RemovalError() != 0) {
        return flushError != 0 ? flushError : queue.RemovalError();
    }
    return copyError;
}

/// Ends the copy if the daemon has run out of descriptors or memory. Every other file would fail like this one, and be
/// removed without a copy.
void CombinedCopy::EndIfExhausted(int error) {
    hasEnded = hasEnded || error == EMFILE || error == ENFILE || error == ENOMEM;
}

/// Copies one file, then sets the copy's mode and owner by its open descriptor.
int CombinedCopy::CopyAndFinish(const CopyPair& pair, const Level& level, CopyResult& result) {
    if (const int error = DoCopy(pair, file, report, result); error != 0) {
        return error;
    }
    if (const int error = SetModeAndOwner(result.destination, pair.dst.path, perm, report); error != 0) {
        return error;
    }
    if (result.destination) {
        queue.NoteCopied(level.into ? level.into : result.destination, level.device, result.bytes);
    }
    return result.destination.Close() == 0 ? 0 : FailCopy(pair.src.path, pair.dst.path, errno, report);
}

/// The source is removed whether or not it was copied. It stays only if the request names one object twice, or if the
/// daemon is exhausted.
[[gnu::noinline]] int CombinedCopy::CopyFile(const CopyPair& pair, const Level& level) {
    CopyResult result;
    const int error = CopyAndFinish(pair, level, result);
    EndIfExhausted(error);
    if (!result.isOntoItself && (error == 0 || !hasEnded)) {
        queue.AddFile(level.from, pair.src.name);
        RunIfFull();
    }
    return error;
}

/// A child of a directory: a subdirectory is prepared before it is entered.
int CombinedCopy::VisitPair(const CopyPair& pair, const CopyLevel& copyLevel, const Report& /*unused*/) {
    const auto& level = static_cast<const Level&>(copyLevel);
    if (hasEnded) {
        return 0;
    }
    if (!IsToBeCopied(pair.src)) {
        NoteLeftOut(pair.src, file);
        return 0;
    }
    if (pair.src.type != DT_DIR) {
        return CopyFile(pair, level);
    }
    const int error = DoPrepareDir(pair.dst, perm, report);
    EndIfExhausted(error);
    if (error != 0) {
        NoteLeftOut(pair.src, file);
        return error;
    }
    return CopyDirectory(pair, level.from);
}

int CombinedCopy::CopyDirectory(const CopyPair& pair, const QueuedHandle& parent) {
    Level level;
    int error = Open(pair, parent, level);
    if (error != 0) {
        EndIfExhausted(error);
        return error;
    }
    error = CopyContents(pair, level);
    if (!hasEnded && !hasMetDestination && level.from->stream.ReadError() == 0) {
        level.from->hasFailed = level.from->hasFailed || error != 0;
        queue.AddDirectory(level.from);
        RunIfFull();
    }
    return error;
}

int CombinedCopy::CopyContents(const CopyPair& pair, const Level& level) {
    const int lastError = VisitChildren(level.from->stream, pair, level, report);
    // The listing may have ended early. The entries after that point were not copied.
    const int readError = level.from->stream.ReadError();
    return readError == 0 ? lastError : Fail(Step::OpenCopyComb, pair.src.path, readError, report);
}

[[gnu::noinline]] int CombinedCopy::Open(const CopyPair& pair, const QueuedHandle& parent, Level& level) {
    level.from =
        std::make_shared<QueuedDirectory>(QueuedDirectory{parent, pair.src.name, DirectoryStream::Open(pair.src)});
    struct stat st {};
    if (!level.from->stream || fstat(level.from->stream.Fd(), &st) != 0) {
        return Fail(Step::OpenCopyComb, pair.src.path, errno, report);
    }
    NoteSource(st, file);
    if (IsSame(st, destination)) {
        hasMetDestination = true;
        return FailCopy(pair.src.path, pair.dst.path, EINVAL, report);
    }
    return OpenInto(pair, level);
}

/// If the request's destination cannot be opened, the copy goes on: each entry is tried by its path and reports its own
/// failure.
int CombinedCopy::OpenInto(const CopyPair& pair, Level& level) {
    level.destination = OpenDirectory(pair.dst, pair.isTop ? destinationLink : Link::Refuse);
    struct stat st {};
    if (!level.into || fstat(level.into.Get(), &st) != 0) {
        EndIfExhausted(errno);
        return pair.isTop && !hasEnded ? 0 : Fail(Step::OpenCopyComb, pair.dst.path, errno, report);
    }
    level.device = st.st_dev;
    if (pair.isTop) {
        destination = st;
    }
    return 0;
}

}  // namespace

int CopyCombRecurse(const std::string& src, const std::string& dst, const PermPara& perm, int& err, int recordKind) {
    const Report report{err, recordKind};
    TopPath from(src);
    TopPath to(dst);
    const CopyPair top{from.AsEntry(), to.AsEntry(), /*isTop=*/true};
    if (const int error = CheckSlashes(from, to); error != 0) {
        return ResultOf(FailCopy(src, dst, error, report));
    }
    const bool isDirectory = TakeForDirectory(top.src, {err, RECORD_KIND_NONE});
    if (const int error = isDirectory ? FindOntoItself(top.src.name, top.dst.name) : 0; error != 0) {
        return ResultOf(FailCopy(src, dst, error, report));
    }
    CombinedCopy copy(top, to.DemandsDirectory() ? Link::Refuse : Link::Follow, perm, report);
    return ResultOf(copy.CopyTop(top, isDirectory));
}

}  // namespace TAVO::FileMigrateOrvane
