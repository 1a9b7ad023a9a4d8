// The progress of a transfer in the C interface.
#include <utility>

#include "c_conversion.h"
#include "client_growth.h"

struct file_migrate_growth {
    TAVO::FileMigrateClient::Growth growth;
};

using namespace TAVO::FileMigrateClient;

file_migrate_growth* file_migrate_growth_new(const file_migrate_options* options, file_migrate_command command,
                                             const char* src, const char* dst) {
    const bool isMove = command == FILE_MIGRATE_MOVE_ALL || command == FILE_MIGRATE_MOVE_SUB;
    const bool isOfChildren = command == FILE_MIGRATE_MOVE_SUB || command == FILE_MIGRATE_COPY_SUB;
    const bool isTransfer =
        isMove || isOfChildren || command == FILE_MIGRATE_COPY_ALL || command == FILE_MIGRATE_COPY_COMB;
    if (!isTransfer || src == nullptr || dst == nullptr) {
        return nullptr;
    }
    try {
        std::optional<Growth> growth = Growth::Measure(FromC(options), {src, dst, isMove, isOfChildren});
        return growth ? new file_migrate_growth{std::move(*growth)} : nullptr;
    } catch (...) {  // can only be std::bad_alloc
        return nullptr;
    }
}

void file_migrate_growth_free(file_migrate_growth* growth) {
    delete growth;
}

std::int64_t file_migrate_growth_total(const file_migrate_growth* growth) {
    return growth == nullptr ? -1 : growth->growth.Total();
}

std::int64_t file_migrate_growth_now(file_migrate_growth* growth) {
    try {
        return growth == nullptr ? -1 : growth->growth.Now().value_or(-1);
    } catch (...) {  // as above
        return -1;
    }
}
