#pragma once

#include <algorithm>
#include <cstdint>

namespace vdl {

/// The blocks of a command: `first`, `first` + `step`, … below `end`. None when `end` is not above `first`.
struct BlockRun {
  uint64_t first;
  uint64_t end;
  uint32_t step = 1;

  uint64_t count() const {
    if (first >= end) {
      return 0;
    }
    return step == 1 ? end - first : (end - first - 1) / step + 1;  // dividing is slow, and most steps are 1
  }
};

/// The blocks of a run that lie within 64 neighbouring LBAs, whose first one is a multiple of 64.
struct RunPiece {
  uint64_t page;    ///< LBA / 64
  uint64_t blocks;  ///< bit i: LBA 64 * page + i belongs to the run
};

/// Cuts a run into its pieces, in ascending order. Nothing wraps, whatever the run's LBAs are.
class RunPieces {
 public:
  explicit RunPieces(const BlockRun& run) : next_(run.first), step_(run.step), left_(run.count()) {}

  bool more() const { return left_ != 0; }

  RunPiece take() {
    const uint64_t offset = next_ % 64;
    const uint64_t page = next_ / 64;
    if (step_ == 1) {
      const uint64_t count = std::min(left_, 64 - offset);
      left_ -= count;
      next_ += count;
      return {page, ~uint64_t{0} >> (64 - count) << offset};
    }
    const uint64_t count = std::min(left_, (63 - offset) / step_ + 1);
    left_ -= count;
    next_ += count * step_;
    return {page, everyStepth(count) << offset};
  }

 private:
  uint64_t everyStepth(uint64_t count) const {
    uint64_t bits = 1;
    for (uint64_t i = 1; i < count; ++i) {
      bits = bits << step_ | 1;
    }
    return bits;
  }

  uint64_t next_;
  uint32_t step_;
  uint64_t left_;
};

}  // namespace vdl
