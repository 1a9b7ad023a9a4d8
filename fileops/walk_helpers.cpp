#include "walk_helpers.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "unique_fd.h"
#include "walk_stack.h"

namespace TAVO::FileMigrateOrvane {
namespace {

/// If a tree is not cached, more threads than processors keep the disk busy. If it is cached, they cost nothing.
constexpr unsigned FEWEST_AT_MOST = 8;
constexpr std::chrono::seconds IDLE_TIME{1};

int MostHelpers() {
    const ErrnoKeeper keeper;  // hardware_concurrency() may fail and set errno
    return static_cast<int>(std::max(FEWEST_AT_MOST, std::thread::hardware_concurrency()));
}

}  // namespace

void WalkPart::Add(const dirent& entry) {
    names += static_cast<char>(entry.d_type);
    names.append(entry.d_name, std::char_traits<char>::length(entry.d_name) + 1);
    ++count;
    hasDirectory = hasDirectory || entry.d_type == DT_DIR;
}

int WalkPart::Visit(const Report& report) {
    int error = 0;
    for (const char* at = names.c_str(); at < names.c_str() + names.length();) {
        const char* name = at + 1;
        if (!walk.VisitChild(directory, {name, static_cast<unsigned char>(*at)}, report, error)) {
            break;
        }
        at = name + std::char_traits<char>::length(name) + 1;
    }
    return error;
}

void WalkPart::VisitAndKeep() {
    try {
        result = Visit({err, recordKind});
    } catch (...) {
        failure = std::current_exception();
        walk.EndWithoutMemory();
    }
}

WalkHelpers& WalkHelpers::Instance() {
    static auto* const helpers = new WalkHelpers;
    return *helpers;
}

WalkHelpers::WalkHelpers() : most(MostHelpers()), room(PARTS_EACH * most) {}

int WalkPart::Outcome(const Report& report) const {
    if (failure) {
        std::rethrow_exception(failure);
    }
    report.err = err != 0 ? err : report.err;
    return result;
}

bool WalkHelpers::HasItsShare(const SharedWalk& walk) const {
    const auto others = walks - (walk.hasHelpers ? 1 : 0);
    return static_cast<int>(walk.offeredParts) * (others + 1) >= PARTS_EACH * most;
}

bool WalkHelpers::Offer(WalkPart& part) {
    const std::lock_guard lock(mutex);
    if (room == 0 || HasItsShare(part.walk)) {
        return false;
    }
    waiting.push_back(&part);
    if (static_cast<int>(waiting.size()) > idle && started < most && !StartThread()) {
        waiting.pop_back();
        return false;
    }
    --room;
    ++part.walk.offeredParts;
    walks += part.walk.hasHelpers.exchange(true) ? 0 : 1;
    offered.notify_one();
    return true;
}

bool WalkHelpers::StartThread() {
    WalkThreadAttributes attributes;
    pthread_attr_setdetachstate(attributes.Get(), PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    // Like the workers, the helpers keep the name of the process.
    const bool isStarted = pthread_create(&thread, attributes.Get(), Run, this) == 0;
    started += isStarted ? 1 : 0;
    return isStarted;
}

void* WalkHelpers::Run(void* self) {
    auto& helpers = *static_cast<WalkHelpers*>(self);
    std::unique_lock lock(helpers.mutex);
    const auto hasWork = [&helpers] { return !helpers.waiting.empty(); };
    while (true) {
        ++helpers.idle;
        const bool isWanted = helpers.offered.wait_for(lock, IDLE_TIME, hasWork);
        --helpers.idle;
        if (!isWanted) {
            --helpers.started;
            return nullptr;
        }
        WalkPart& part = *helpers.waiting.front();
        helpers.waiting.erase(helpers.waiting.begin());
        lock.unlock();
        part.VisitAndKeep();
        lock.lock();
        helpers.Release(part);
        part.isDone = true;  // from now on it may be destroyed
        helpers.done.notify_all();
    }
}

void WalkHelpers::Release(const WalkPart& part) {
    ++room;
    --part.walk.offeredParts;
}

void WalkHelpers::Join(WalkPart& part) {
    std::unique_lock lock(mutex);
    const auto notBegun = std::find(waiting.begin(), waiting.end(), &part);
    if (notBegun == waiting.end()) {
        done.wait(lock, [&part] { return part.isDone; });
        return;
    }
    waiting.erase(notBegun);
    Release(part);
    lock.unlock();
    part.VisitAndKeep();
}

bool WalkHelpers::IsDone(const WalkPart& part) {
    const std::lock_guard lock(mutex);
    return part.isDone;
}

void WalkHelpers::Leave() {
    const std::lock_guard lock(mutex);
    --walks;
}

}  // namespace TAVO::FileMigrateOrvane
