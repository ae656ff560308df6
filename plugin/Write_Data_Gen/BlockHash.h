#pragma once

#include <cstdint>

namespace vdl {

/// The 64-bit hash of a block's bytes; 0 for no bytes.
///
/// Every byte needs the hash of those before it: seed ^= (seed >> 2) + (seed << 6) + 0x9E3779B9 + byte.
uint64_t blockHash(const uint8_t* begin, const uint8_t* end);

/// The hashes of several blocks, the same as `blockHash` gives for each.
///
/// One block's bytes cannot be hashed side by side, but blocks can: several cost little more than one.
///
/// @param first  first byte of the first block
/// @param stride bytes from one block to the next
/// @param bytes  of a block
/// @param count  blocks
/// @param out    receives `count` hashes
void blockHashes(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out);

/// The ways to do it; `blockHashes` takes the fastest one that this processor has.
namespace block_hash {

using Function = void(const uint8_t* first, uint64_t stride, uint64_t bytes, uint32_t count, uint64_t* out);

Function hashesPortable;
#if defined(__x86_64__)
Function hashesAvx2;    ///< the processor must have AVX2
Function hashesAvx512;  ///< the processor must have AVX-512 F
bool hasAvx2();
bool hasAvx512();
/// The fastest way on a processor that has these.
Function* fastestWith(bool avx512, bool avx2);
#endif

}  // namespace block_hash
}  // namespace vdl
