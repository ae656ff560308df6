#pragma once

#include <array>
#include <cstdint>

namespace vdl::agent {

/// Sectors that the next step will copy or compare, asked for by halves: at the end of one step and at the beginning of
/// the next one. The processor has only so many requests under way, and waits with the next one until there is room; a
/// call into the system between the halves makes it. Results do not depend on it.
class SectorPrefetch {
 public:
  /// Asks for the first half. There may be two in a step, more are not gone on with.
  void prefetch(const uint8_t* first, uint64_t bytes);

  /// Asks for what `prefetch` has left.
  void prefetchRest();

 private:
  struct Rest {
    const uint8_t* first;
    uint64_t bytes;
  };
  std::array<Rest, 2> rests_{};
  uint32_t count_ = 0;
};

/// Asks for as much of so many bytes as the processor would not find by itself.
void prefetchBytes(const uint8_t* first, uint64_t bytes);

}  // namespace vdl::agent
