#include "records.h"

#include <algorithm>
#include <filesystem>

#include "scratch_tree.h"

namespace TAVO::FileMigrateOrvane::Testing {
namespace fs = std::filesystem;
namespace {

std::vector<std::string> FilesWithPrefix(const fs::path& prefix) {
    std::vector<std::string> found;
    if (fs::is_directory(prefix.parent_path())) {
        for (const auto& entry : fs::directory_iterator(prefix.parent_path())) {
            if (entry.path().native().starts_with(prefix.native())) {
                found.push_back(entry.path());
            }
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace

void ClearRecords() {
    for (const char* file : RECORD_FILES) {
        const fs::path directory = fs::path(file).parent_path();
        fs::create_directories(directory);
        for (const auto& entry : fs::directory_iterator(directory)) {
            fs::remove_all(entry);
        }
    }
}

std::vector<std::string> Records(const std::string& file) {
    std::vector<std::string> records;
    const std::string text = fs::exists(file) ? ReadFile(file) : "";
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(";type:", begin), text.size() - 1) + 1;
        records.push_back(text.substr(begin, end - begin));
        begin = end;
    }
    return records;
}

std::vector<std::string> RotatedFiles() {
    const fs::path file(RECORD_FILE_AB);
    return FilesWithPrefix(file.parent_path() / (file.stem().native() + ROTATION_SEPARATOR));
}

std::vector<std::string> KernelLogDumps(const std::string& type) {
    return FilesWithPrefix(fs::path(DUMP_DIRECTORY) / (type.empty() ? "" : type + DUMP_SEPARATOR));
}

}  // namespace TAVO::FileMigrateOrvane::Testing
