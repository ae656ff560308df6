#pragma once

#include <cstdint>

#include "BlockRun.h"

namespace vdl::agent {

/// The blocks of a command: `first`, `first` + `step`, … below `end`.
struct LbaSpan {
  uint64_t first;
  uint64_t end;
  uint32_t step;

  operator BlockRun() const { return {first, end, step}; }
  bool contains(uint64_t lba) const { return lba >= first && lba < end; }
  bool overlaps(uint64_t otherFirst, uint64_t otherEnd) const { return first < otherEnd && otherFirst < end; }
};

/// The span of a command of `xferLength` blocks; skip commands touch every other LBA. The doubled length wraps in 32
/// bits, as the command's own length field does.
inline LbaSpan spanOf(uint64_t lba, uint32_t xferLength, bool skipCommands) {
  const uint32_t step = skipCommands ? 2 : 1;
  return LbaSpan{lba, lba + static_cast<uint32_t>(xferLength * step), step};
}

}  // namespace vdl::agent
