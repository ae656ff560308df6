#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/drive/sim/SimCache.h"
#include "host/drive/sim/SimMedium.h"
#include "host/drive/sim/SimTear.h"

namespace corvane::host {

/// What a simulated drive holds, the medium and the cache above it, and what commands do to that.
///
/// Commands must fit the drive; see `refuse`.
class SimStore {
 public:
  /// @param geometry    outlives the object
  /// @param unwritten   what a block holds that was never written
  /// @param cacheBlocks of the volatile write cache; 0: none
  /// @param unit        what a power cut loses of the cache wholly or not at all
  /// @param seed        of what invalidated blocks hold, and of which block leaves a full cache
  SimStore(const DriveGeometry& geometry, SimMedium::Unwritten unwritten, uint64_t cacheBlocks, TearUnit unit,
           uint64_t seed);

  /// Carries out some blocks of a write, atomic write, write-same or trim, counted in the command.
  void change(const DriveCommand& command, uint32_t firstBlock, uint32_t blocks);

  /// Carries out, by chance, any of the units that a write, write-same or trim has from a block on. Of an atomic write
  /// these are always its segments, from the first one on.
  void changeSome(const DriveCommand& command, uint32_t firstBlock, TearUnit unit, Random& chance);

  void read(const DriveCommand& command);

  /// The first LBA of a verify whose block is not what was sent along.
  std::optional<uint64_t> firstDifference(const DriveCommand& command);

  /// Makes blocks zero, and that survives a power cut.
  void erase(uint64_t lba, uint64_t blocks);

  /// Gives a block new random bytes that look like nobody's data, and that survives a power cut.
  void invalidate(uint64_t lba);

  /// Writes the cache out.
  void flush();

  /// The power fails: what the cache held is lost by chance.
  void losePower(Random& random);

  SimMedium& medium() { return medium_; }

 private:
  void makeSafe(uint64_t lba, uint64_t blocks);
  void beforeChange(const DriveCommand& command, uint64_t lba, uint64_t blocks);
  void afterChange(const DriveCommand& command, uint64_t lba, uint64_t blocks);
  void changeSegments(const DriveCommand& command, Random& chance);
  const uint8_t* newContent(const DriveCommand& command, uint32_t block) const;
  void changeRun(const DriveCommand& command, uint32_t block, uint32_t blocks);

  const DriveGeometry& geometry_;
  SimMedium medium_;
  std::unique_ptr<SimCache> cache_;  ///< null without a volatile cache
  Random noise_;
  std::vector<uint8_t> sector_;  ///< scratch
  std::vector<uint8_t> zeros_;   ///< what a trim writes
};

}  // namespace corvane::host
