#include "tree_walk.h"

#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "walk_helpers.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// A tree with this many entries is large: helpers gain more than they cost.
constexpr unsigned LARGE_TREE = 256;
/// A directory's thread visits this many files itself before it gives others away.
constexpr unsigned FILES_KEPT = 256;

/// Low, because one thread of a walk goes deep while the others wait and keep their descriptors open.
int ReadDeepFd() {
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);  // cannot fail
    return static_cast<int>(limit.rlim_cur / 32);
}

/// The parts of a directory that are kept for later or given to helpers. Made on the heap when the first is needed:
/// most directories give nothing away, and so the frame of each level of a walk holds only a pointer.
class Parts {
public:
    Parts(SharedWalk& partOf, const WalkDirectory& parts, const Report& outcome)
        : walk(partOf), directory(parts), report(outcome) {}
    ~Parts() {
        if (!given.empty()) {  // an exception
            walk.EndWithoutMemory();
        }
        for (const auto& part : given) {
            helpers.Join(*part);
        }
    }
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;

    /// Keeps an entry for a later part. A part that is worth a thread is given away when the next entry arrives, so the
    /// last part stays with this thread. @return false if no helper takes what was kept
    bool Keep(const dirent& entry) {
        if (kept && kept->IsWorthwhile() && !Give()) {
            return false;
        }
        if (!kept) {
            kept = std::make_unique<WalkPart>(walk, directory, report.recordKind);
        }
        kept->Add(entry);
        return true;
    }

    /// Visits what was kept and waits for the helpers.
    void Finish() {
        if (kept) {
            const int error = kept->Visit(report);
            result = error != 0 ? error : result;
        }
        while (!given.empty()) {
            const std::unique_ptr<WalkPart> part = std::move(given.back());
            given.pop_back();
            helpers.Join(*part);
            Collect(*part);
        }
    }

    [[nodiscard]] int Result() const { return result; }

private:
    bool Give() {
        CollectDone();
        given.reserve(given.size() + 1);  // before the offer, because it may throw
        if (!helpers.Offer(*kept)) {
            return false;
        }
        given.push_back(std::move(kept));
        return true;
    }

    void CollectDone() {
        const auto isOpen = [this](const auto& part) { return !helpers.IsDone(*part); };
        const auto firstDone = std::partition(given.begin(), given.end(), isOpen);
        std::for_each(firstDone, given.end(), [this](const auto& part) { Collect(*part); });
        given.erase(firstDone, given.end());
    }

    void Collect(const WalkPart& part) {
        const int error = part.Outcome(report);
        result = error != 0 ? error : result;
    }

    WalkHelpers& helpers = WalkHelpers::Instance();
    SharedWalk& walk;
    const WalkDirectory& directory;
    const Report& report;
    std::unique_ptr<WalkPart> kept;
    std::vector<std::unique_ptr<WalkPart>> given;
    int result = 0;
};

}  // namespace

/// Lets only one thread of a walk at a time into directories whose descriptor is deepFd or higher. Any other thread
/// waits.
class Deep {
public:
    Deep(SharedWalk& walk, int fd) {
        if (walk.hasHelpers && fd >= walk.deepFd && walk.deepThread != pthread_self()) {
            lock = std::unique_lock(walk.deep);
            walk.deepThread = pthread_self();
            owner = &walk;
        }
    }
    ~Deep() {
        if (owner != nullptr) {
            owner->deepThread = pthread_t{};
        }
    }
    Deep(const Deep&) = delete;
    Deep& operator=(const Deep&) = delete;

private:
    SharedWalk* owner = nullptr;
    std::unique_lock<std::mutex> lock;
};

SharedWalk::~SharedWalk() {
    if (hasHelpers) {
        WalkHelpers::Instance().Leave();
    }
}

bool SharedWalk::VisitChild(const WalkDirectory& directory, ListedName name, const Report& report, int& result) {
    if (isOutOfMemory.load(std::memory_order_relaxed)) {
        throw std::bad_alloc();
    }
    const ChildPath joined(directory.path, name.text);
    Entry entry{directory.fd, name.text, name.type, directory.path};
    entry.type = TypeOf(entry);
    const int error = EndedAt() == 0 ? VisitEntry(entry, directory, report) : EndedAt();
    result = error != 0 ? error : result;
    if (error == 0 || policy == OnFailure::Continue) {
        return true;
    }
    EndAt(error);
    return false;
}

bool SharedWalk::EndAt(int error) {
    int none = 0;
    return ending.compare_exchange_strong(none, error);
}

/// Counts the entries until the tree is known to be large.
bool SharedWalk::MayGiveAway(int fd) {
    if (!isLarge) {
        isLarge = threads == Threads::Many && ++seen > LARGE_TREE;
        deepFd = isLarge ? ReadDeepFd() : 0;
        return false;
    }
    const WalkHelpers& helpers = WalkHelpers::Instance();
    // The deep thread must not wait for a helper, because that helper may wait to go deep itself.
    return helpers.HaveRoom() && fd < deepFd && deepThread != pthread_self();
}

int SharedWalk::VisitEntries(DirectoryStream& stream, const WalkDirectory& directory, const Report& report) {
    const Deep deepPlace(*this, directory.fd);
    std::unique_ptr<Parts> parts;
    unsigned files = 0;
    int result = 0;
    bool goesOn = true;
    while (const dirent* child = goesOn ? stream.Next() : nullptr) {
        const bool isForHelpers = MayGiveAway(directory.fd) && (child->d_type == DT_DIR || ++files > FILES_KEPT);
        if (isForHelpers && parts == nullptr) {
            parts = std::make_unique<Parts>(*this, directory, report);
        }
        if (!isForHelpers || !parts->Keep(*child)) {
            goesOn = VisitChild(directory, {child->d_name, child->d_type}, report, result);
        }
    }
    if (parts != nullptr) {
        parts->Finish();
        result = parts->Result() != 0 ? parts->Result() : result;
    }
    return policy == OnFailure::Stop ? EndedAt() : result;
}

}  // namespace TAVO::FileMigrateOrvane
