#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace corvane::host {

/// Two blocks side by side in hexadecimal, 16 bytes a line, with brackets around the differing bytes:
///
///     offset   drive                                             reference
///     0x0060   12 34 56 78[9A]BC …                               12 34 56 78[9B]BC …
///
/// More than three equal lines in a row are shortened to one that says how many, and so are the differing lines after
/// the first `mostDiffering`. A byte that is not there is shown as "--". Every line ends with a line break.
std::string hexComparison(std::span<const uint8_t> drive, std::span<const uint8_t> reference,
                          size_t mostDiffering = SIZE_MAX);

}  // namespace corvane::host
