// Sixteen blocks at once.

#include "BlockHash.h"

#if defined(__x86_64__)

#define CORVANE_INSTRUCTION_SET "avx2"
#define CORVANE_REGISTER_BYTES 32
#include "BlockHashLanes.inc"

namespace vdl::block_hash {

void hashesAvx2(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out) {
  hashGroups(first, stride, bytes, count, out);
}

}  // namespace vdl::block_hash

#endif
