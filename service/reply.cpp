#include "reply.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

#include "bounded_copy.h"
#include "file_migrate_orvane.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {
namespace {

using Clock = std::chrono::steady_clock;

/// The total time that the packages of one reply may wait for the client. The limit of a single send is not enough: a
/// client that reads one package from time to time never reaches it.
constexpr std::chrono::seconds PACKAGES_LIMIT{5};

/// Makes all further sends on the connection fail instead of waiting. Its replies are already incomplete, and each
/// further request would make another worker wait for the client to read.
void WaitNoMore(int fd) {
    (void)fcntl(fd, F_SETFL, O_NONBLOCK);  // receiving never waits in any case
}

/// Whether a failed send with this result had reached its time limit.
bool HasTimedOut(int sent) {
    return sent >= 0 || errno == EAGAIN;
}

/// @param waited  the time that the sends of this reply have taken so far; updated
void SendPackage(int fd, const FileMigrateStrPkg& pkg, Clock::duration& waited) {
    const Clock::time_point begin = Clock::now();
    const auto sent = static_cast<int>(send(fd, &pkg, sizeof(pkg), waited > PACKAGES_LIMIT ? MSG_DONTWAIT : 0));
    waited += Clock::now() - begin;
    if (sent == static_cast<int>(sizeof(pkg))) {
        LogError({"write %{public}d bytes to fd:%{public}d", "SendStrPkgs"}, sent, fd);
        return;
    }
    LogError({"write extra msg to fd:%{public}d err, ret: %{public}d, errno: %{public}d", "SendStrPkgs"}, fd, sent,
             errno);
    if (HasTimedOut(sent)) {
        WaitNoMore(fd);
    }
}

}  // namespace

std::vector<std::string_view> PackStrings(const StringList& strs) {
    std::vector<std::string_view> packages;
    // The current package in the joined text, including its last "/".
    std::size_t begin = 0;
    std::size_t end = 0;
    const auto closePackage = [&] {
        if (begin < end) {
            packages.push_back(strs.Joined().substr(begin, end - begin - 1));
            begin = end;
        }
    };
    for (const std::size_t next : strs.Ends()) {
        if (next - begin > PACKAGE_WIDTH) {
            closePackage();
        }
        end = next;
    }
    closePackage();
    return packages;
}

void SendResMsg(int fd, std::int32_t result, const extraInfo& info) {
    const std::vector<std::string_view> packages = PackStrings(info.strs);
    const auto pkgNum = static_cast<std::int32_t>(packages.size());
    LogError("result:%{public}d, errCode:%{public}d, pkgNum:%{public}d, fd:%{public}d", result, info.errCode, pkgNum,
             fd);
    const FileMigrateResMsg msg{result, info.errCode, pkgNum};
    const auto sent = static_cast<int>(send(fd, &msg, sizeof(msg), 0));
    if (sent != static_cast<int>(sizeof(msg))) {
        LogError("write res msg to fd:%{public}d err, ret: %{public}d, errno: %{public}d", fd, sent, errno);
        if (HasTimedOut(sent)) {
            WaitNoMore(fd);
        }
        return;
    }
    LogError("write %{public}d bytes to fd:%{public}d", sent, fd);
    SendStrPkgs(fd, pkgNum, packages);
}

void SendStrPkgs(int fd, std::int32_t pkgNum, const std::vector<std::string_view>& packages) {
    FileMigrateStrPkg pkg{};
    pkg.pkgNum = pkgNum;
    Clock::duration waited{};
    for (const std::string_view text : packages) {
        memset_s(pkg.data, sizeof(pkg.data), 0, sizeof(pkg.data));
        ++pkg.pkgIndex;
        const int copied = strncpy_s(pkg.data, sizeof(pkg.data), text.data(), text.length());
        if (copied != 0) {
            LogError("strncpy_s ret:%{public}d", copied);
        }
        LogError("pkgNum:%{public}d, pkgIndex:%{public}d, fd:%{public}d", pkg.pkgNum, pkg.pkgIndex, fd);
        SendPackage(fd, pkg, waited);
    }
}

}  // namespace TAVO::FileMigrateOrvane
