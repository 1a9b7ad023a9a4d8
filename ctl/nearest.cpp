#include "nearest.h"

#include <algorithm>
#include <cstddef>

namespace TAVO::FileMigrateOrvane {
namespace {

std::size_t Distance(const std::string& from, const std::string& to) {
    // cost[i][j]: from the first i letters of one to the first j of the other
    std::vector<std::vector<std::size_t>> cost(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); ++i) {
        for (std::size_t j = 0; j <= to.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t changed = from[i - 1] == to[j - 1] ? 0 : 1;
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + changed});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
    }
    return cost[from.size()][to.size()];
}

}  // namespace

std::string Nearest(const std::string& word, const std::vector<std::string>& candidates) {
    constexpr std::size_t mostChanges = 2;
    constexpr std::size_t longestWord = 32;  // no sub-command comes near it
    if (word.size() > longestWord) {
        return {};
    }
    std::string nearest;
    std::size_t fewest = std::min(mostChanges + 1, word.size());
    for (const std::string& candidate : candidates) {
        const std::size_t changes = Distance(word, candidate);
        if (changes < fewest) {
            fewest = changes;
            nearest = candidate;
        }
    }
    return nearest;
}

}  // namespace TAVO::FileMigrateOrvane
