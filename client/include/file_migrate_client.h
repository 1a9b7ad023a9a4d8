// The client library for C (C99 and later): a handle, and one function for each of the daemon's commands. What a
// command does, and what its paths, owners and modes may be, stands with the class Client in file_migrate_client.hpp.
//
// A handle owns its connection. One handle is used by one thread at a time, different ones by any threads at once. The
// library starts no thread, installs no signal handler, raises no SIGPIPE and keeps no global state. No C++ exception
// leaves it. A NULL where none may be, and a want of memory, are answered like every other failure.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)  // the functions are what the shared library offers

typedef struct file_migrate_client file_migrate_client;

typedef struct file_migrate_options {
    const char* socket_path;   // NULL: the daemon's own, /dev/unix/socket/file_migrate_orvane
    int64_t connect_limit_ms;  // for making a connection; 0 waits for ever
    // From sending a request to the end of its reply; 0 waits for ever. A move across file systems can take hours.
    int64_t reply_limit_ms;
} file_migrate_options;

// The options of a handle that is made without any.
#define FILE_MIGRATE_DEFAULT_OPTIONS \
    { NULL, 5000, 0 }

typedef enum file_migrate_status {
    FILE_MIGRATE_ANSWERED = 0,           // the daemon's answer is in result and err_code
    FILE_MIGRATE_INVALID_REQUEST = 1,    // the daemon would refuse the request without an answer; nothing was sent
    FILE_MIGRATE_CONNECTION_CLOSED = 2,  // the daemon hung up before the whole reply had come
    FILE_MIGRATE_TIMED_OUT = 3,          // the limit passed; a request that was sent may still be carried out
    FILE_MIGRATE_MALFORMED_REPLY = 4,    // what came is not a reply to the request
    FILE_MIGRATE_SYSTEM_ERROR = 5,       // the operating system's refusal is in system_error
    FILE_MIGRATE_NULL_ARGUMENT = 6,      // nothing was sent
    FILE_MIGRATE_NO_MEMORY = 7,          // a request that was sent may still be carried out
} file_migrate_status;

// What every command gives back; a plain value.
typedef struct file_migrate_reply {
    file_migrate_status status;
    int32_t result;     // as the daemon gave it; -1 without an answer, so that 0 alone tells the success of a command
    int32_t err_code;   // the last error number that the daemon met, 0 for none; a success can have one too
    int system_error;   // errno of FILE_MIGRATE_SYSTEM_ERROR, else 0
    char message[256];  // why there is no answer, in words, cut where it is too long; empty with one
} file_migrate_reply;

enum { FILE_MIGRATE_SOURCE_MISSING = -2 };  // a result of the migrate commands and of copy_comb

typedef struct file_migrate_entry {
    const char* name;
    int is_directory;  // 0 also where the file system does not tell types in its directories
} file_migrate_entry;

typedef struct file_migrate_listing {
    file_migrate_reply reply;
    file_migrate_entry* entries;  // for file_migrate_release, names included; NULL if there are none
    size_t count;
} file_migrate_listing;

typedef struct file_migrate_path {
    file_migrate_reply reply;
    char* path;  // for file_migrate_release; NULL unless the result is 0
} file_migrate_path;

// How far a command reaches.
typedef enum file_migrate_recursion {
    FILE_MIGRATE_PATH_ONLY = 1,
    FILE_MIGRATE_RECURSIVE = 2,  // where directories are made: every missing ancestor; else everything below the path
} file_migrate_recursion;

// Makes a handle; nothing is connected yet. The options are copied; NULL takes the defaults. NULL: no memory.
file_migrate_client* file_migrate_client_new(const file_migrate_options* options);

// Closes the connection and frees the handle, not what it gave. NULL is allowed.
void file_migrate_client_free(file_migrate_client* client);

// Frees the entries of a listing or a path; any thread may do so. NULL is allowed.
void file_migrate_release(void* memory);

// Connects now, to learn whether the daemon is there (result 0); requests do it by themselves.
file_migrate_reply file_migrate_connect(file_migrate_client* client);

// Questions. The first two have the results 1 for yes, 0 for no, -1 when it could not be told. The last two have KB as
// their result; that of used_space is whole only if err_code is 0, max_size gives -1 when it could not be told.
file_migrate_reply file_migrate_is_exist(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_is_dir(file_migrate_client* client, const char* path);
file_migrate_listing file_migrate_list_dir(file_migrate_client* client, const char* path);
file_migrate_path file_migrate_existed_path(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_used_space(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_max_size(file_migrate_client* client, const char* path);

// Commands that change something have the results 0 for success and -1 for failure.
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
