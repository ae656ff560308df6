#pragma once

#include <cstdint>
#include <cstring>
#include <utility>
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
  Buffer data;                          ///< the read data: a copy, owned, or for one step a view of the host's memory
  Buffer storage;                       ///< memory for the copy while `data` does not own it
  AtomicContext context;                ///< the range's history; filled when the compare starts

  /// Looks at the host's memory, which is valid until the end of the step, and has memory ready to keep it longer.
  ///
  /// @return 0, or -1002 when that memory is not to be had
  int32_t view(uint8_t* bytes, uint64_t size) {
    if (data.owned) {
      storage = std::move(data);
    }
    if (storage.data == nullptr || storage.capacity < size) {
      storage.size = 0;
      if (const int32_t result = storage.reserve(size); result != status::ok) {
        return result;
      }
    }
    data.view(bytes, size);
    return status::ok;
  }

  /// Copies what it only looks at.
  void keep() {
    if (!data.owned && data.data != nullptr) {
      std::memcpy(storage.data, data.data, data.size);
      storage.size = data.size;
      data = std::move(storage);
    }
  }

  /// Forgets what it only looks at.
  void forget() {
    if (!data.owned) {
      data.release();
    }
  }
};

}  // namespace vdl
