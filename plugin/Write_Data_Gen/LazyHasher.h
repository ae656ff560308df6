#pragma once

#include <cstdint>

#include "BlockHash.h"

namespace vdl {

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
