// How result strings are packed into packages.
#include "reply.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

TEST(PackStringsTest, FillsPackagesUpToTheirWidth) {
    const std::string big(2047, 'b');
    const struct {
        const char* name;
        StringList strs;
        std::vector<std::string> packages;
    } rows[] = {
        {"none", {}, {}},
        {"three", {"a", "b", "c"}, {"a/b/c"}},
        {"empty string first", {"", "x"}, {"/x"}},
        {"only an empty string", {""}, {""}},
        {"exactly full", {big, big}, {big + "/" + big}},
        {"one byte too many", {big, big + "b", "c"}, {big, big + "b/c"}},
        {"too long for any package", {"a", std::string(5000, 'c'), "d"}, {"a", std::string(5000, 'c'), "d"}},
    };
    for (const auto& row : rows) {
        const std::vector<std::string_view> packed = PackStrings(row.strs);
        EXPECT_EQ(std::vector<std::string>(packed.begin(), packed.end()), row.packages) << row.name;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
