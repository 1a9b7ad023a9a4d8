/* Lists a directory that only the daemon may read. */
#include <file_migrate_orvane/file_migrate_client.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char** argv) {
    file_migrate_options options = FILE_MIGRATE_DEFAULT_OPTIONS;
    options.reply_limit_ms = 60000;
    file_migrate_client* client = file_migrate_client_new(&options);

    file_migrate_listing listing = file_migrate_list_dir(client, argc > 1 ? argv[1] : "/data");
    const int is_listed = listing.reply.result == 0;
    if (listing.reply.status != FILE_MIGRATE_ANSWERED) {
        fprintf(stderr, "list_dir: %s\n", listing.reply.message);
    } else if (!is_listed) {
        fprintf(stderr, "list_dir: %s\n", strerror(listing.reply.err_code));
    }
    for (size_t i = 0; i < listing.count; ++i) {
        printf("%s%s\n", listing.entries[i].name, listing.entries[i].is_directory ? "/" : "");
    }
    file_migrate_release(listing.entries);
    file_migrate_client_free(client);
    return is_listed ? EXIT_SUCCESS : EXIT_FAILURE;
}
