#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/report/Explanation.h"

namespace corvane::host::report {

/// A part of a block that means something.
struct BlockField {
  std::string name;
  size_t offset = 0;  ///< first byte
  size_t bytes = 0;
};

/// What a block says of itself, when it looks like one that the agent stamped: byte 3 is 0 and the command id has at
/// most 8 bytes without a leading 0. Else only whether it is all zeros.
Stamp stampOf(const std::vector<uint8_t>& block);

/// The fields of the agent's stamp, and the protection bytes at the end of the block; in order, none beyond the block.
///
/// @param idBytes         length of the command id in this block
/// @param protectionBytes 0: none
std::vector<BlockField> blockFields(size_t blockBytes, size_t idBytes, size_t protectionBytes);

/// Offsets at which two blocks differ, ascending; bytes that only one of them has count.
std::vector<size_t> differingOffsets(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

/// Two digits a byte.
std::string hexDigits(const std::vector<uint8_t>& bytes);

}  // namespace corvane::host::report
