#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace corvane::host {

/// Two blocks side by side in hexadecimal, 16 bytes a line, with the differing bytes in brackets:
///
///     offset    drive                                             reference
///     0x0060    12 34 56 78[9A]BC …                               12 34 56 78[9B]BC …
///
/// Runs of more than three equal lines are shortened to "…  (n equal lines)". An empty block is shown as "--".
/// Every line ends with a line break.
std::string hexComparison(std::span<const uint8_t> drive, std::span<const uint8_t> reference);

}  // namespace corvane::host
