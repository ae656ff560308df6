#include "host/run/AtomicSegmentAgent.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

uint64_t downTo(uint64_t number, uint32_t bound) { return number / bound * bound; }
uint64_t upTo(uint64_t number, uint32_t bound) { return downTo(number + (bound - 1), bound); }

/// Where commands may go, and how long they are, whose segments are all `bound` blocks long.
struct AlignedLimits {
  AlignedLimits(const LbaLimits& limits, uint32_t bound)
      : firstLba(upTo(limits.firstLba, bound)),
        endLba(downTo(limits.endLba, bound)),
        minBlocks(upTo(limits.minBlocks, bound)),
        maxBlocks(std::min(downTo(limits.maxBlocks, bound), endLba - std::min(firstLba, endLba))) {}

  bool possible() const { return minBlocks <= maxBlocks; }

  uint64_t firstLba;
  uint64_t endLba;  ///< excluded
  uint64_t minBlocks;
  uint64_t maxBlocks;
};

}  // namespace

std::vector<uint32_t> legalAtomicBounds(const LbaLimits& limits, const AtomicSegments& segments) {
  const uint32_t least = std::max({segments.leastBlocks, limits.minAtomicBound, 1U});
  const uint32_t most = std::min(segments.mostBlocks, limits.maxAtomicBound);
  std::vector<uint32_t> bounds;
  for (uint64_t bound = std::bit_ceil(uint64_t{least}); bound <= most; bound *= 2) {
    if (AlignedLimits(limits, static_cast<uint32_t>(bound)).possible()) {
      bounds.push_back(static_cast<uint32_t>(bound));
    }
  }
  return bounds;
}

AtomicSegmentAgent::AtomicSegmentAgent(std::unique_ptr<LbaAgent> inner, const LbaLimits& limits,
                                       const AtomicSegments& segments)
    : inner_(std::move(inner)), limits_(limits), bounds_(legalAtomicBounds(limits, segments)) {
  if (bounds_.empty()) {
    throw ConfigurationError("no atomic bound of this test is one that the drive takes");
  }
}

LbaChoice AtomicSegmentAgent::next() {
  const LbaChoice wanted = inner_->next();
  const uint32_t bound = boundBelow(wanted.atomicBound);
  const AlignedLimits limits(limits_, bound);
  const uint64_t blocks = std::clamp(downTo(wanted.blocks, bound), limits.minBlocks, limits.maxBlocks);
  const uint64_t lba = std::clamp(downTo(wanted.lba, bound), limits.firstLba, limits.endLba - blocks);
  return {.lba = lba, .blocks = static_cast<uint32_t>(blocks), .atomicBound = bound};
}

uint32_t AtomicSegmentAgent::boundBelow(uint32_t wanted) const {
  const auto above = std::upper_bound(bounds_.begin(), bounds_.end(), wanted);
  return above == bounds_.begin() ? bounds_.front() : *(above - 1);
}

}  // namespace corvane::host
