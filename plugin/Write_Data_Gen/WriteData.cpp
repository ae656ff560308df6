#include "WriteData.h"

#include <algorithm>
#include <cstring>

#include "AlignedMemory.h"
#include "BlockStamp.h"
#include "SectorBuckets.h"

namespace vdl::agent {

uint8_t* tagBuffer(Step& step, uint32_t tag, uint64_t bytes) {
  DriveData& data = step.data;
  uint8_t*& buffer = data.tagBuffers.at(tag);
  uint64_t& capacity = data.tagBufferBytes.at(tag);
  if (buffer == nullptr || capacity < bytes) {
    uint8_t* larger = newPageAligned(bytes);
    if (larger == nullptr) {
      return nullptr;
    }
    // "WriteData" may still show the old storage from an earlier command on this tag.
    if (data.writeData->data == buffer) {
      data.writeData->release();
    }
    deletePageAligned(buffer);
    buffer = larger;
    capacity = bytes;
  }
  return buffer;
}

namespace {

BlockNum bucketOf(const Step& step, uint64_t draw, uint32_t xferLength) {
  const uint32_t choices = step.config.bucketCount - xferLength;
  return choices == 0 ? 0 : static_cast<uint32_t>(draw) % choices;
}

}  // namespace

BlockNum chooseBucket(Step& step, uint32_t xferLength) {
  const BlockNum bucket = bucketOf(step, step.data.rng(), xferLength);
  *step.data.bucketIndex = bucket;
  return bucket;
}

void prefetchNextBucket(Step& step, uint32_t drawsBefore, uint32_t xferLength) {
  DriveData& data = step.data;
  if (data.buckets == nullptr || xferLength >= step.config.bucketCount) {
    return;
  }
  const BlockNum bucket = bucketOf(step, data.rng.foreseen(drawsBefore), xferLength);
  const uint32_t sector = sectorBytes(step.thread);
  data.sectorsAhead.prefetch(data.buckets + uint64_t{bucket} * sector, uint64_t{xferLength} * sector);
}

namespace {

uint64_t countOf(const WriteBlocks& blocks) { return std::max<uint32_t>(blocks.count, 1); }
uint64_t unitOf(const Step& step, const WriteBlocks& blocks) {
  return sectorBytes(step.thread) + (blocks.e2e ? e2eBytes : 0);
}

}  // namespace

uint8_t* roomForWriteData(Step& step, const WriteBlocks& blocks) {
  return tagBuffer(step, blocks.tag, countOf(blocks) * unitOf(step, blocks));
}

void fillWriteData(Step& step, const WriteBlocks& blocks, uint8_t* buffer) {
  const uint32_t sector = sectorBytes(step.thread);
  const uint64_t unit = unitOf(step, blocks);
  const uint64_t count = countOf(blocks);
  const uint64_t total = count * unit;
  const uint8_t* bucket = step.data.buckets + uint64_t{blocks.firstBucket} * sector;
  if (unit == sector) {
    // The buckets of a command are neighbours in the pool, and so are its blocks.
    std::memcpy(buffer, bucket, total);
  } else {
    for (uint64_t i = 0; i < count; ++i) {
      std::memcpy(buffer + i * unit, bucket + i * sector, sector);
    }
  }
  if (blocks.embed) {
    stampBlocks(buffer, count, unit, blocks.lba, blocks.cmdId);
  }
  step.data.writeData->view(buffer, total);
}

int32_t assembleWriteData(Step& step, const WriteBlocks& blocks) {
  uint8_t* buffer = roomForWriteData(step, blocks);
  if (buffer == nullptr) {
    return status::outOfMemory;
  }
  fillWriteData(step, blocks, buffer);
  return status::ok;
}

}  // namespace vdl::agent
