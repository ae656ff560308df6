#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane::host {

/// How many ranges of LBAs lie in which region of a drive, to tell quickly that a further range overlaps none of them.
///
/// A region is a power of two long and no shorter than the ranges, so that each lies in one or two; regions share
/// counts by their hash. A count that is not 0 says nothing, one that is 0 says that no range is there. Ranges that are
/// very long, or empty, are counted without a place.
///
/// Allocates nothing after its construction. One thread.
class RegionCounts {
 public:
  /// @param ranges at most so many are there at once, and fewer than 65536
  explicit RegionCounts(uint32_t ranges)
      : counts_(std::bit_ceil(size_t{ranges} * countsPerRange)),
        hashShift_(wordBits - static_cast<uint32_t>(std::bit_width(counts_.size() - 1))) {}

  /// Whether the range is longer than a region. It may not be added before `restart`.
  bool isTooLong(uint64_t first, uint64_t end) const {
    return hasPlace(first, end) && (end - first - 1) >> regionShift_ != 0;
  }

  /// Makes the regions long enough for a range and forgets all ranges; the caller adds those again that are there.
  void restart(uint64_t first, uint64_t end) {
    counts_.assign(counts_.size(), 0);
    placeless_ = 0;
    regionShift_ = static_cast<uint32_t>(std::bit_width(end - first - 1));
  }

  /// @return whether the range may overlap one that was there before; false: it does not
  bool add(uint64_t first, uint64_t end) {
    if (!hasPlace(first, end)) {
      ++placeless_;
      return true;
    }
    bool met = placeless_ != 0;
    for (uint64_t region = first >> regionShift_; region <= (end - 1) >> regionShift_; ++region) {
      met |= counts_[home(region)]++ != 0;
    }
    return met;
  }

  /// Takes away a range that was added.
  void remove(uint64_t first, uint64_t end) {
    if (!hasPlace(first, end)) {
      --placeless_;
      return;
    }
    for (uint64_t region = first >> regionShift_; region <= (end - 1) >> regionShift_; ++region) {
      --counts_[home(region)];
    }
  }

  void clear() {
    counts_.assign(counts_.size(), 0);
    placeless_ = 0;
  }

 private:
  static constexpr size_t countsPerRange = 32;  ///< so that few ranges meet by chance
  static constexpr uint64_t longest = 1U << 20;
  static constexpr uint32_t wordBits = 64;

  static bool hasPlace(uint64_t first, uint64_t end) { return end - first - 1 < longest; }
  size_t home(uint64_t region) const { return (region * 0x9E3779B97F4A7C15U) >> hashShift_; }

  std::vector<uint16_t> counts_;
  uint32_t hashShift_;
  uint32_t regionShift_ = 0;
  uint32_t placeless_ = 0;
};

}  // namespace corvane::host
