#pragma once

#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// The sizes of a write that the kernel promises to be done wholly or not at all, bytes. Both are powers of two, and so
/// is every size between that may be used, at an offset that is a multiple of it.
struct AtomicUnits {
  uint32_t leastBytes = 0;
  uint32_t mostBytes = 0;  ///< 0: no such promise

  /// The units in blocks; nothing to be had (`mostBlocks` 0) where a block is not in them.
  AtomicSegments segments(uint32_t blockSize) const;
};

/// Asks the kernel (statx, since 6.11) about an open file or device; no units where it does not answer.
AtomicUnits atomicUnitsOf(int fd);

}  // namespace corvane::host
