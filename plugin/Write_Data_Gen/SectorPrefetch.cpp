#include "SectorPrefetch.h"

#include <algorithm>

namespace vdl::agent {

namespace {

constexpr uint64_t cacheLine = 64;
// From there on the processor sees by itself where a copy or compare goes.
constexpr uint64_t mostBytes = 4096;
constexpr uint64_t halfBytes = mostBytes / 2;

}  // namespace

void SectorPrefetch::prefetch(const uint8_t* first, uint64_t bytes) {
  const uint64_t now = std::min(bytes, halfBytes);
  prefetchBytes(first, now);
  if (now < bytes && count_ < rests_.size()) {
    rests_[count_++] = {first + now, std::min(bytes, mostBytes) - now};
  }
}

void SectorPrefetch::prefetchRest() {
  for (uint32_t i = 0; i < count_; ++i) {
    prefetchBytes(rests_[i].first, rests_[i].bytes);
  }
  count_ = 0;
}

void prefetchBytes(const uint8_t* first, uint64_t bytes) {
  // They are wanted after a call into the system, which has much of the first cache for itself.
  constexpr int forRead = 0;
  constexpr int intoSecondCache = 2;
  const uint64_t asked = std::min(bytes, mostBytes);
  // Unrolled, as a trained build does it, they come so close together that the processor leaves some of them out: a
  // block written and read back took 115 ns longer.
#pragma GCC unroll 1
  for (uint64_t offset = 0; offset < asked; offset += cacheLine) {
    __builtin_prefetch(first + offset, forRead, intoSecondCache);
  }
  // g++ takes a function that does nothing else for one without effects, and leaves the calls of it out.
  asm volatile("");
}

}  // namespace vdl::agent
