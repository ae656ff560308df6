#include "host/explain/BlockDifference.h"

#include <bit>

namespace corvane::host {

std::optional<BlockDifference> differenceOf(std::span<const uint8_t> a, std::span<const uint8_t> b) {
  if (a.size() != b.size()) {
    return std::nullopt;
  }
  BlockDifference difference;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i] == b[i]) {
      continue;
    }
    if (difference.bytes++ == 0) {
      difference.first = i;
    }
    difference.last = i;
    difference.bits += static_cast<size_t>(std::popcount(static_cast<uint8_t>(a[i] ^ b[i])));
  }
  return difference.bytes == 0 ? std::nullopt : std::optional(difference);
}

}  // namespace corvane::host
