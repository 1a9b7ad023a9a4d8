// The client library for C (C99 and later): a handle and one function for each of the daemon's commands. The class
// Client in file_migrate_client.hpp describes the commands and the valid paths, owners and modes; file_migrate(3) has
// an overview.
//
// A handle owns its connection. A handle is used by one thread at a time; different threads may use different handles
// at the same time. The library starts no thread, installs no signal handler, raises no SIGPIPE and keeps no global
// state. No C++ exception leaves it. An unexpected NULL and a lack of memory are reported like every other failure.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "client_version.h"

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
    FILE_MIGRATE_INVALID_REQUEST = 1,    // the daemon would refuse or misread the request; nothing was sent
    FILE_MIGRATE_CONNECTION_CLOSED = 2,  // the daemon closed the connection before the whole reply had arrived
    FILE_MIGRATE_TIMED_OUT = 3,          // the limit passed; the daemon may still carry out a request that was sent
    FILE_MIGRATE_MALFORMED_REPLY = 4,    // the bytes received are not a reply to the request
    FILE_MIGRATE_SYSTEM_ERROR = 5,       // a system call failed with the error number in system_error
    FILE_MIGRATE_NULL_ARGUMENT = 6,      // nothing was sent
    FILE_MIGRATE_NO_MEMORY = 7,          // the daemon may still carry out a request that was sent
    FILE_MIGRATE_UNTRUSTED_PEER = 8,     // another user than the daemon's listens at the socket; nothing was sent
    FILE_MIGRATE_CANCELLED = 9,          // a callback ended the request; the daemon may still carry it out
    FILE_MIGRATE_BUSY = 10,              // the handle's request is not finished; nothing was sent
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

// The version of the library that the program runs with, as a number like FILE_MIGRATE_CLIENT_VERSION.
uint32_t file_migrate_client_version(void);

// Makes a handle without connecting. It copies the options; NULL means the defaults. Returns NULL if there is no
// memory.
file_migrate_client* file_migrate_client_new(const file_migrate_options* options);

// Closes the connection and frees the handle, but no listing or path that it returned. NULL is allowed.
void file_migrate_client_free(file_migrate_client* client);

// Frees the entries of a listing, or a path. Any thread may call it. NULL is allowed.
void file_migrate_release(void* memory);

// Whether a signal handler interrupts a wait (1) or not (0, the default). A wait that was interrupted gives the status
// FILE_MIGRATE_SYSTEM_ERROR with EINTR. The daemon may still carry out a request that was sent.
void file_migrate_set_interruptible(file_migrate_client* client, int enabled);

// Connects now, to find out whether the daemon is available (result 0). Requests connect by themselves.
file_migrate_reply file_migrate_connect(file_migrate_client* client);

// Takes one entry of a listing. The name is valid during the call only. Returns 0 to go on; with any other value the
// rest of the listing is dropped and the status is FILE_MIGRATE_CANCELLED. It must not use the handle and must not
// throw.
typedef int file_migrate_entry_taker(void* context, const char* name, int is_directory);

