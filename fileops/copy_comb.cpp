#include "copy_comb.h"

#include <sys/stat.h>

#include <atomic>
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
    CombinedCopy(const CopyPair& top, Link topLink, const PermPara& permPara)
        : CopyWalk(OnFailure::Continue, Threads::Many),
          destinationLink(topLink),
          perm(permPara),
          queue(top.src.path, top.dst.path) {}

    /// Copies the source of a request, then runs the rest of the queue.
    int CopyTop(const CopyPair& top, bool isDirectory, const Report& report);

private:
    /// A directory on both sides, open while its entries are copied.
    struct Level : CopyLevel {
        QueuedHandle from{};
        const FlushTarget* target = nullptr;  ///< of `into`
    };

    int CopyFile(const CopyPair& pair, const Level& level, const Report& report);
    int CopyAndFinish(const CopyPair& pair, const Report& report, CopyResult& result);
    int VisitPair(const CopyPair& pair, const CopyLevel& level, const Report& report) override;
    int CopyDirectory(const CopyPair& pair, const QueuedHandle& parent, const Report& report);
    int OpenFrom(const CopyPair& pair, Level& level, const Report& report);
    int OpenInto(const CopyPair& pair, UniqueFd& into, Level& level, const Report& report);
    int CopyContents(const CopyPair& pair, const Level& level, const Report& report);
    void EndIfExhausted(int error) { EndIf(error == EMFILE || error == ENFILE || error == ENOMEM); }
    void EndIf(bool isToEnd) {
        if (isToEnd) {
            hasEnded = true;
        }
    }

    const Link destinationLink;
    const PermPara& perm;
    RemovalQueue queue;
    Learned learned;
    CopyJob file{
        {.finish = Finish::Nothing, .isKeptOpen = true}, learned, &queue.Watch(), {perm.uid, perm.gid}, perm.mode};
    /// Of the request's destination. If that cannot be opened this stays zero and matches no directory.
    struct stat destination {};
    std::atomic<bool> hasMetDestination{false};  ///< inside the source: the directories above it must not be removed
    /// Copy and queue nothing more; what was not copied stays. If the daemon runs out of descriptors or memory, every
    /// other file would fail like the first, and be removed without a copy.
    std::atomic<bool> hasEnded{false};
};

int CombinedCopy::CopyTop(const CopyPair& top, bool isDirectory, const Report& report) {
    const UniqueFd none;
    const int copyError = isDirectory ? CopyDirectory(top, nullptr, report) : CopyFile(top, {{none}}, report);
    const int flushError = queue.Run(report);
    if (flushError != 0 || queue.RemovalError() != 0) {
        return flushError != 0 ? flushError : queue.RemovalError();
    }
    return copyError;
}

/// Copies one file, then sets the copy's mode and owner by its open descriptor.
int CombinedCopy::CopyAndFinish(const CopyPair& pair, const Report& report, CopyResult& result) {
    if (const int error = DoCopy(pair, file, report, result); error != 0) {
        return error;
    }
    return SetModeAndOwner(result.destination, pair.dst.path, perm, report);
}

/// The source is removed whether or not it was copied. It stays only if the request names one object twice, or if the
/// daemon is exhausted.
[[gnu::noinline]] int CombinedCopy::CopyFile(const CopyPair& pair, const Level& level, const Report& report) {
    CopyResult result;
    Written written;
    int error = CopyAndFinish(pair, report, result);
    if (error == 0 && result.destination) {
        written = {level.target != nullptr ? level.target : queue.TargetOf(result.destination, 0), result.bytes};
        error = result.destination.Close() == 0 ? 0 : FailCopy(pair.src.path, pair.dst.path, errno, report);
    }
    EndIfExhausted(error);
    if (!result.isOntoItself && (error == 0 || !hasEnded)) {
        EndIf(queue.AddFile(level.from, pair.src.name, written, report) != 0);
    }
    return error;
}

/// A child of a directory: a subdirectory is prepared before it is entered.
int CombinedCopy::VisitPair(const CopyPair& pair, const CopyLevel& copyLevel, const Report& report) {
    const auto& level = static_cast<const Level&>(copyLevel);
    if (hasEnded) {
        return 0;
    }
    if (!IsToBeCopied(pair.src)) {
        NoteLeftOut(pair.src, file);
        return 0;
    }
    if (pair.src.type != DT_DIR) {
        return CopyFile(pair, level, report);
    }
    const int error = DoPrepareDir(pair.dst, perm, report);
    EndIfExhausted(error);
    if (error != 0) {
        NoteLeftOut(pair.src, file);
        return error;
    }
    return CopyDirectory(pair, level.from, report);
}

int CombinedCopy::CopyDirectory(const CopyPair& pair, const QueuedHandle& parent, const Report& report) {
    UniqueFd into;
    Level level{{into}, std::make_shared<QueuedDirectory>(parent, pair.src)};
    int error = OpenFrom(pair, level, report);
    error = error == 0 ? OpenInto(pair, into, level, report) : error;
    if (error != 0) {
        EndIfExhausted(error);
        return error;
    }
    error = CopyContents(pair, level, report);
    if (!hasEnded && !hasMetDestination && level.from->stream.ReadError() == 0) {
        if (error != 0) {
            level.from->hasFailed = true;
        }
        EndIf(queue.AddDirectory(level.from, report) != 0);
    }
    return error;
}

int CombinedCopy::CopyContents(const CopyPair& pair, const Level& level, const Report& report) {
    const int lastError = VisitChildren(level.from->stream, pair, level, report);
    // The listing may have ended early. The entries after that point were not copied.
    const int readError = level.from->stream.ReadError();
    return readError == 0 ? lastError : Fail(Step::OpenCopyComb, pair.src.path, readError, report);
}

[[gnu::noinline]] int CombinedCopy::OpenFrom(const CopyPair& pair, Level& level, const Report& report) {
    struct stat st {};
    if (!level.from->stream || fstat(level.from->stream.Fd(), &st) != 0) {
        return Fail(Step::OpenCopyComb, pair.src.path, errno, report);
    }
    NoteSource(st, file);
    if (IsSame(st, destination)) {
        hasMetDestination = true;
        return FailCopy(pair.src.path, pair.dst.path, EINVAL, report);
    }
    return 0;
}

/// If the request's destination cannot be opened, the copy goes on: each entry is tried by its path and reports its own
/// failure.
[[gnu::noinline]] int CombinedCopy::OpenInto(const CopyPair& pair, UniqueFd& into, Level& level, const Report& report) {
    into = OpenDirectory(pair.dst, pair.isTop ? destinationLink : Link::Refuse);
    struct stat st {};
    if (!into || fstat(into.Get(), &st) != 0) {
        EndIfExhausted(errno);
        return pair.isTop && !hasEnded ? 0 : Fail(Step::OpenCopyComb, pair.dst.path, errno, report);
    }
    level.target = queue.TargetOf(into, st.st_dev);
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
    CombinedCopy copy(top, to.DemandsDirectory() ? Link::Refuse : Link::Follow, perm);
    return ResultOf(copy.CopyTop(top, isDirectory, report));
}

}  // namespace TAVO::FileMigrateOrvane
