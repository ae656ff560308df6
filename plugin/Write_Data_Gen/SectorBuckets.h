#pragma once

#include <cstdint>

#include "RandomNumberGenerator.h"
#include "Step.h"

namespace vdl::agent {

/// The seed of a drive's random source: the option, or one made of the time, the device index and a counter that all
/// drives share.
uint32_t deriveSeed(uint32_t optionSeed);

/// Fills a pool with draws, least significant byte first, then numbers its buckets.
void fillRandomPool(uint8_t* pool, uint64_t poolBytes, uint32_t bucketBytes, RandomNumberGenerator<unsigned long>& rng);

/// Writes every bucket's number into its first three bytes, big-endian, and a zero behind it.
void numberBuckets(uint8_t* pool, uint64_t poolBytes, uint32_t bucketBytes);

/// Fills a pool with the user's bytes, repeated; the repetition starts anew every `patternBytes`.
///
/// @param patternBytes bytes of the longest transfer of the test
void fillUserPool(uint8_t* pool, uint64_t poolBytes, uint64_t patternBytes, const uint8_t* user, uint64_t userBytes);

/// A sector of the pool, or of zeros, as it is before it is stamped; null when the number names no known content.
inline const uint8_t* unstampedSector(const Step& step, BlockNum block) {
  if (block < step.config.bucketCount && block < block_num::bucketLimit) {
    const uint8_t* buckets = step.data.buckets;
    return buckets == nullptr ? nullptr : buckets + uint64_t{block} * sectorBytes(step.thread);
  }
  return block == block_num::zero ? step.data.zeroBlock : nullptr;
}

/// The content that a block must have, built from its bucket and stamp.
///
/// @return one sector, valid until the next call for this drive; null when the number names no known content
const uint8_t* expectedSector(const Step& step, BlockNum block, const EmbedData& embed);

}  // namespace vdl::agent
