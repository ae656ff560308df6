#pragma once

#include <cstdint>

#include "Event.h"

namespace vdl::agent {

/// Stamps a block with its LBA (bytes 8 to 15, big-endian) and the id of the command that writes it: byte 16 holds
/// the number of bytes of the id, 0 for id 0, and the id follows big-endian.
void stampBlock(uint8_t* block, uint64_t lba, uint64_t cmdId);

/// Stamps the blocks of one command, which carry consecutive LBAs and stand `stride` bytes apart. A block has at least
/// 25 bytes.
void stampBlocks(uint8_t* blocks, uint64_t count, uint64_t stride, uint64_t lba, uint64_t cmdId);

/// Stamps the command id only.
void stampCommandId(uint8_t* block, uint64_t cmdId);

/// What a block says about itself: bucket number, LBA and command id. Whether it was stamped at all is not judged.
ObserveData getObserveData(const uint8_t* block);

}  // namespace vdl::agent
