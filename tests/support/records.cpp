#include "records.h"

#include <glob.h>

#include <algorithm>

namespace TAVO::FileMigrateOrvane::Testing {

static Strings Matching(const std::string& pattern) {
    glob_t found{};
    glob(pattern.c_str(), 0, nullptr, &found);
    Strings paths(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return paths;
}

void ClearRecords() {
    for (const char* file : RECORD_FILES) {
        const fs::path directory = fs::path(file).parent_path();
        fs::create_directories(directory);
        for (const auto& entry : fs::directory_iterator(directory)) {
            fs::remove_all(entry);
        }
    }
}

Strings Records(const std::string& file) {
    Strings records;
    const std::string text = fs::exists(file) ? ReadFile(file) : "";
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(";type:", begin), text.size() - 1) + 1;
        records.push_back(text.substr(begin, end - begin));
        begin = end;
    }
    return records;
}

Strings RotatedFiles() {
    return Matching(fs::path(RECORD_FILE_AB).replace_extension().native() + ROTATION_SEPARATOR + "*");
}

Strings KernelLogDumps(const std::string& type) {
    return Matching(std::string(DUMP_DIRECTORY) + "/" + type + DUMP_SEPARATOR + "*");
}

}  // namespace TAVO::FileMigrateOrvane::Testing
