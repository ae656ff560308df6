#pragma once

#include <optional>
#include <string_view>

namespace corvane::host {

/// A number from 0 to 1, such as "0.25" or "1e-4"; nothing for any other text.
std::optional<double> parseProbability(std::string_view text);

}  // namespace corvane::host
