#include <algorithm>

#include "host/run/LbaAgents.h"

namespace corvane::host {

CacheStressAgent::CacheStressAgent(const LbaLimits& limits, uint64_t seed) : limits_(limits), random_(seed) {}

LbaChoice CacheStressAgent::next() {
  if (stay_ == 0) {
    moveRegion();
  }
  --stay_;
  LbaChoice choice;
  if (latestCount_ == 0 || random_.below(4) == 0) {
    choice = anywhere();
  } else {
    const size_t known = std::min(latestCount_, remembered);
    choice = related(latest_[random_.below(known)]);
  }
  choice.atomicBound = static_cast<uint32_t>(random_.between(limits_.minAtomicBound, limits_.maxAtomicBound));
  latest_[latestCount_++ % remembered] = choice;
  return choice;
}

void CacheStressAgent::moveRegion() {
  const uint64_t rangeSize = limits_.endLba - limits_.firstLba;
  const uint64_t size = std::min(rangeSize, limits_.span(limits_.maxBlocks) * regionCommands);
  regionFirst_ = random_.between(limits_.firstLba, limits_.endLba - size);
  regionEnd_ = regionFirst_ + size;
  stay_ = static_cast<uint32_t>(random_.between(minStay, maxStay));
  latestCount_ = 0;
}

LbaChoice CacheStressAgent::anywhere() {
  const uint32_t blocks = length();
  return {.lba = random_.between(regionFirst_, regionEnd_ - limits_.span(blocks)), .blocks = blocks};
}

LbaChoice CacheStressAgent::related(const LbaChoice& to) {
  const uint64_t toEnd = to.lba + limits_.span(to.blocks);
  switch (random_.below(7)) {
    case 0:  // the very same range
      return fitted(to.lba, to.blocks);
    case 1:  // the same start, another length
      return fitted(to.lba, length());
    case 2:  // one block up
      return fitted(to.lba + limits_.lbaStep, to.blocks);
    case 3:  // one block down
      return fitted(to.lba - std::min<uint64_t>(to.lba, limits_.lbaStep), to.blocks);
    case 4: {  // a part of it
      const uint64_t blocks = random_.between(std::min(limits_.minBlocks, to.blocks), to.blocks);
      return fitted(to.lba + random_.between(0, to.blocks - blocks) * limits_.lbaStep, blocks);
    }
    case 5: {  // across its start or its end
      const uint32_t blocks = length();
      const uint64_t before = limits_.span(blocks / 2);
      const uint64_t edge = random_.below(2) == 0 ? to.lba : toEnd;
      return fitted(edge - std::min(edge, before), blocks);
    }
    default:  // right behind it
      return fitted(toEnd, length());
  }
}

LbaChoice CacheStressAgent::fitted(uint64_t lba, uint64_t blocks) const {
  const auto length = static_cast<uint32_t>(blocks);
  return {.lba = std::clamp(lba, regionFirst_, regionEnd_ - limits_.span(length)), .blocks = length};
}

}  // namespace corvane::host
