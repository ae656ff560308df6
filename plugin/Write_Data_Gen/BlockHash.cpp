#include "BlockHash.h"

#include <array>

namespace vdl {

namespace {

constexpr uint64_t increment = 0x9E3779B9U;

inline uint64_t hashed(uint64_t seed, uint8_t byte) { return seed ^ ((seed >> 2) + (seed << 6) + increment + byte); }

/// As many chains of dependent operations as fill the processor while each waits for its own last result.
constexpr uint32_t chains = 4;

void hashFour(const uint8_t* first, uint64_t stride, uint64_t bytes, uint64_t* out) {
  std::array<uint64_t, chains> seeds{};
  for (uint64_t i = 0; i < bytes; ++i) {
    for (uint32_t k = 0; k < chains; ++k) {
      seeds[k] = hashed(seeds[k], first[k * stride + i]);
    }
  }
  for (uint32_t k = 0; k < chains; ++k) {
    out[k] = seeds[k];
  }
}

block_hash::Function* fastest() {
#if defined(__x86_64__)
  return block_hash::fastestWith(block_hash::hasAvx512(), block_hash::hasAvx2());
#else
  return block_hash::hashesPortable;
#endif
}

}  // namespace

uint64_t blockHash(const uint8_t* begin, const uint8_t* end) {
  uint64_t seed = 0;
  for (const uint8_t* byte = begin; byte != end; ++byte) {
    seed = hashed(seed, *byte);
  }
  return seed;
}

void blockHashes(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out) {
  static block_hash::Function* const function = fastest();
  function(first, stride, bytes, count, out);
}

namespace block_hash {

void hashesPortable(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out) {
  uint32_t done = 0;
  for (; done + chains <= count; done += chains) {
    hashFour(first + done * stride, stride, bytes, out + done);
  }
  for (; done < count; ++done) {
    const uint8_t* block = first + done * stride;
    out[done] = blockHash(block, block + bytes);
  }
}

#if defined(__x86_64__)
bool hasAvx2() { return __builtin_cpu_supports("avx2") != 0; }
bool hasAvx512() { return __builtin_cpu_supports("avx512f") != 0; }

Function* fastestWith(bool avx512, bool avx2) {
  if (avx512) {
    return hashesAvx512;
  }
  return avx2 ? hashesAvx2 : hashesPortable;
}
#endif

}  // namespace block_hash
}  // namespace vdl
