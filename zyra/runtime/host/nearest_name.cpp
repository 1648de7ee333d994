// Suggesting a name for a misspelt one; the rule is in nearest_name.h.
#include "host/nearest_name.h"

#include <algorithm>

namespace Zyra::rt {

namespace {

// Levenshtein distance with adjacent swaps counted as one edit, case ignored.
size_t EditDistance(std::wstring_view a, std::wstring_view b) {
  auto low = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? wchar_t(c - L'A' + L'a') : c; };
  std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t cost = low(a[i - 1]) == low(b[j - 1]) ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && low(a[i - 1]) == low(b[j - 2]) && low(a[i - 2]) == low(b[j - 1]))
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a.size()][b.size()];
}

}  // namespace

std::wstring NearestName(std::wstring_view name, const std::vector<std::wstring>& candidates) {
  // A slip is a few edits: one in a short name, up to three in a long one.
  const size_t allowed = name.size() <= 4 ? 1 : name.size() <= 8 ? 2 : 3;
  std::wstring best;
  size_t bestDistance = allowed + 1;
  for (const std::wstring& candidate : candidates) {
    const size_t distance = EditDistance(name, candidate);
    if (distance < bestDistance) {
      bestDistance = distance;
      best = candidate;
    }
  }
  return best;
}

}  // namespace Zyra::rt
