#include "BlockStamp.h"

#include <endian.h>

#include <bit>
#include <cstring>

namespace vdl::agent {

namespace {

constexpr uint32_t lbaOffset = 8;
constexpr uint32_t idLengthOffset = 16;
constexpr uint32_t idOffset = 17;

/// A command id as it stands in a block, made once for all blocks of the command.
class IdStamp {
 public:
  explicit IdStamp(uint64_t cmdId) : bytes_(static_cast<uint8_t>((std::bit_width(cmdId) + 7) / 8)) {
    // Shifting a whole word by all of its bits says nothing, so an id of 0 keeps its zeros and covers no byte.
    const int unused = 64 - 8 * bytes_;
    id_ = htobe64(unused == 64 ? 0 : cmdId << unused);
    kept_ = htobe64(unused == 64 ? ~uint64_t{0} : (uint64_t{1} << unused) - 1);
  }

  void put(uint8_t* block) const {
    block[idLengthOffset] = bytes_;
    uint64_t field = 0;
    std::memcpy(&field, block + idOffset, sizeof field);
    field = (field & kept_) | id_;
    std::memcpy(block + idOffset, &field, sizeof field);
  }

 private:
  uint64_t id_;    ///< from the field's first byte on
  uint64_t kept_;  ///< bits of the field behind the id, which stay the block's
  uint8_t bytes_;
};

void putLba(uint8_t* block, uint64_t lba) {
  const uint64_t field = htobe64(lba);
  std::memcpy(block + lbaOffset, &field, sizeof field);
}

uint64_t getBigEndian(const uint8_t* in, uint32_t bytes) {
  uint64_t value = 0;
  for (uint32_t i = 0; i < bytes; ++i) {
    value = value << 8 | in[i];
  }
  return value;
}

}  // namespace

void stampCommandId(uint8_t* block, uint64_t cmdId) { IdStamp(cmdId).put(block); }

void stampBlock(uint8_t* block, uint64_t lba, uint64_t cmdId) { stampBlocks(block, 1, 0, lba, cmdId); }

void stampBlocks(uint8_t* blocks, uint64_t count, uint64_t stride, uint64_t lba, uint64_t cmdId) {
  const IdStamp id(cmdId);
  for (uint64_t i = 0; i < count; ++i) {
    uint8_t* block = blocks + i * stride;
    putLba(block, lba + i);
    id.put(block);
  }
}

ObserveData getObserveData(const uint8_t* block) {
  ObserveData observed;
  const auto number = static_cast<BlockNum>(getBigEndian(block, 3));
  const bool meaningful = number < block_num::bucketLimit || number >= block_num::zero;
  observed.block_num = meaningful ? number : block_num::unknown;
  observed.embed.valid = true;
  observed.embed.lba = getBigEndian(block + lbaOffset, 8);
  // An id longer than 8 bytes keeps its last 8: the value simply shifts through.
  observed.embed.cmd_id = getBigEndian(block + idOffset, block[idLengthOffset]);
  return observed;
}

}  // namespace vdl::agent
