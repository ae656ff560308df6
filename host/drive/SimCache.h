#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/SimMedium.h"

namespace corvane::host {

/// The volatile write cache of a simulated drive.
///
/// The medium always shows what a read returns. The cache remembers what the platter below holds for each block that
/// is still dirty, and puts that back when the power is cut. A block leaves the cache by a flush, by a write with
/// forced unit access, or because the cache is full: then the block that is dirty for longest is written out.
class SimCache {
 public:
  /// @param medium outlives the object
  /// @param most   dirty blocks that it holds
  SimCache(SimMedium& medium, uint64_t most) : medium_(medium), most_(most) {}

  /// Call it before the medium changes at these blocks.
  void beforeChange(uint64_t lba, uint64_t blocks);

  /// The medium's content of these blocks is safe from now on.
  void writtenThrough(uint64_t lba, uint64_t blocks);

  /// Everything is safe.
  void flush();

  /// The power fails: each dirty block had been written out by chance, or goes back to what the platter held.
  void lose(Random& random);

  uint64_t dirtyBlocks() const { return dirty_.size(); }

 private:
  struct Dirty {
    uint64_t generation = 0;  ///< of the entry in `oldest_` that stands for it
    uint32_t slot = 0;        ///< of the platter's content in `saved_`
  };
  struct Age {
    uint64_t lba = 0;
    uint64_t generation = 0;
  };

  void remember(uint64_t lba);
  void writeOutOldest();
  uint32_t takeSlot();
  uint8_t* saved(uint32_t slot) { return saved_.data() + uint64_t{slot} * medium_.sectorBytes(); }

  SimMedium& medium_;
  uint64_t most_;
  std::unordered_map<uint64_t, Dirty> dirty_;
  std::deque<Age> oldest_;  ///< in the order of becoming dirty; entries of blocks that became clean since are stale
  std::vector<uint8_t> saved_;
  std::vector<uint32_t> freeSlots_;
  uint64_t generation_ = 0;
};

}  // namespace corvane::host
