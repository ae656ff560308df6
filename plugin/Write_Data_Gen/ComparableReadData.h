#pragma once

#include <cstdint>
#include <vector>

#include "AtomicContext.h"
#include "Corvane.h"
#include "vdl/Buffer.h"

namespace vdl {

/// A finished read, held until no write that it overlapped is still in flight.
struct Corvane::ComparableReadData {
  uint64_t cmdId = 0;
  uint32_t xferLength = 0;
  uint64_t lba = 0;
  uint32_t blockCount = 0;              ///< blocks to compare, from the first one
  uint8_t lbaStep = 1;                  ///< 2 with skip commands
  std::vector<uint64_t> pendingWrites;  ///< ids of the writes that it waits for, ascending
  Buffer data;                          ///< a copy of the read data, owned
  AtomicContext context;                ///< the range's history; filled when the compare starts
};

}  // namespace vdl
