#pragma once

#include <array>
#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// A command descriptor block; commands shorter than 16 bytes leave the rest zero.
using Cdb = std::array<uint8_t, 16>;
using UnmapParameterList = std::array<uint8_t, 24>;

/// The SBC command block of a command, as an initiator would send it: WRITE(16), WRITE ATOMIC(16), WRITE SAME(16),
/// UNMAP, READ(16), VERIFY(16) with byte check, SYNCHRONIZE CACHE(16) of the whole medium.
///
/// @param protection the 3-bit WRPROTECT, RDPROTECT or VRPROTECT field; UNMAP and SYNCHRONIZE CACHE have none
Cdb buildCdb(const DriveCommand& command, uint8_t protection);

/// The parameter list that goes with the UNMAP of a trim: one descriptor.
UnmapParameterList buildUnmapParameterList(uint64_t lba, uint32_t blocks);

}  // namespace corvane::host
