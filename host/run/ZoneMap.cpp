#include "host/run/ZoneMap.h"

#include <algorithm>
#include <limits>

namespace corvane::host {

ZoneMap::ZoneMap(const DriveGeometry& geometry, uint64_t firstLba, uint64_t endLba)
    : zoneBlocks_(geometry.zoneBlocks), driveBlocks_(geometry.blocks) {
  if (zoneBlocks_ == 0) {
    return;
  }
  // Without sums that may run over.
  firstZone_ = firstLba / zoneBlocks_ + (firstLba % zoneBlocks_ != 0 ? 1 : 0);
  uint64_t endZone = endLba / zoneBlocks_;
  if (endLba == driveBlocks_ && endLba % zoneBlocks_ != 0) {
    ++endZone;
  }
  const uint64_t zones = endZone > firstZone_ ? endZone - firstZone_ : 0;
  tooMany_ = zones > std::numeric_limits<uint32_t>::max();
  count_ = static_cast<uint32_t>(std::min<uint64_t>(zones, std::numeric_limits<uint32_t>::max()));
}

uint64_t ZoneMap::end(uint32_t zone) const {
  const uint64_t begin = first(zone);
  return begin + std::min(zoneBlocks_, driveBlocks_ - begin);
}

bool ZoneMap::contains(uint64_t lba) const { return count_ != 0 && lba >= first(0) && lba < end(count_ - 1); }

}  // namespace corvane::host
