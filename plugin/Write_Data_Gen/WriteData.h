#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// The tag's write buffer, made to hold at least `bytes`.
///
/// Throws std::out_of_range for a tag that the drive does not have.
/// @return null when the memory is not to be had
uint8_t* tagBuffer(Step& step, uint32_t tag, uint64_t bytes);

/// Draws the first bucket of a transfer and publishes it in "BucketIndex". Only the low 32 bits of the draw count;
/// a transfer as long as the pool starts at bucket 0.
BlockNum chooseBucket(Step& step, uint32_t xferLength);

/// Asks the processor for the sectors that the next command will copy if it is a write as long as this one, so that they
/// have arrived by then. Draws nothing; results do not depend on it.
///
/// @param drawsBefore the draws between now and that of the bucket
void prefetchNextBucket(Step& step, uint32_t drawsBefore, uint32_t xferLength);

/// Blocks to put into a tag's buffer.
struct WriteBlocks {
  uint32_t tag;
  uint64_t lba;
  uint64_t cmdId;
  BlockNum firstBucket;
  uint32_t count;  ///< at least one block is always assembled
  bool e2e;        ///< leave room for the end-to-end bytes behind every sector
  bool embed;      ///< stamp every block with its LBA and the command id
};

/// The tag's buffer with room for the blocks; throws std::out_of_range for a tag that the drive does not have.
/// @return null when the memory is not to be had
uint8_t* roomForWriteData(Step& step, const WriteBlocks& blocks);

/// Copies consecutive buckets into such a buffer, stamps them, and lets "WriteData" show them.
void fillWriteData(Step& step, const WriteBlocks& blocks, uint8_t* buffer);

/// Both, one after the other.
///
/// @return 0, or -1002 when the tag has no buffer; throws std::out_of_range for a tag that the drive does not have
int32_t assembleWriteData(Step& step, const WriteBlocks& blocks);

}  // namespace vdl::agent
