#include "tools/cli/nearest.h"

#include <algorithm>

namespace qav::tool {

namespace {

// Letters to be added, left out, replaced or swapped with their neighbour to make `b` of `a`.
size_t editDistance(const std::string &a, const std::string &b) {
  std::vector<std::vector<size_t>> of(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        of[i][j] = i + j;
        continue;
      }
      of[i][j] = std::min({of[i - 1][j] + 1, of[i][j - 1] + 1, of[i - 1][j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        of[i][j] = std::min(of[i][j], of[i - 2][j - 2] + 1);
    }
  }
  return of[a.size()][b.size()];
}

// Two letters say nothing yet; neither do the dashes of an option.
bool isShortFor(const std::string &word, const std::string &candidate) {
  return word.size() >= word.find_first_not_of('-') + 3 && candidate.starts_with(word);
}

}  // namespace

std::string nearest(const std::string &word, const std::vector<std::string> &candidates) {
  std::string best;
  size_t bestDistance = std::max<size_t>(1, word.size() / 3) + 1;
  for (const std::string &candidate : candidates) {
    const size_t distance = isShortFor(word, candidate) ? 1 : editDistance(word, candidate);
    if (distance < bestDistance) {
      best = candidate;
      bestDistance = distance;
    }
  }
  return best;
}

}  // namespace qav::tool
