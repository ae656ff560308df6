#include "BlockStamp.h"

#include <bit>

namespace vdl::agent {

namespace {

constexpr uint32_t lbaOffset = 8;
constexpr uint32_t idLengthOffset = 16;
constexpr uint32_t idOffset = 17;

void putBigEndian(uint8_t* out, uint64_t value, uint32_t bytes) {
  for (uint32_t i = bytes; i-- > 0;) {
    out[i] = static_cast<uint8_t>(value);
    value >>= 8;
  }
}

uint64_t getBigEndian(const uint8_t* in, uint32_t bytes) {
  uint64_t value = 0;
  for (uint32_t i = 0; i < bytes; ++i) {
    value = value << 8 | in[i];
  }
  return value;
}

}  // namespace

void stampCommandId(uint8_t* block, uint64_t cmdId) {
  const auto bytes = static_cast<uint32_t>((std::bit_width(cmdId) + 7) / 8);
  block[idLengthOffset] = static_cast<uint8_t>(bytes);
  putBigEndian(block + idOffset, cmdId, bytes);
}

void stampBlock(uint8_t* block, uint64_t lba, uint64_t cmdId) {
  putBigEndian(block + lbaOffset, lba, 8);
  stampCommandId(block, cmdId);
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
