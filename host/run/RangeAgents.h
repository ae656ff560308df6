#pragma once

#include <cstdint>

#include "host/base/Random.h"
#include "host/run/ZoneMap.h"
#include "vdl/LBARangeQueue.h"

namespace corvane::host {

class ZoneWriter;

/// Chooses the zone that is reset next.
class ZoneResetSource {
 public:
  /// @param zones  outlives the object; at least one zone
  /// @param writer null, or outlives the object: zones that hold something are then preferred
  ZoneResetSource(const ZoneMap& zones, const ZoneWriter* writer, uint64_t seed);

  /// A zone, by its number in the map.
  uint32_t pick();

 private:
  const ZoneMap& zones_;
  const ZoneWriter* writer_;
  Random random_;
};

/// Chooses the blocks whose old content must not come back.
class InvalidateSource {
 public:
  /// Ranges of 1 to `maxBlocks` blocks from `firstLba` below `endLba`, which has room for the longest.
  InvalidateSource(uint64_t firstLba, uint64_t endLba, uint32_t maxBlocks, uint64_t seed)
      : firstLba_(firstLba), endLba_(endLba), maxBlocks_(maxBlocks), random_(seed) {}

  /// A range, its end excluded.
  vdl::LBARange pick();

 private:
  uint64_t firstLba_;
  uint64_t endLba_;
  uint32_t maxBlocks_;
  Random random_;
};

}  // namespace corvane::host
