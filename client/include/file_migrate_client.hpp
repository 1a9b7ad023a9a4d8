// The client library for C++17 and later: one method for each of the daemon's commands. A Client owns its connection
// and has one request on its way at a time. One client is used by one thread at a time, different ones by any threads
// at once; programs that want several requests at work use several clients. The library starts no thread, installs no
// signal handler, raises no SIGPIPE and keeps no global state.
//
// Nothing here throws but std::bad_alloc. For C there is file_migrate_client.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client_error.h"
#include "client_export.h"

namespace TAVO::FileMigrateOrvane {

class Session;

inline constexpr const char* DEFAULT_SOCKET_PATH = "/dev/unix/socket/file_migrate_orvane";

struct ClientOptions {
    std::string socketPath = DEFAULT_SOCKET_PATH;
    std::chrono::milliseconds connectLimit{5000};  ///< for making a connection; 0 waits for ever
    /// From sending a request to the end of its reply; 0 waits for ever. A move across file systems can take hours.
    std::chrono::milliseconds replyLimit{0};
};

/// How far a command reaches.
enum class Recursion : std::int32_t {
    PathOnly = 1,
    Recursive = 2,  ///< for MkDir and PrepareDir: every missing ancestor; for the others: everything below the path
};

/// What every command gives back.
struct Reply {
    Failure failure;           ///< why there is no answer; if set, nothing else of the reply means anything
    std::int32_t result = -1;  ///< as the daemon gave it
    /// The last error number that the daemon met, 0 for none; an operation can succeed and still have one (a move
    /// across file systems has EXDEV), and can fail without one.
    std::int32_t errCode = 0;
};

/// Of a command that changes something.
struct Outcome : Reply {
    [[nodiscard]] bool Succeeded() const { return !failure && result == 0; }
    [[nodiscard]] bool SourceMissing() const {
        return !failure && result == -2;
    }  ///< migrate commands and CopyComb only
};

/// Of a question; a question that could not be told has both false.
struct YesNo : Reply {
    [[nodiscard]] bool IsYes() const { return !failure && result == 1; }
    [[nodiscard]] bool IsNo() const { return !failure && result == 0; }
};

struct Entry {
    std::string name;
    bool isDirectory;  ///< false also where the file system does not tell types in its directories

    friend bool operator==(const Entry& left, const Entry& right) {
        return left.name == right.name && left.isDirectory == right.isDirectory;
    }
};

struct Listing : Reply {
    std::vector<Entry> entries;  ///< in the directory's own order, without "." and ".."
    [[nodiscard]] bool Succeeded() const { return !failure && result == 0; }
};

struct ExistedPathReply : Reply {
    std::string path;
    [[nodiscard]] bool Succeeded() const { return !failure && result == 0; }
};

struct Size : Reply {
    std::int32_t kilobytes = 0;  ///< allocated space; of UsedSpace also where the walk met errors
    bool isWhole = false;        ///< whether everything below the path was seen
};

/// Connects at the first request. A failure in mid-exchange closes the connection, so that a late answer is never
/// taken for the next one; the next request connects anew.
///
/// No request is ever carried out twice. A connection that the daemon closed while it was idle is made once more,
/// before the request or, where only the sending of it finds out, after that failed: a send on a local stream socket
/// that fails has handed over no byte, so that the daemon cannot have read any of the request. Once bytes were handed
/// over nothing is tried again, whatever happens.
///
/// Paths are resolved by the daemon, so relative ones are relative to the daemon's working directory. `user` and
/// `group` are names or decimal numbers, `perm` is octal text ("0755"); an empty text or a mode of 0 is answered with
/// a failure. Texts that the daemon would refuse without an answer (a NUL byte, "../", src and dst over 4095 bytes,
/// user and group over 35, perm over 15 or with "-") fail with ClientErrc::InvalidRequest, before connecting.
class FILE_MIGRATE_EXPORT Client {
public:
    explicit Client(ClientOptions options = {});
    /// A client that was moved from may only be destroyed or assigned to.
    Client(Client&& other) noexcept;
    Client& operator=(Client&& other) noexcept;
    ~Client();

    /// Connects now, to learn whether the daemon is there; requests do it by themselves.
    [[nodiscard]] Failure Connect();

    // Questions; they change nothing.
    [[nodiscard]] YesNo IsExist(std::string_view path);                 ///< follows links: no for a dangling one
    [[nodiscard]] YesNo IsDir(std::string_view path);                   ///< no for a link to a directory
    [[nodiscard]] Listing ListDir(std::string_view path);               ///< one level
    [[nodiscard]] ExistedPathReply ExistedPath(std::string_view path);  ///< the nearest ancestor that exists, or path
    [[nodiscard]] Size UsedSpace(std::string_view path);                ///< of the whole tree
    [[nodiscard]] Size MaxSize(std::string_view path);                  ///< of the largest non-directory in the tree

    /// Creates a directory; one that exists is left as it is. MkDir gives mode 0700 and the daemon's owner.
    [[nodiscard]] Outcome MkDir(std::string_view path, Recursion recursion = Recursion::PathOnly);
    [[nodiscard]] Outcome PrepareDir(std::string_view path, std::string_view user, std::string_view group,
                                     std::string_view perm, Recursion recursion = Recursion::PathOnly);

    // Migration. `dst` is the object to be made, not the directory that receives it. The Sub commands take each child
    // of `src` to the same name in `dst`, which must exist, and go on after a child that failed.
    [[nodiscard]] Outcome MoveSub(std::string_view src, std::string_view dst);
    [[nodiscard]] Outcome MoveAll(std::string_view src, std::string_view dst);
    [[nodiscard]] Outcome CopySub(std::string_view src, std::string_view dst);
    [[nodiscard]] Outcome CopyAll(std::string_view src, std::string_view dst);

    /// Copies files and directories with one owner and mode for all of them. The source is removed, also where copies
    /// failed. For a directory, `dst` must exist.
    [[nodiscard]] Outcome CopyComb(std::string_view src, std::string_view dst, std::string_view user,
                                   std::string_view group, std::string_view perm);

    /// Removes a tree; TryRemove goes entry by entry and leaves only what cannot be removed.
    [[nodiscard]] Outcome Remove(std::string_view path);
    [[nodiscard]] Outcome TryRemove(std::string_view path);

    // Labels, owner and mode; links are not followed.
    [[nodiscard]] Outcome Restorecon(std::string_view path, Recursion recursion = Recursion::PathOnly);
    [[nodiscard]] Outcome RestoreconFromParent(std::string_view path);
    [[nodiscard]] Outcome ChOwn(std::string_view path, std::string_view user, std::string_view group,
                                Recursion recursion = Recursion::PathOnly);
    [[nodiscard]] Outcome ChMod(std::string_view path, std::string_view perm,
                                Recursion recursion = Recursion::PathOnly);

private:
    std::unique_ptr<Session> session;
};

}  // namespace TAVO::FileMigrateOrvane
