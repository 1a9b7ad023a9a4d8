#include "reply.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "bounded_copy.h"
#include "file_migrate_orvane.h"
#include "log.h"

namespace TAVO::FileMigrateOrvane {

std::vector<std::string> PackStrings(const std::vector<std::string>& strs) {
    std::vector<std::string> packages;
    std::string current;
    const auto closePackage = [&] {
        if (!current.empty()) {
            current.pop_back();  // the last "/"
            packages.push_back(std::move(current));
            current.clear();
        }
    };
    for (const std::string& text : strs) {
        if (current.length() + text.length() + 1 > PACKAGE_WIDTH) {
            closePackage();
        }
        current += text;
        current += '/';
    }
    closePackage();
    return packages;
}

void SendResMsg(int fd, std::int32_t result, const extraInfo& info) {
    const std::vector<std::string> packages = PackStrings(info.strs);
    const auto pkgNum = static_cast<std::int32_t>(packages.size());
    LogError("result:%{public}d, errCode:%{public}d, pkgNum:%{public}d, fd:%{public}d", result, info.errCode, pkgNum,
             fd);
    const FileMigrateResMsg msg{result, info.errCode, pkgNum};
    const auto sent = static_cast<int>(send(fd, &msg, sizeof(msg), 0));
    if (sent != static_cast<int>(sizeof(msg))) {
        LogError("write res msg to fd:%{public}d err, ret: %{public}d, errno: %{public}d", fd, sent, errno);
        return;
    }
    LogError("write %{public}d bytes to fd:%{public}d", sent, fd);
    SendStrPkgs(fd, pkgNum, packages);
}

void SendStrPkgs(int fd, std::int32_t pkgNum, const std::vector<std::string>& packages) {
    FileMigrateStrPkg pkg{};
    pkg.pkgNum = pkgNum;
    int flags = 0;
    for (const std::string& text : packages) {
        memset_s(pkg.data, sizeof(pkg.data), 0, sizeof(pkg.data));
        ++pkg.pkgIndex;
        const int copied = strncpy_s(pkg.data, sizeof(pkg.data), text.c_str(), text.length());
        if (copied != 0) {
            LogError("strncpy_s ret:%{public}d", copied);
        }
        LogError("pkgNum:%{public}d, pkgIndex:%{public}d, fd:%{public}d", pkg.pkgNum, pkg.pkgIndex, fd);
        const auto sent = static_cast<int>(send(fd, &pkg, sizeof(pkg), flags));
        if (sent == static_cast<int>(sizeof(pkg))) {
            LogError("write %{public}d bytes to fd:%{public}d", sent, fd);
            continue;
        }
        LogError("write extra msg to fd:%{public}d err, ret: %{public}d, errno: %{public}d", fd, sent, errno);
        if (sent >= 0 || errno == EAGAIN) {
            flags = MSG_DONTWAIT;  // the client has used up its time limit: one wait for each reply is enough
        }
    }
}

}  // namespace TAVO::FileMigrateOrvane
