#include "host/explain/BlockStamp.h"

#include <algorithm>
#include <bit>

#include "host/base/BigEndian.h"

namespace corvane::host {
namespace {

constexpr size_t lbaAt = 8;
constexpr size_t idLengthAt = 16;
constexpr size_t idAt = 17;

uint64_t bigEndian(std::span<const uint8_t> bytes) {
  uint64_t value = 0;
  for (const uint8_t byte : bytes) {
    value = value << 8 | byte;
  }
  return value;
}

}  // namespace

bool isZero(std::span<const uint8_t> block) {
  return std::ranges::all_of(block, [](uint8_t byte) { return byte == 0; });
}

std::optional<BlockStamp> stampOf(std::span<const uint8_t> block) {
  if (block.size() < stampBytes) {
    return std::nullopt;
  }
  BlockStamp stamp;
  stamp.bucket = static_cast<uint32_t>(bigEndian(block.first(3)));
  stamp.lba = bigEndian(block.subspan(lbaAt, 8));
  // Of an id that is longer than any that was ever stamped the last 8 bytes remain, as when the agent reads it.
  stamp.commandId = bigEndian(block.subspan(idAt, std::min<size_t>(block[idLengthAt], block.size() - idAt)));
  stamp.zeros = isZero(block);
  return stamp;
}

void stamp(std::span<uint8_t> block, uint64_t lba, uint64_t commandId) {
  putBigEndian(&block[lbaAt], lba);
  const size_t length = (std::bit_width(commandId) + 7) / 8;
  block[idLengthAt] = static_cast<uint8_t>(length);
  for (size_t i = 0; i < length; ++i) {
    block[idAt + i] = static_cast<uint8_t>(commandId >> (8 * (length - 1 - i)));
  }
}

}  // namespace corvane::host
