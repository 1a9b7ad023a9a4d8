// How result strings are packed.
#include "reply.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TAVO::FileMigrateOrvane::Testing {
namespace {

using Strings = std::vector<std::string>;

TEST(PackStringsTest, FillsPackagesUpToTheirWidth) {
    const std::string big(2047, 'b');
    const struct {
        const char* name;
        Strings strs;
        Strings packages;
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
        EXPECT_EQ(PackStrings(row.strs), row.packages) << row.name;
    }
}

}  // namespace
}  // namespace TAVO::FileMigrateOrvane::Testing
