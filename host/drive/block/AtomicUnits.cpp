#include "host/drive/block/AtomicUnits.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace corvane::host {
namespace {

// What headers older than the kernel's answer do not name: STATX_WRITE_ATOMIC, and where the answer stands.
constexpr unsigned askForAtomicWrites = 0x00010000;
constexpr size_t placeOfLeast = 0xA8;
constexpr size_t placeOfMost = 0xAC;
static_assert(sizeof(struct statx) == 0x100);

uint32_t wordAt(const struct statx& info, size_t place) {
  uint32_t word = 0;
  std::memcpy(&word, reinterpret_cast<const uint8_t*>(&info) + place, sizeof word);
  return word;
}

}  // namespace

AtomicSegments AtomicUnits::segments(uint32_t blockSize) const {
  if (mostBytes < blockSize) {
    return {};
  }
  return {.leastBlocks = std::max(leastBytes / blockSize, 1U), .mostBlocks = mostBytes / blockSize};
}

AtomicUnits atomicUnitsOf(int fd) {
  struct statx info {};
  if (statx(fd, "", AT_EMPTY_PATH, askForAtomicWrites, &info) != 0 || (info.stx_mask & askForAtomicWrites) == 0) {
    return {};
  }
  return {.leastBytes = wordAt(info, placeOfLeast), .mostBytes = wordAt(info, placeOfMost)};
}

}  // namespace corvane::host
