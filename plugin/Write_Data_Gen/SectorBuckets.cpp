#include "SectorBuckets.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "BlockStamp.h"
#include "ostra/Ostra.h"
#include "vdl/SeedEntropy.h"

namespace vdl::agent {

uint32_t deriveSeed(uint32_t optionSeed) {
  if (optionSeed != 0) {
    return optionSeed;
  }
  const uint32_t counter = std::atomic_ref<uint32_t>(seed_entropy).fetch_add(1);
  const auto milliseconds = static_cast<uint32_t>(wallClockUs() / 1000 + 1);
  return counter + milliseconds + Ostra::getCurrentDeviceIndex();
}

void fillRandomPool(uint8_t* pool, uint64_t poolBytes, uint32_t bucketBytes,
                    RandomNumberGenerator<unsigned long>& rng) {
  rng.copy(pool, poolBytes / 8);
  if (const uint64_t rest = poolBytes % 8; rest != 0) {
    uint8_t last[8];
    rng.copy(last, 1);
    std::memcpy(pool + poolBytes - rest, last, rest);
  }
  numberBuckets(pool, poolBytes, bucketBytes);
}

void numberBuckets(uint8_t* pool, uint64_t poolBytes, uint32_t bucketBytes) {
  uint32_t number = 0;
  for (uint64_t offset = 0; offset < poolBytes; offset += bucketBytes) {
    uint8_t* bucket = pool + offset;
    bucket[0] = static_cast<uint8_t>(number >> 16);
    bucket[1] = static_cast<uint8_t>(number >> 8);
    bucket[2] = static_cast<uint8_t>(number);
    bucket[3] = 0;
    ++number;
  }
}

void fillUserPool(uint8_t* pool, uint64_t poolBytes, uint64_t patternBytes, const uint8_t* user, uint64_t userBytes) {
  const uint64_t first = std::min(patternBytes, poolBytes);
  for (uint64_t i = 0; i < first; ++i) {
    pool[i] = user[i % userBytes];
  }
  for (uint64_t offset = first; offset < poolBytes; offset += first) {
    std::memcpy(pool + offset, pool, std::min(first, poolBytes - offset));
  }
}

const uint8_t* expectedSector(const Step& step, BlockNum block, const EmbedData& embed) {
  const DriveData& data = step.data;
  const uint8_t* source = unstampedSector(step, block);
  if (source == nullptr || !embed.valid) {
    return source;
  }
  std::memcpy(data.embedBuffer, source, sectorBytes(step.thread));
  stampBlock(data.embedBuffer, embed.lba, embed.cmd_id);
  return data.embedBuffer;
}

}  // namespace vdl::agent
