#include "LazyHasher.h"

namespace vdl {

uint64_t blockHash(const uint8_t* begin, const uint8_t* end) {
  uint64_t seed = 0;
  for (const uint8_t* byte = begin; byte != end; ++byte) {
    seed ^= (seed >> 2) + (seed << 6) + 0x9E3779B9U + *byte;
  }
  return seed;
}

}  // namespace vdl
