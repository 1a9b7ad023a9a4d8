// The word that was meant when another one was typed. Stateless.
#pragma once

#include <string>
#include <vector>

namespace TAVO::FileMigrateOrvane {

/// The candidate that takes the fewest changes of one letter (one more, one less, another, two swapped) to come from
/// `word`; empty where all take more than two, or as many as the word has letters.
std::string Nearest(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace TAVO::FileMigrateOrvane
