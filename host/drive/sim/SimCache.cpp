#include "host/drive/sim/SimCache.h"

#include <algorithm>
#include <cstring>

namespace corvane::host {
namespace {

constexpr uint64_t choiceStream = 0xCAC4E;  ///< keeps the random sequences of a seed apart

}  // namespace

SimCache::SimCache(SimMedium& medium, const DriveGeometry& geometry, uint64_t most, TearUnit unit, uint64_t seed)
    : medium_(medium), geometry_(geometry), most_(most), unit_(unit), choice_(seed ^ choiceStream) {}

void SimCache::beforeChange(uint64_t lba, uint64_t blocks) {
  const uint64_t group = blocksPerUnit(unit_, geometry_);
  while (blocks != 0) {
    const uint64_t run = std::min(blocks, group - lba % group);
    rememberUnit(lba, run);
    lba += run;
    blocks -= run;
  }
}

void SimCache::rememberUnit(uint64_t lba, uint64_t blocks) {
  // First room for all of them: else the first ones could be written out in favour of the last, and their fates part.
  while (!dirty_.empty() && dirty_.size() + cleanBlocks(lba, blocks) > most_) {
    writeSomeOut();
  }
  for (uint64_t i = 0; i < blocks; ++i) {
    if (!dirty_.contains(lba + i)) {
      remember(lba + i);
    }
  }
}

uint64_t SimCache::cleanBlocks(uint64_t lba, uint64_t blocks) const {
  uint64_t count = 0;
  for (uint64_t i = 0; i < blocks; ++i) {
    count += dirty_.contains(lba + i) ? 0U : 1U;
  }
  return count;
}

void SimCache::remember(uint64_t lba) {
  const uint32_t slot = takeSlot();
  std::memcpy(saved(slot), medium_.sector(lba), medium_.sectorBytes());
  dirty_.emplace(lba, Dirty{slot, lbas_.size()});
  lbas_.push_back(lba);
}

void SimCache::writeSomeOut() {
  const uint64_t group = blocksPerUnit(unit_, geometry_);
  const uint64_t first = lbas_[choice_.below(lbas_.size())] / group * group;
  for (uint64_t i = 0; i < group; ++i) {
    forget(first + i);
  }
}

void SimCache::forget(uint64_t lba) {
  const auto found = dirty_.find(lba);
  if (found == dirty_.end()) {
    return;
  }
  const Dirty gone = found->second;
  dirty_.erase(found);
  freeSlots_.push_back(gone.slot);
  if (gone.place + 1 != lbas_.size()) {
    lbas_[gone.place] = lbas_.back();
    dirty_.at(lbas_.back()).place = gone.place;
  }
  lbas_.pop_back();
}

uint32_t SimCache::takeSlot() {
  if (freeSlots_.empty()) {
    const auto slot = static_cast<uint32_t>(saved_.size() / medium_.sectorBytes());
    saved_.resize(saved_.size() + medium_.sectorBytes());
    return slot;
  }
  const uint32_t slot = freeSlots_.back();
  freeSlots_.pop_back();
  return slot;
}

void SimCache::writtenThrough(uint64_t lba, uint64_t blocks) {
  if (dirty_.empty()) {
    return;
  }
  for (uint64_t i = 0; i < blocks; ++i) {
    forget(lba + i);
  }
}

void SimCache::flush() {
  dirty_.clear();
  lbas_.clear();
  freeSlots_.clear();
  saved_.clear();
}

void SimCache::lose(Random& random) {
  std::sort(lbas_.begin(), lbas_.end());
  std::vector<uint8_t> sector(medium_.sectorBytes());
  SimTear lost(unit_, geometry_, random);
  for (const uint64_t lba : lbas_) {
    std::memcpy(sector.data(), medium_.sector(lba), sector.size());
    if (lost.mix(lba, saved(dirty_.at(lba).slot), sector.data())) {
      medium_.write(lba, 1, sector.data());
    }
  }
  flush();
}

}  // namespace corvane::host
