#include "JudgeInPlace.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "BlockHash.h"
#include "BlockStamp.h"
#include "Compare.h"
#include "SectorBuckets.h"

namespace vdl::agent {

namespace {

/// Blocks that are looked up before they are compared, so that what they are compared with is on its way from memory.
constexpr uint32_t batchBlocks = 32;
/// Blocks ahead of the compare whose reference sectors are fetched.
constexpr uint32_t fetchAhead = 4;
/// A sector's head: the stamp and what stands before it.
constexpr uint32_t headBytes = 32;
constexpr uint32_t cacheLine = 64;

/// Neighbouring blocks of one read.
struct Batch {
  uint32_t count = 0;
  uint32_t sector = 0;
  uint64_t stride = 0;
  const uint8_t* bytes = nullptr;                   ///< of the first block
  std::array<const Event*, batchBlocks> events;     ///< at which the read waits
  std::array<const uint8_t*, batchBlocks> sectors;  ///< what the event's number names; null: nothing to compare

  const uint8_t* block(uint32_t i) const { return bytes + i * stride; }
};

const uint8_t* unstampedSector(const Step& step, BlockNum block) { return expectedSector(step, block, EmbedData{}); }

/// @return false when an event is missing, or is not the only one that may explain its block
bool lookUp(const Step& step, const ComparableReadData& read, uint32_t firstBlock, Batch& batch) {
  const AtomicHash& table = step.data.atomicHash;
  for (uint32_t i = 0; i < batch.count; ++i) {
    const uint64_t lba = read.lba + uint64_t{firstBlock + i} * read.lbaStep;
    batch.events[i] = table.awaitedEvent(read.cmdId, lba);
    __builtin_prefetch(batch.events[i]);
  }
  for (uint32_t i = 0; i < batch.count; ++i) {
    const Event* event = batch.events[i];
    if (event == nullptr || event->isTransparent() || event->type == EventType::InvalidateMarker) {
      return false;
    }
    batch.sectors[i] = event->block_type == BlockType::Normal ? unstampedSector(step, event->block_num) : nullptr;
  }
  return true;
}

void fetch(const Batch& batch, uint32_t i) {
  if (i < batch.count && batch.sectors[i] != nullptr) {
    for (uint32_t offset = 0; offset < batch.sector; offset += cacheLine) {
      __builtin_prefetch(batch.sectors[i] + offset);
    }
  }
}

/// Compares a block with a sector of the pool as the stamp changes it, without making that sector.
bool holds(const uint8_t* block, const uint8_t* sector, uint32_t bytes, const EmbedData& embed) {
  if (!embed.valid) {
    return std::memcmp(block, sector, bytes) == 0;
  }
  uint8_t head[headBytes];
  std::memcpy(head, sector, headBytes);
  stampBlock(head, embed.lba, embed.cmd_id);
  return std::memcmp(block, head, headBytes) == 0 &&
         std::memcmp(block + headBytes, sector + headBytes, bytes - headBytes) == 0;
}

bool contentIsRight(const Batch& batch) {
  for (uint32_t i = 0; i < fetchAhead; ++i) {
    fetch(batch, i);
  }
  for (uint32_t i = 0; i < batch.count; ++i) {
    fetch(batch, i + fetchAhead);
    if (batch.sectors[i] != nullptr && !holds(batch.block(i), batch.sectors[i], batch.sector, batch.events[i]->embed)) {
      return false;
    }
  }
  return true;
}

bool isHash(const Event& event) { return event.block_type == BlockType::Hash; }

bool hashesAreRight(const Batch& batch) {
  std::array<uint64_t, batchBlocks> hashes;
  for (uint32_t i = 0; i < batch.count;) {
    uint32_t end = i;
    while (end < batch.count && isHash(*batch.events[end])) {
      ++end;
    }
    if (end > i) {
      blockHashes(batch.block(i), batch.stride, batch.sector, end - i, hashes.data());
    }
    for (uint32_t k = i; k < end; ++k) {
      if (hashes[k - i] != batch.events[k]->hash) {
        return false;
      }
    }
    i = end + 1;
  }
  return true;
}

}  // namespace

bool rightInPlace(const Step& step, const ComparableReadData& read) {
  const uint64_t sector = sectorBytes(step.thread);
  const uint64_t stride = blockStride(read, sector);
  const uint64_t end = read.lba + uint64_t{read.blockCount} * read.lbaStep;
  if (read.blockCount == 0 || read.data.data == nullptr || sector < headBytes || end <= read.lba ||
      (read.blockCount - 1) * stride + sector > read.data.size) {
    return false;
  }
  Batch batch;
  batch.sector = static_cast<uint32_t>(sector);
  batch.stride = stride;
  for (uint32_t done = 0; done < read.blockCount; done += batch.count) {
    batch.count = std::min(read.blockCount - done, batchBlocks);
    batch.bytes = read.data.data + done * stride;
    if (!lookUp(step, read, done, batch) || !contentIsRight(batch) || !hashesAreRight(batch)) {
      return false;
    }
  }
  return true;
}

}  // namespace vdl::agent
