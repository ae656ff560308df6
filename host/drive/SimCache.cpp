#include "host/drive/SimCache.h"

#include <cstring>

namespace corvane::host {

void SimCache::beforeChange(uint64_t lba, uint64_t blocks) {
  for (uint64_t i = 0; i < blocks; ++i) {
    if (!dirty_.contains(lba + i)) {
      remember(lba + i);
    }
  }
}

void SimCache::remember(uint64_t lba) {
  while (dirty_.size() >= most_) {
    writeOutOldest();
  }
  const uint32_t slot = takeSlot();
  std::memcpy(saved(slot), medium_.sector(lba), medium_.sectorBytes());
  dirty_.emplace(lba, Dirty{++generation_, slot});
  oldest_.push_back({lba, generation_});
}

void SimCache::writeOutOldest() {
  const Age age = oldest_.front();
  oldest_.pop_front();
  const auto found = dirty_.find(age.lba);
  if (found != dirty_.end() && found->second.generation == age.generation) {
    freeSlots_.push_back(found->second.slot);
    dirty_.erase(found);
  }
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
  for (uint64_t i = 0; i < blocks; ++i) {
    if (const auto found = dirty_.find(lba + i); found != dirty_.end()) {
      freeSlots_.push_back(found->second.slot);
      dirty_.erase(found);
    }
  }
  // A test that only ever writes through would else collect stale ages.
  while (!oldest_.empty() && oldest_.size() > 2 * dirty_.size() + 64) {
    const Age age = oldest_.front();
    oldest_.pop_front();
    const auto found = dirty_.find(age.lba);
    if (found != dirty_.end() && found->second.generation == age.generation) {
      oldest_.push_back(age);
    }
  }
}

void SimCache::flush() {
  dirty_.clear();
  oldest_.clear();
  freeSlots_.clear();
  saved_.clear();
}

void SimCache::lose(Random& random) {
  // In the order of becoming dirty, because that of a hash table is nobody's promise and a seed must repeat a run.
  for (const Age& age : oldest_) {
    const auto found = dirty_.find(age.lba);
    if (found != dirty_.end() && found->second.generation == age.generation && random.below(2) == 0) {
      medium_.write(age.lba, 1, saved(found->second.slot));
    }
  }
  flush();
}

}  // namespace corvane::host
