#include "JudgeInPlace.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "BlockHash.h"
#include "Compare.h"
#include "SectorBuckets.h"

namespace vdl::agent {

namespace {

/// Blocks that are looked up before they are compared, and hashed at once.
constexpr uint32_t batchBlocks = 32;
/// A sector's head: what stands before the stamp, and the stamp with an id of at most 7 bytes.
constexpr uint32_t headBytes = 24;

/// Neighbouring blocks of one read.
struct Batch {
  uint32_t count = 0;
  uint32_t sector = 0;
  bool hashes = false;  ///< some events are hashes
  uint64_t stride = 0;
  const uint8_t* bytes = nullptr;                   ///< of the first block
  std::array<const Event*, batchBlocks> events;     ///< at which the read waits
  std::array<const uint8_t*, batchBlocks> sectors;  ///< what the event's number names; null: nothing to compare

  const uint8_t* block(uint32_t i) const { return bytes + i * stride; }
};

/// @return false when an event is missing, or is not the only one that may explain its block
bool lookUp(const Step& step, AwaitedEvents& awaited, Batch& batch) {
  batch.hashes = false;
  for (uint32_t i = 0; i < batch.count; ++i) {
    const Event* event = awaited.next();
    if (event == nullptr || event->isTransparent() || event->type == EventType::InvalidateMarker) {
      return false;
    }
    batch.events[i] = event;
    batch.hashes = batch.hashes || event->block_type == BlockType::Hash;
    batch.sectors[i] = event->block_type == BlockType::Normal ? unstampedSector(step, event->block_num) : nullptr;
  }
  return true;
}

uint64_t word(const uint8_t* bytes) {
  uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

uint64_t bigEndianWord(const uint8_t* bytes) {
  return std::endian::native == std::endian::little ? __builtin_bswap64(word(bytes)) : word(bytes);
}

/// Compares a block's first bytes with those of a sector of the pool as the stamp changes them: the LBA in bytes 8 to
/// 15, the length of the id in byte 16 and the id behind it. In registers, because making them in memory would hold up
/// the compare of the rest until they have arrived there.
bool headHolds(const uint8_t* block, const uint8_t* sector, const EmbedData& embed) {
  const auto idBytes = static_cast<uint32_t>((std::bit_width(embed.cmd_id) + 7) / 8);
  if (idBytes > 7) {
    return false;  // never seen: the next word would be the stamp's, too
  }
  const uint32_t behind = 56 - 8 * idBytes;
  const uint64_t kept = bigEndianWord(sector + 16) & ((uint64_t{1} << behind) - 1);
  const uint64_t third = uint64_t{idBytes} << 56 | embed.cmd_id << behind | kept;
  return word(block) == word(sector) && bigEndianWord(block + 8) == embed.lba && bigEndianWord(block + 16) == third;
}

/// Compares a block with a sector of the pool as the stamp changes it, without making that sector.
bool holds(const uint8_t* block, const uint8_t* sector, uint32_t bytes, const EmbedData& embed) {
  if (!embed.valid) {
    return std::memcmp(block, sector, bytes) == 0;
  }
  return headHolds(block, sector, embed) && std::memcmp(block + headBytes, sector + headBytes, bytes - headBytes) == 0;
}

bool contentIsRight(const Batch& batch) {
  for (uint32_t i = 0; i < batch.count; ++i) {
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
  AwaitedEvents awaited(step.data.atomicHash, read.cmdId, BlockRun{read.lba, end, read.lbaStep});
  Batch batch;
  batch.sector = static_cast<uint32_t>(sector);
  batch.stride = stride;
  for (uint32_t done = 0; done < read.blockCount; done += batch.count) {
    batch.count = std::min(read.blockCount - done, batchBlocks);
    batch.bytes = read.data.data + done * stride;
    if (!lookUp(step, awaited, batch) || !contentIsRight(batch) || (batch.hashes && !hashesAreRight(batch))) {
      return false;
    }
  }
  return true;
}

}  // namespace vdl::agent