// Questions. The first two have the result 1 for yes, 0 for no and -1 if the daemon could not answer. The result of the
// last two is in KB. The figure of used_space is complete only if err_code is 0; max_size gives -1 on failure.
file_migrate_reply file_migrate_is_exist(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_is_dir(file_migrate_client* client, const char* path);
file_migrate_listing file_migrate_list_dir(file_migrate_client* client, const char* path);
// The same, entry by entry as they arrive, for directories with very many entries. The listing is complete only if
// the result is 0.
file_migrate_reply file_migrate_list_each(file_migrate_client* client, const char* path,
                                          file_migrate_entry_taker* taker, void* context);
file_migrate_path file_migrate_existed_path(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_used_space(file_migrate_client* client, const char* path);
file_migrate_reply file_migrate_max_size(file_migrate_client* client, const char* path);

// Commands that change something. Their result is 0 for success and -1 for failure.
//
// dst is the new object, not the directory that will contain it; but a file that is copied onto an existing directory
// goes into it. Only regular files and directories are copied. A MOVE TO ANOTHER FILE SYSTEM AND copy_comb LOSE
// SYMBOLIC LINKS AND SPECIAL FILES: they remove them with the source, and the result is still 0.
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

typedef enum file_migrate_owner_field {
    FILE_MIGRATE_NO_OWNER = 0,
    FILE_MIGRATE_USER = 1,
    FILE_MIGRATE_GROUP = 2,
} file_migrate_owner_field;

// Distinguishes a missing owner from a missing path; the daemon answers both with ENOENT. Looks the names up in this
// process, with the users and groups that it sees. Returns the first of the two that is a name and does not exist;
// FILE_MIGRATE_NO_OWNER if both are numbers, exist or are NULL, or if there is no memory.
file_migrate_owner_field file_migrate_unknown_owner(const char* user, const char* group);

// A request that is begun and finished in two calls, for programs that wait for other things as well:
//
//     file_migrate_begin(client, &request);
//     do {
//         struct pollfd entry = {file_migrate_fd(client), file_migrate_events(client), 0};
//         poll(&entry, 1, file_migrate_timeout(client));  // or the program's own event loop
//     } while (!file_migrate_process(client));
//     reply = file_migrate_finish(client);
//
// The functions above do the same and wait. A handle has one request at a time; until file_migrate_finish or
// file_migrate_cancel, every other request gives FILE_MIGRATE_BUSY.

// The numbers of the commands, as in the daemon's protocol.
typedef enum file_migrate_command {
    FILE_MIGRATE_IS_EXIST = 0,
    FILE_MIGRATE_IS_DIR = 1,
    FILE_MIGRATE_LIST_DIR = 2,
    FILE_MIGRATE_PREPARE_DIR = 3,
    FILE_MIGRATE_MOVE_SUB = 4,
    FILE_MIGRATE_MOVE_ALL = 5,
    FILE_MIGRATE_COPY_SUB = 6,
    FILE_MIGRATE_COPY_ALL = 7,
    FILE_MIGRATE_REMOVE = 8,
    FILE_MIGRATE_RESTORECON = 9,
    FILE_MIGRATE_RESTORECON_FROM_PARENT = 10,
    FILE_MIGRATE_TRY_REMOVE = 11,
    FILE_MIGRATE_MKDIR = 12,
    FILE_MIGRATE_CHOWN = 13,
    FILE_MIGRATE_CHMOD = 14,
    FILE_MIGRATE_EXISTED_PATH = 15,
    FILE_MIGRATE_USED_SPACE = 16,
    FILE_MIGRATE_MAX_SIZE = 17,
    FILE_MIGRATE_COPY_COMB = 18,
} file_migrate_command;

// A request. Fields that the command does not use are 0 or NULL; FILE_MIGRATE_REQUEST sets all but the command and src.
typedef struct file_migrate_request {
    size_t size;  // sizeof(file_migrate_request); later versions of the library may add fields at the end
    file_migrate_command command;
    const char* src;  // the path of commands with one path
    const char* dst;
    const char* user;
    const char* group;
    const char* perm;
    file_migrate_recursion recursion;
    // For list_dir; for existed_path it gets the path as one entry. May be NULL.
    file_migrate_entry_taker* taker;
    void* context;  // passed to taker
} file_migrate_request;

#define FILE_MIGRATE_REQUEST(command, src) \
    { sizeof(file_migrate_request), (command), (src), NULL, NULL, NULL, NULL, FILE_MIGRATE_PATH_ONLY, NULL, NULL }

// Accepts a request and copies its texts; the first file_migrate_process sends it. The result is 0 if it was begun.
// Otherwise the status says why not, and there is nothing to finish.
file_migrate_reply file_migrate_begin(file_migrate_client* client, const file_migrate_request* request);

// What to wait for before the next file_migrate_process, as poll(2) takes it. Ask again after each
// file_migrate_process: the descriptor changes when the library connects again.
int file_migrate_fd(const file_migrate_client* client);        // -1: there is no descriptor, wait for the time only
short file_migrate_events(const file_migrate_client* client);  // POLLIN, POLLOUT or 0
// The milliseconds after which file_migrate_process is to be called even without an event; -1 means no limit.
int file_migrate_timeout(const file_migrate_client* client);

// Moves the request on as far as possible without waiting, and calls the taker with the entries that have arrived.
// Returns 1 if the request is over, so that file_migrate_finish does not wait; otherwise 0.
int file_migrate_process(file_migrate_client* client);

// Ends the request and returns its reply. It waits if the request is not over. If a signal interrupts that wait (see
// file_migrate_set_interruptible), the request goes on: call file_migrate_finish again, or file_migrate_cancel.
file_migrate_reply file_migrate_finish(file_migrate_client* client);

// Drops the request, if there is one, without a reply. The daemon may still carry it out.
void file_migrate_cancel(file_migrate_client* client);

// How far a copy or a move has come, for programs that show progress. It asks the daemon how much space the destination
// uses, on a connection of its own, so that another thread may use it while the transfer's handle waits. It leaves no
// records. It is used by one thread at a time.
typedef struct file_migrate_growth file_migrate_growth;

// Measures the source, which may soon be gone, and the destination. Call it before the transfer, with the command of
// the transfer and absolute paths. NULL options mean the defaults. Returns NULL if measuring is useless (a rename takes
// no time) or could fail, if the command neither moves nor copies, or if there is no memory.
file_migrate_growth* file_migrate_growth_new(const file_migrate_options* options, file_migrate_command command,
                                             const char* src, const char* dst);

// Closes the connection and frees the memory. NULL is allowed.
void file_migrate_growth_free(file_migrate_growth* growth);

// KB to transfer.
int64_t file_migrate_growth_total(const file_migrate_growth* growth);

// KB that have arrived; -1 if the daemon could not tell. Do not call it again then. Measuring a large tree takes the
// daemon some time, so leave pauses between the calls.
int64_t file_migrate_growth_now(file_migrate_growth* growth);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
