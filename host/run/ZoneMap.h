#pragma once

#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// The zones of a drive that lie wholly within the range of a test, numbered from 0.
///
/// The last zone of a drive may be shorter than the others and counts when the range goes up to the drive's end. A
/// zone that the range cuts does not count: a reset of it would take blocks that the test does not own.
class ZoneMap {
 public:
  /// No zones.
  ZoneMap() = default;
  /// @param endLba excluded, at most the drive's end
  ZoneMap(const DriveGeometry& geometry, uint64_t firstLba, uint64_t endLba);

  uint32_t count() const { return count_; }
  /// Whether there are more zones than can be numbered. `count` is then that of the first ones.
  bool tooMany() const { return tooMany_; }
  /// Blocks of every zone but a short last one.
  uint64_t zoneBlocks() const { return zoneBlocks_; }
  uint64_t first(uint32_t zone) const { return (firstZone_ + zone) * zoneBlocks_; }
  /// One past the zone's last block.
  uint64_t end(uint32_t zone) const;
  /// Whether a block is in one of the zones.
  bool contains(uint64_t lba) const;
  /// The zone of a block that `contains` answers for.
  uint32_t zoneOf(uint64_t lba) const { return static_cast<uint32_t>(lba / zoneBlocks_ - firstZone_); }

 private:
  uint64_t zoneBlocks_ = 0;
  uint64_t firstZone_ = 0;  ///< on the drive
  uint64_t driveBlocks_ = 0;
  uint32_t count_ = 0;
  bool tooMany_ = false;
};

}  // namespace corvane::host
