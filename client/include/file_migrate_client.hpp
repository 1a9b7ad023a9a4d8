// The client library for C++17 and later: one method for each of the daemon's commands. A Client owns its connection
// and handles one request at a time. A client is used by one thread at a time; different threads may use different
// clients at the same time. A program that wants several requests in progress uses several clients. The library starts
// no thread, installs no signal handler, raises no SIGPIPE and keeps no global state.
//
// Only std::bad_alloc is thrown, and what the caller's own callbacks throw. The interface for C is
// file_migrate_client.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client_error.h"
#include "client_export.h"
#include "client_version.h"

namespace TAVO::FileMigrateClient {

class Session;

inline constexpr const char* DEFAULT_SOCKET_PATH = "/dev/unix/socket/file_migrate_orvane";

struct ClientOptions {
    std::string socketPath = DEFAULT_SOCKET_PATH;
    std::chrono::milliseconds connectLimit{5000};  ///< for connecting; 0 means no limit
    /// From sending a request to the end of its reply; 0 means no limit. A move across file systems can take hours.
    std::chrono::milliseconds replyLimit{0};
    /// The user id of the process that listens at the socket. The client sends nothing to any other. Tests with a
    /// daemon of their own change it.
    std::uint32_t daemonUser = 0;
};

/// Whether a command handles only the path or also other objects.
enum class Recursion : std::int32_t {
    PathOnly = 1,
    Recursive = 2,  ///< MkDir and PrepareDir: every missing ancestor too; others: everything below the path too
};

/// The reply to a command.
struct Reply {
    Failure failure;           ///< why there is no answer; if it is set, the other fields have no meaning
    std::int32_t result = -1;  ///< the daemon's result
    /// The last error number that occurred, 0 if there was no error. A successful operation can have an error number (a
    /// move across file systems has EXDEV), and a failed one can have 0.
    std::int32_t errCode = 0;
};

/// The reply to a command that changes something.
struct Outcome : Reply {
    [[nodiscard]] bool Succeeded() const { return !failure && result == 0; }
    /// Move and copy commands only.
    [[nodiscard]] bool SourceMissing() const { return !failure && result == -2; }
};

/// The reply to a yes-or-no question. If the daemon could not answer it, both functions return false.
struct YesNo : Reply {
    [[nodiscard]] bool IsYes() const { return !failure && result == 1; }
    [[nodiscard]] bool IsNo() const { return !failure && result == 0; }
};

struct Entry {
    std::string name;
    bool isDirectory;  ///< also false if the file system does not store types in its directories

    friend bool operator==(const Entry& left, const Entry& right) {
        return left.name == right.name && left.isDirectory == right.isDirectory;
    }
};

/// Takes one entry of a listing. The name is valid during the call only. If it returns false, the rest of the listing
/// is dropped and the failure is ClientErrc::Cancelled. It must not use the client that calls it. It may throw; the
/// client then drops the rest and closes its connection.
using EntryTaker = std::function<bool(std::string_view name, bool isDirectory)>;

struct Listing : Reply {
    std::vector<Entry> entries;  ///< in the order of the directory, without "." and ".."
    [[nodiscard]] bool Succeeded() const { return !failure && result == 0; }
};

struct ExistedPathReply : Reply {
    std::string path;
    [[nodiscard]] bool Succeeded() const { return !failure && result == 0; }
};

struct Size : Reply {
    std::int32_t kilobytes = 0;  ///< allocated space; UsedSpace gives a figure even after errors
    bool isWhole = false;        ///< whether the figure includes everything below the path
};

/// A client connects at its first request. A failure during an exchange closes the connection, so that a late reply is
/// never taken for the reply to the next request. The next request connects again.
///
/// No request is carried out twice. If the daemon has closed an idle connection, the client connects once more and
/// sends the request then. This is safe even if only the send detects it: a failed send on a local stream socket has
/// transferred no byte. Once bytes were transferred, the client never sends the request again.
///
/// The daemon resolves paths, so a relative path is relative to the daemon's working directory. `user` and `group` are
/// names or decimal numbers. `perm` is octal text ("0755"). An empty text or the mode 0 makes the command fail. Texts
/// that the daemon would refuse without an answer (a NUL byte, "../", src and dst over 4095 bytes, user and group over
/// 35, perm over 15 or with "-") fail with ClientErrc::InvalidRequest before the client connects. So do numbers of
/// users and groups above 4294967294, which the daemon would misread.
class FILE_MIGRATE_EXPORT Client {
public:
    explicit Client(ClientOptions options = {});
    /// A moved-from client may only be destroyed or assigned to.
    Client(Client&& other) noexcept;
    Client& operator=(Client&& other) noexcept;
    ~Client();

