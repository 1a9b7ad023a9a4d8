// The client library for C (C99 and later): a handle and one function for each of the daemon's commands. The class
// Client in file_migrate_client.hpp describes the commands and the valid paths, owners and modes.
//
// A handle owns its connection. A handle is used by one thread at a time; different threads may use different handles
// at the same time. The library starts no thread, installs no signal handler, raises no SIGPIPE and keeps no global
// state. No C++ exception leaves it. An unexpected NULL and a lack of memory are reported like every other failure.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)  // the shared library exports these functions

typedef struct file_migrate_client file_migrate_client;

typedef struct file_migrate_options {
    const char* socket_path;   // NULL: /dev/unix/socket/file_migrate_orvane
    int64_t connect_limit_ms;  // for connecting; 0 means no limit
    // From sending a request to the end of its reply; 0 means no limit. A move across file systems can take hours.
    int64_t reply_limit_ms;
    // The user id of the process that listens at the socket. The client sends nothing to any other. Tests with a daemon
    // of their own change it.
    uint32_t daemon_user;
} file_migrate_options;

// The default options.
#define FILE_MIGRATE_DEFAULT_OPTIONS \
    { NULL, 5000, 0, 0 }

typedef enum file_migrate_status {
    FILE_MIGRATE_ANSWERED = 0,           // the daemon's answer is in result and err_code
    FILE_MIGRATE_INVALID_REQUEST = 1,    // the daemon would refuse the request without an answer; nothing was sent
    FILE_MIGRATE_CONNECTION_CLOSED = 2,  // the daemon closed the connection before the whole reply had arrived
    FILE_MIGRATE_TIMED_OUT = 3,          // the limit passed; the daemon may still carry out a request that was sent
    FILE_MIGRATE_MALFORMED_REPLY = 4,    // the bytes received are not a reply to the request
    FILE_MIGRATE_SYSTEM_ERROR = 5,       // a system call failed with the error number in system_error
    FILE_MIGRATE_NULL_ARGUMENT = 6,      // nothing was sent
    FILE_MIGRATE_NO_MEMORY = 7,          // the daemon may still carry out a request that was sent
    FILE_MIGRATE_UNTRUSTED_PEER = 8,     // another user than the daemon's listens at the socket; nothing was sent
} file_migrate_status;

// The reply to a command; a plain value.
typedef struct file_migrate_reply {
    file_migrate_status status;
    int32_t result;     // the daemon's result; -1 without an answer, so that 0 always means success
    int32_t err_code;   // the last error number that occurred, 0 if there was none; a success can have one too
    int system_error;   // errno for FILE_MIGRATE_SYSTEM_ERROR, otherwise 0
    char message[256];  // why there is no answer, cut if it is too long; empty if there is an answer
} file_migrate_reply;

enum { FILE_MIGRATE_SOURCE_MISSING = -2 };  // a result of the move and copy commands

typedef struct file_migrate_entry {
    const char* name;
    int is_directory;  // also 0 if the file system does not store types in its directories
} file_migrate_entry;

typedef struct file_migrate_listing {
    file_migrate_reply reply;
    file_migrate_entry* entries;  // with their names, to be freed by file_migrate_release; NULL if there are none
    size_t count;
} file_migrate_listing;

typedef struct file_migrate_path {
    file_migrate_reply reply;
    char* path;  // to be freed by file_migrate_release; NULL unless the result is 0
} file_migrate_path;

// Whether a command handles only the path or also other objects.
typedef enum file_migrate_recursion {
    FILE_MIGRATE_PATH_ONLY = 1,
    FILE_MIGRATE_RECURSIVE =
        2,  // mkdir, prepare_dir: every missing ancestor too; others: everything below the path too
} file_migrate_recursion;

// Makes a handle without connecting. It copies the options; NULL means the defaults. Returns NULL if there is no
// memory.
file_migrate_client* file_migrate_client_new(const file_migrate_options* options);

// Closes the connection and frees the handle, but no listing or path that it returned. NULL is allowed.
void file_migrate_client_free(file_migrate_client* client);

// Frees the entries of a listing, or a path. Any thread may call it. NULL is allowed.
void file_migrate_release(void* memory);

// Connects now, to find out whether the daemon is available (result 0). Requests connect by themselves.
file_migrate_reply file_migrate_connect(file_migrate_client* client);

// Questions. The first two have the result 1 for yes, 0 for no and -1 if the daemon could not answer. The result of the
// last two is in KB. The figure of used_space is complete only if err_code is 0; max_size gives -1 on failure.
file_migrate_reply file_migrate_is_exist(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_is_dir(file_migrate_client* client, const char* path);
file_migrate_listing file_migrate_list_dir(file_migrate_client* client, const char* path);
file_migrate_path file_migrate_existed_path(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_used_space(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_max_size(file_migrate_client* client, const char* path);

// Commands that change something. Their result is 0 for success and -1 for failure.
file_migrate_reply file_migrate_mkdir(file_migrate_client* client, const char* path, file_migrate_recursion recursion);
file_migrate_reply file_migrate_prepare_dir(file_migrate_client* client, const char* path, const char* user,
                                            const char* group, const char* perm, file_migrate_recursion recursion);
file_migrate_reply file_migrate_move_sub(file_migrate_client* client, const char* src, const char* dst);
file_migrate_reply file_migrate_move_all(file_migrate_client* client, const char* src, const char* dst);
file_migrate_reply file_migrate_copy_sub(file_migrate_client* client, const char* src, const char* dst);
file_migrate_reply file_migrate_copy_all(file_migrate_client* client, const char* src, const char* dst);
file_migrate_reply file_migrate_copy_comb(file_migrate_client* client, const char* src, const char* dst,
                                          const char* user, const char* group, const char* perm);
file_migrate_reply file_migrate_remove(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_try_remove(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_restorecon(file_migrate_client* client, const char* path,
                                           file_migrate_recursion recursion);
file_migrate_reply file_migrate_restorecon_from_parent(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_chown(file_migrate_client* client, const char* path, const char* user,
                                      const char* group, file_migrate_recursion recursion);
file_migrate_reply file_migrate_chmod(file_migrate_client* client, const char* path, const char* perm,
                                      file_migrate_recursion recursion);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
