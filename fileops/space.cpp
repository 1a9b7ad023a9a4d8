#include "space.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "directory_stream.h"
#include "failures.h"
#include "path_helpers.h"
#include "record_file.h"
#include "tree_walk.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// Converts 512-byte blocks to KB, rounding down.
int BlocksToKB(std::uint32_t blocks) {
    return static_cast<int>(blocks >> 1);
}

/// Adds up the blocks of a tree. Continues after an entry that fails.
class UsedSpaceWalk final : public TreeWalk {
public:
    UsedSpaceWalk() : TreeWalk(OnFailure::Continue, Threads::Many) {}

    int Visit(const Entry& entry, const Report& report) override { return AddBlksRecurse(entry, report); }
    [[nodiscard]] std::uint32_t TotalBlocks() const { return totalBlocks; }

private:
    [[gnu::noinline]] int AddBlks(const Entry& entry, bool& isDir, const Report& report) {
        struct stat st {};
        if (const int error = Lstat(entry, st); error != 0) {
            return Fail(Step::LstatAddBlks, entry.path, error, report);
        }
        totalBlocks.fetch_add(static_cast<std::uint32_t>(st.st_blocks), std::memory_order_relaxed);
        isDir = S_ISDIR(st.st_mode) && IsDir(entry, {report.err, RECORD_KIND_NONE}) != 0;
        return 0;
    }

    int AddBlksRecurse(const Entry& entry, const Report& report) {
        bool isDir = false;
        if (const int error = AddBlks(entry, isDir, report); error != 0 || !isDir) {
            return error;
        }
        DirectoryStream stream = DirectoryStream::Open(entry);
        return stream ? VisitChildren(stream, entry.path, report) : Fail(Step::OpenAddBlks, entry.path, errno, report);
    }

    std::atomic<std::uint32_t> totalBlocks{0};  ///< wraps at 32 bits
};

/// Finds the largest object of a tree. Ends at the first failure.
class MaxSizeWalk final : public TreeWalk {
public:
    MaxSizeWalk() : TreeWalk(OnFailure::Stop, Threads::Many) {}

    int Visit(const Entry& entry, const Report& report) override { return RecMaxSizeRecurse(entry, report); }
    [[nodiscard]] std::int64_t MaxBlocks() const { return maxBlocks; }

private:
    int EndWith(Step step, const std::string& path, int error, const Report& report) {
        return EndAt(error) ? Fail(step, path, error, report) : EndedAt();
    }

    [[gnu::noinline]] int RecMaxSize(const Entry& entry, const Report& report) {
        struct stat st {};
        if (const int error = Lstat(entry, st); error != 0) {
            return EndWith(Step::LstatMaxSize, entry.path, error, report);
        }
        if (!S_ISDIR(st.st_mode)) {  // if it is one, it was replaced since it was listed
            RaiseTo(st.st_blocks);
        }
        return 0;
    }

    void RaiseTo(std::int64_t blocks) {
        std::int64_t known = maxBlocks;
        while (known < blocks && !maxBlocks.compare_exchange_weak(known, blocks)) {
        }
    }

    int RecMaxSizeRecurse(const Entry& entry, const Report& report) {
        if (!TakeForDirectory(entry, report)) {
            return RecMaxSize(entry, report);
        }
        DirectoryStream stream = DirectoryStream::Open(entry);
        return stream ? VisitChildren(stream, entry.path, report)
                      : EndWith(Step::OpenMaxSize, entry.path, errno, report);
    }

    std::atomic<std::int64_t> maxBlocks{0};
};

}  // namespace

int GetUsedSpaceInKB(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    UsedSpaceWalk walk;
    (void)walk.Visit(TopEntry(path, text), {err, recordKind});  // failures only show in `err`
    return BlocksToKB(walk.TotalBlocks());
}

int GetMaxSizeInKB(const std::string& path, int& err, int recordKind) {
    std::string text = path;
    MaxSizeWalk walk;
    if (walk.Visit(TopEntry(path, text), {err, recordKind}) != 0) {
        return -1;
    }
    return BlocksToKB(static_cast<std::uint32_t>(walk.MaxBlocks()));
}

}  // namespace TAVO::FileMigrateOrvane
