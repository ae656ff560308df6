#pragma once

#include <cstdint>

namespace vdl {

/// The 64-bit hash of a block's bytes; 0 for no bytes.
uint64_t blockHash(const uint8_t* begin, const uint8_t* end);

/// The hash of one block, computed on the first request and at most once.
struct LazyHasher {
  LazyHasher(const uint8_t* first, const uint8_t* last) : begin(first), end(last) {}

  uint64_t operator()() {
    if (!computed) {
      value = blockHash(begin, end);
      computed = true;
    }
    return value;
  }

  uint64_t value = 0;  ///< valid once computed
  bool computed = false;
  const uint8_t* begin;  ///< the block's bytes, not owned
  const uint8_t* end;
};

}  // namespace vdl
