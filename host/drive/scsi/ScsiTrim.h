#pragma once

#include <algorithm>
#include <cstdint>

namespace corvane::host {

/// How a range is trimmed so that it reads as zeros.
///
/// A unit may leave alone what an UNMAP asks for where it is only a part of a granule (SBC), so UNMAP gets whole
/// granules, and the rest is written with zeros. A WRITE SAME with the UNMAP bit has no such liberty: what it cannot
/// unmap it writes.
struct TrimMethod {
  enum class By : uint8_t { nothing, writeSame, unmap };

  By by = By::nothing;
  bool unmapBit = false;    ///< of WRITE SAME
  uint64_t mostBlocks = 1;  ///< of one WRITE SAME or UNMAP
  uint64_t mostZeros = 1;   ///< of one command that writes zeros to what is not unmapped
  uint64_t granule = 1;     ///< of UNMAP, blocks
  uint64_t alignment = 0;   ///< the first LBA that begins a granule
};

/// What one command of a trim does.
struct TrimPiece {
  uint64_t lba = 0;
  uint32_t blocks = 0;
  bool unmaps = false;  ///< else it writes zeros, or is the WRITE SAME of `TrimMethod::By::writeSame`
};

/// The first command for the blocks from `lba` on.
///
/// @param end one past the last block, above `lba`
inline TrimPiece nextTrimPiece(const TrimMethod& method, uint64_t lba, uint64_t end) {
  const auto piece = [&](uint64_t blocks, bool unmaps) {
    return TrimPiece{lba, static_cast<uint32_t>(blocks), unmaps};
  };
  if (method.by != TrimMethod::By::unmap) {
    return piece(std::min(end - lba, method.mostBlocks), false);
  }
  const uint64_t phase = (lba % method.granule + method.granule - method.alignment % method.granule) % method.granule;
  if (phase != 0) {
    return piece(std::min({end - lba, method.granule - phase, method.mostZeros}), false);
  }
  const uint64_t whole = std::min(end - lba, method.mostBlocks) / method.granule * method.granule;
  return whole != 0 ? piece(whole, true) : piece(std::min(end - lba, method.mostZeros), false);
}

}  // namespace corvane::host
