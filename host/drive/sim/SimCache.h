#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"
#include "host/drive/sim/SimMedium.h"
#include "host/drive/sim/SimTear.h"

namespace corvane::host {

/// The volatile write cache of a simulated drive.
///
/// The medium always shows what a read returns. The cache remembers what the platter below holds for each block that
/// is still dirty, and puts that back when the power is cut. A block leaves the cache by a flush, by a write with
/// forced unit access, or because the cache is full: then any of the dirty blocks is written out, as a drive with its
/// own idea of a good moment does it. Blocks that share their fate in a power cut are written out together.
class SimCache {
 public:
  /// @param medium, geometry outlive the object
  /// @param most             dirty blocks that it holds, at least those of a unit
  /// @param seed             of which block is written out
  SimCache(SimMedium& medium, const DriveGeometry& geometry, uint64_t most, TearUnit unit, uint64_t seed);

  /// Call it before the medium changes at these blocks.
  void beforeChange(uint64_t lba, uint64_t blocks);

  /// The medium's content of these blocks is safe from now on.
  void writtenThrough(uint64_t lba, uint64_t blocks);

  /// Everything is safe.
  void flush();

  /// The power fails: each dirty unit had been written out by chance, or goes back to what the platter held.
  void lose(Random& random);

  uint64_t dirtyBlocks() const { return dirty_.size(); }

 private:
  struct Dirty {
    uint32_t slot = 0;   ///< of the platter's content in `saved_`
    uint64_t place = 0;  ///< in `lbas_`
  };

  void rememberUnit(uint64_t lba, uint64_t blocks);
  uint64_t cleanBlocks(uint64_t lba, uint64_t blocks) const;
  void remember(uint64_t lba);
  void writeSomeOut();
  void forget(uint64_t lba);
  uint32_t takeSlot();
  uint8_t* saved(uint32_t slot) { return saved_.data() + uint64_t{slot} * medium_.sectorBytes(); }

  SimMedium& medium_;
  const DriveGeometry& geometry_;
  uint64_t most_;
  TearUnit unit_;
  Random choice_;
  std::unordered_map<uint64_t, Dirty> dirty_;
  std::vector<uint64_t> lbas_;  ///< the dirty ones, because nobody promises the order of a hash table
  std::vector<uint8_t> saved_;
  std::vector<uint32_t> freeSlots_;
};

}  // namespace corvane::host
