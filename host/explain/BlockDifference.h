#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace corvane::host {

/// How two blocks of the same length differ.
struct BlockDifference {
  size_t first = 0;  ///< first differing byte
  size_t last = 0;   ///< last differing byte
  size_t bytes = 0;  ///< how many differ
  size_t bits = 0;   ///< how many bits of them

  /// A few flipped bits, not other data.
  bool isFewBits() const { return bits <= 16 && bytes <= 8; }
  /// Nearly every byte between the first and the last differs, as between unrelated data.
  bool isDense() const { return bytes * 10 >= (last - first + 1) * 9; }
};

/// Nothing when they are equal, or when their lengths differ.
std::optional<BlockDifference> differenceOf(std::span<const uint8_t> a, std::span<const uint8_t> b);

}  // namespace corvane::host
