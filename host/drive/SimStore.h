#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "host/drive/Drive.h"
#include "host/drive/SimCache.h"
#include "host/drive/SimMedium.h"

namespace corvane::host {

/// What a simulated drive holds, the medium and the cache above it, and what commands do to that.
///
/// Commands must fit the drive; see `refuse`.
class SimStore {
 public:
  /// @param geometry    outlives the object
  /// @param unwritten   what a block holds that was never written
  /// @param cacheBlocks of the volatile write cache; 0: none
  SimStore(const DriveGeometry& geometry, SimMedium::Unwritten unwritten, uint64_t cacheBlocks);

  /// Carries out some blocks of a write, atomic write, write-same or trim, counted in the command.
  void change(const DriveCommand& command, uint32_t firstBlock, uint32_t blocks);

  void read(const DriveCommand& command);

  /// The first LBA of a verify whose block is not what was sent along.
  std::optional<uint64_t> firstDifference(const DriveCommand& command);

  /// Makes blocks zero, and that survives a power cut.
  void erase(uint64_t lba, uint64_t blocks);

  /// Writes the cache out.
  void flush();

  /// The power fails: what the cache held is lost by chance.
  void losePower(Random& random);

  SimMedium& medium() { return medium_; }

 private:
  void changeRun(const DriveCommand& command, uint32_t block, uint32_t blocks);
  uint64_t unitBytes(const DriveCommand& command) const {
    return uint64_t{geometry_.sectorBytes()} + command.trailerBytes;
  }

  const DriveGeometry& geometry_;
  SimMedium medium_;
  std::unique_ptr<SimCache> cache_;  ///< null without a volatile cache
};

}  // namespace corvane::host
