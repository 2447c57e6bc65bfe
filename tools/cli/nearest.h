// What somebody probably meant.
#pragma once

#include <string>
#include <vector>

namespace qav::tool {

// The candidate that `word` was probably meant to be, misspelt or cut short; empty when none is near.
std::string nearest(const std::string &word, const std::vector<std::string> &candidates);

}  // namespace qav::tool