    /// Whether a signal handler interrupts a wait. If it does, the failure is std::errc::interrupted, and the daemon
    /// may still carry out a request that was sent. At first no signal interrupts.
    void SetInterruptible(bool isWanted);

    /// Connects now, to find out whether the daemon is available. Requests connect by themselves.
    [[nodiscard]] Failure Connect();

    // Questions. They change nothing.
    [[nodiscard]] YesNo IsExist(std::string_view path);    ///< follows links: no for a dangling one
    [[nodiscard]] YesNo IsDir(std::string_view path);      ///< no for a link to a directory
    [[nodiscard]] Listing ListDir(std::string_view path);  ///< one level
    /// The same, entry by entry as they arrive, for directories with very many entries. The listing is complete
    /// only if the outcome is a success.
    [[nodiscard]] Outcome ListDir(std::string_view path, EntryTaker taker);
    [[nodiscard]] ExistedPathReply ExistedPath(std::string_view path);  ///< the nearest ancestor that exists, or path
    [[nodiscard]] Size UsedSpace(std::string_view path);                ///< of the whole tree
    [[nodiscard]] Size MaxSize(std::string_view path);                  ///< of the largest non-directory in the tree

    /// Creates a directory. An existing one is left unchanged. MkDir gives it mode 0700 and the daemon's owner.
    [[nodiscard]] Outcome MkDir(std::string_view path, Recursion recursion = Recursion::PathOnly);
    [[nodiscard]] Outcome PrepareDir(std::string_view path, std::string_view user, std::string_view group,
                                     std::string_view perm, Recursion recursion = Recursion::PathOnly);

    // Migration. `dst` is the new object, not the directory that will contain it; but a file that is copied onto an
    // existing directory goes into it. The Sub commands take each child of
    // `src` to the same name in `dst`, which must exist, and continue after a child that fails.
    //
    // Only regular files and directories are copied. A MOVE TO ANOTHER FILE SYSTEM AND CopyComb LOSE SYMBOLIC LINKS AND
    // SPECIAL FILES: they remove them with the source and still succeed.
    [[nodiscard]] Outcome MoveSub(std::string_view src, std::string_view dst);
    [[nodiscard]] Outcome MoveAll(std::string_view src, std::string_view dst);
    [[nodiscard]] Outcome CopySub(std::string_view src, std::string_view dst);
    [[nodiscard]] Outcome CopyAll(std::string_view src, std::string_view dst);

    /// Copies files and directories, gives all of them one owner and mode, and removes the source. It removes the
    /// source of a failed copy as well. For a directory, `dst` must exist.
    [[nodiscard]] Outcome CopyComb(std::string_view src, std::string_view dst, std::string_view user,
                                   std::string_view group, std::string_view perm);

    /// Removes a tree. TryRemove continues after failures and leaves only the entries that cannot be removed.
    [[nodiscard]] Outcome Remove(std::string_view path);
    [[nodiscard]] Outcome TryRemove(std::string_view path);

    // Labels, owner and mode. Links are not followed.
    [[nodiscard]] Outcome Restorecon(std::string_view path, Recursion recursion = Recursion::PathOnly);
    [[nodiscard]] Outcome RestoreconFromParent(std::string_view path);
    [[nodiscard]] Outcome ChOwn(std::string_view path, std::string_view user, std::string_view group,
                                Recursion recursion = Recursion::PathOnly);
    [[nodiscard]] Outcome ChMod(std::string_view path, std::string_view perm,
                                Recursion recursion = Recursion::PathOnly);

private:
    std::unique_ptr<Session> session;
};

enum class OwnerField { None, User, Group };

/// Distinguishes a missing owner from a missing path; the daemon answers both with ENOENT. Looks the names up in this
/// process, with the users and groups that it sees.
/// @return the first of the two that is a name and does not exist; None if both are numbers or exist
[[nodiscard]] FILE_MIGRATE_EXPORT OwnerField UnknownOwner(const std::string& user, const std::string& group);

}  // namespace TAVO::FileMigrateClient
