#include "host/run/ZoneMap.h"

#include <algorithm>

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
  count_ = endZone > firstZone_ ? static_cast<uint32_t>(endZone - firstZone_) : 0;
}

uint64_t ZoneMap::end(uint32_t zone) const {
  const uint64_t begin = first(zone);
  return begin + std::min(zoneBlocks_, driveBlocks_ - begin);
}

bool ZoneMap::contains(uint64_t lba) const { return count_ != 0 && lba >= first(0) && lba < end(count_ - 1); }

}  // namespace corvane::host
