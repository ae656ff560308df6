#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/base/Random.h"
#include "host/run/ZoneMap.h"

namespace corvane::host {

/// Where a write may go and how long it is.
struct ZonePosition {
  uint64_t lba = 0;
  uint32_t blocks = 0;
};

/// Keeps the write pointers of a host-managed drive's zones and says where the next write goes.
///
/// Writes go round over a few open zones. A zone that is full leaves the round, and one with room joins it. Lengths
/// are random within the test's, and cut where the zone ends.
///
/// The pointers are the host's own account of what it issued, so they hold only when every zone was reset before the
/// first write and nobody else writes. Allocates nothing after its construction. One thread.
class ZoneWriter {
 public:
  static constexpr uint32_t mostOpen = 4;

  /// All zones are empty.
  ZoneWriter(const ZoneMap& zones, uint32_t minBlocks, uint32_t maxBlocks, uint64_t seed);

  const ZoneMap& zones() const { return zones_; }

  /// Whether there is a place for another write.
  bool hasRoom() const { return !open_.empty(); }
  /// The next write's place; the same until something changes it. Only with room.
  const ZonePosition& next();
  /// A write went to `next`.
  void used();

  /// The zone was reset: it is written from its beginning.
  void emptied(uint32_t zone);
  /// Nothing more is written to the zone of a block until it is reset: a write to it failed, and nobody can say where
  /// the drive's pointer stands.
  void closeZoneOf(uint64_t lba);
  /// The zone of a block is written on from there at the latest: the drive never saw a write that was to go there.
  /// A zone that was closed stays closed.
  void takeBackTo(uint64_t lba);

  bool isEmpty(uint32_t zone) const { return pointers_[zone] == zones_.first(zone); }

 private:
  bool isFull(uint32_t zone) const { return pointers_[zone] == zones_.end(zone); }
  void movePointer(uint32_t zone, uint64_t to);
  void updateOpen();

  ZoneMap zones_;
  uint32_t minBlocks_;
  uint32_t maxBlocks_;
  uint32_t mostOpen_;
  Random random_;
  std::vector<uint64_t> pointers_;  ///< by zone: the next block to write; the zone's end when nothing may be written
  std::vector<bool> closed_;        ///< by zone: its end is not where the writes came to
  std::vector<uint32_t> open_;      ///< the zones that take turns; never a full one
  uint32_t withRoom_;               ///< zones that are not full
  uint32_t turn_ = 0;               ///< index into open_
  uint32_t search_ = 0;             ///< zone at which the search for one to open begins
  std::optional<ZonePosition> next_;
};

}  // namespace corvane::host
