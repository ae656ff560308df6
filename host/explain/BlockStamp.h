#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace corvane::host {

/// What a block says of itself: which of the agent's sectors it is made of, its address, and who wrote it.
///
/// Bytes 0 to 2 hold the number of the sector in the agent's pool, 8 to 15 the LBA, 16 the length of the command id
/// and 17 on the id, all big-endian. Whether a block was stamped at all it does not say.
struct BlockStamp {
  uint32_t bucket = 0;
  uint64_t lba = 0;
  uint64_t commandId = 0;
  bool zeros = false;  ///< nothing but zeros: it says nothing

  bool operator==(const BlockStamp&) const = default;
};

/// Bytes that hold a stamp, whatever the length of its id.
inline constexpr size_t stampBytes = 25;

/// The stamp of a block; nothing for a block that is too short for one.
std::optional<BlockStamp> stampOf(std::span<const uint8_t> block);

/// Whether a block, or a part of one, is nothing but zeros.
bool isZero(std::span<const uint8_t> block);

/// Writes LBA and command id into a block.
void stamp(std::span<uint8_t> block, uint64_t lba, uint64_t commandId);

}  // namespace corvane::host
