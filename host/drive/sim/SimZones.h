#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "host/drive/Drive.h"
#include "host/drive/SenseData.h"

namespace corvane::host {

/// The zones of a simulated drive: where each one takes its next write, and which commands that forbids.
///
/// Only a host-managed drive keeps write pointers. A host-aware one takes writes anywhere, and no command of ours
/// would show its pointers. Memory is taken for zones that were written, so that small zones on a large drive cost
/// nothing.
class SimZones {
 public:
  /// @param geometry without zones (`zoneBlocks` 0) everything is admitted; outlives the object
  SimZones(const DriveGeometry& geometry, bool managed) : geometry_(geometry), managed_(managed) {}

  /// What the drive answers, in the moment of its submission, to a command that fits the drive otherwise; nothing
  /// when it can be carried out.
  ///
  /// A zone reset that does not cover whole zones is an invalid field. In a host-managed drive a write that does not
  /// begin at its zone's write pointer, or leaves blocks out, is unaligned, and one that crosses its zone's end is a
  /// boundary violation; any other one moves the pointer at once. The pointer stays moved when the command is lost.
  std::optional<Sense> admit(const DriveCommand& command);

  /// Whether the block lies in a zone of a host-managed drive at or above the write pointer, where it has no content.
  bool empty(uint64_t lba) const { return managed_ && lba >= writePointer(lba); }

  /// The first block of the zone that takes a write; the zone's end when it is full.
  uint64_t writePointer(uint64_t lba) const;

  /// Puts the write pointer of the block's zone to the zone's start.
  void rewind(uint64_t lba) { filled_.erase(lba / geometry_.zoneBlocks); }

  /// One past the last block of the zone; the last zone may be shorter than the others.
  uint64_t zoneEnd(uint64_t lba) const;

 private:
  bool wholeZones(const DriveCommand& command) const;
  std::optional<Sense> admitWrite(const DriveCommand& command);

  const DriveGeometry& geometry_;
  bool managed_;
  std::unordered_map<uint64_t, uint64_t> filled_;  ///< blocks below the write pointer by number of the zone
};

}  // namespace corvane::host
