#include "host/base/Probability.h"

#include <charconv>

namespace corvane::host {

std::optional<double> parseProbability(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  // The comparisons are false for a NaN.
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && value >= 0 && value <= 1 ? std::optional(value) : std::nullopt;
}

}  // namespace corvane::host
