#pragma once

#include <array>
#include <cstdint>

#include "host/run/CheckCounters.h"
#include "host/run/Counter.h"
#include "host/run/RunResult.h"

namespace corvane::host {

/// The running figures of one drive, written on its thread; each as `DriveTotals` explains it. No two drives' share a
/// cache line.
struct alignas(64) DriveCounters {
  std::array<Counter, commandKinds> issued;
  std::array<Counter, commandKinds> completed;
  Counter failed;
  Counter blocksWritten;
  Counter blocksTrimmed;
  Counter blocksRead;
  Counter blocksCompared;
  Counter resets;
  Counter powerCycles;
  Counter connectionsLost;
  Counter zoneResets;
  Counter invalidations;
  Counter heldBack;
  Counter retried;
  Counter stray;
  Counter outstanding;
  Counter maxOutstanding;
  CheckCounters checked;

  /// @param sectorBytes bytes of a block
  DriveTotals totals(uint32_t sectorBytes) const;
};

}  // namespace corvane::host
