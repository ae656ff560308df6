#include "host/base/NearestName.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace corvane::host {
namespace {

char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

/// How many letters must be changed, added or removed to make one of the other, whatever their case.
size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t changed = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearestName(std::string_view wrong, const std::vector<std::string>& known) {
  size_t least = std::max<size_t>(2, wrong.size() / 3) + 1;
  std::string nearest;
  for (const std::string& name : known) {
    const size_t distance = editDistance(wrong, name);
    if (distance < least && distance < name.size()) {
      least = distance;
      nearest = name;
    }
  }
  return nearest;
}

std::string didYouMean(std::string_view wrong, const std::vector<std::string>& known) {
  const std::string nearest = nearestName(wrong, known);
  return nearest.empty() ? std::string() : "; did you mean '" + nearest + "'?";
}

}  // namespace corvane::host
