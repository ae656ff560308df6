// Thirty-two blocks at once, one in each lane of four registers. The instructions are confined to the functions that
// carry the attribute, so that a processor without them loads this file safely.

#include "BlockHash.h"

#if defined(__x86_64__)

#include <algorithm>
#include <cstring>

#define CORVANE_TARGET __attribute__((target("avx512f")))
#define CORVANE_INLINE __attribute__((target("avx512f"), always_inline)) inline

namespace vdl::block_hash {

namespace {

/// One number for each of eight blocks.
using Lanes = uint64_t __attribute__((vector_size(64)));

constexpr uint32_t lanes = sizeof(Lanes) / sizeof(uint64_t);
/// Each register waits for its own last result, so one alone would leave the processor idle.
constexpr uint32_t registers = 4;
constexpr uint32_t group = registers * lanes;
constexpr uint64_t increment = 0x9E3779B9;

/// The next bytes of the blocks, 8 of each or fewer, the first one lowest.
CORVANE_INLINE Lanes load(const uint8_t* const* blocks, uint64_t offset, uint64_t bytes) {
  uint64_t words[lanes] = {};
  for (uint32_t lane = 0; lane < lanes; ++lane) {
    std::memcpy(&words[lane], blocks[lane] + offset, bytes);
  }
  Lanes loaded;
  std::memcpy(&loaded, words, sizeof loaded);
  return loaded;
}

CORVANE_INLINE void hashLowestBytes(Lanes& seeds, Lanes bytes) {
  seeds ^= (seeds >> 2) + (seeds << 6) + ((bytes & 0xFF) + increment);
}

/// Hashes up to a group of blocks; the lanes of blocks that do not exist repeat the last one.
CORVANE_TARGET void hashGroup(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out) {
  const uint8_t* blocks[group];
  for (uint32_t lane = 0; lane < group; ++lane) {
    blocks[lane] = first + std::min(lane, count - 1) * stride;
  }
  Lanes seeds[registers] = {};
  uint64_t done = 0;
  for (; done + 8 <= bytes; done += 8) {
    Lanes next[registers];
    for (uint32_t k = 0; k < registers; ++k) {
      next[k] = load(blocks + k * lanes, done, 8);
    }
    for (int i = 0; i < 8; ++i) {
      for (uint32_t k = 0; k < registers; ++k) {
        hashLowestBytes(seeds[k], next[k]);
        next[k] >>= 8;
      }
    }
  }
  for (; done < bytes; ++done) {
    for (uint32_t k = 0; k < registers; ++k) {
      hashLowestBytes(seeds[k], load(blocks + k * lanes, done, 1));
    }
  }
  std::memcpy(out, seeds, count * sizeof *out);
}

}  // namespace

void hashesAvx512(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out) {
  for (uint32_t done = 0; done < count; done += group) {
    const uint32_t now = std::min(count - done, group);
    const uint8_t* block = first + done * stride;
    if (now == 1) {
      out[done] = blockHash(block, block + bytes);
    } else {
      hashGroup(block, stride, bytes, now, out + done);
    }
  }
}

}  // namespace vdl::block_hash

#endif
