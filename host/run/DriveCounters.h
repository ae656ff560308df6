#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "host/run/RunResult.h"

namespace corvane::host {

/// A count that one thread raises and any thread reads.
///
/// With a single writer a plain load and store is enough, and costs no locked instruction per command.
class Counter {
 public:
  void add(uint64_t n) { value_.store(get() + n, std::memory_order_relaxed); }
  void set(uint64_t n) { value_.store(n, std::memory_order_relaxed); }
  uint64_t get() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> value_{0};
};

/// The running figures of one drive, written on its thread; each as `DriveTotals` explains it.
struct DriveCounters {
  std::array<Counter, commandKinds> issued;
  std::array<Counter, commandKinds> completed;
  Counter failed;
  Counter blocksWritten;
  Counter blocksTrimmed;
  Counter blocksRead;
  Counter blocksCompared;
  Counter resets;
  Counter powerCycles;
  Counter zoneResets;
  Counter invalidations;
  Counter heldBack;
  Counter retried;
  Counter stray;
  Counter outstanding;
  Counter maxOutstanding;

  /// @param sectorBytes bytes of a block
  DriveTotals totals(uint32_t sectorBytes) const;
};

}  // namespace corvane::host
