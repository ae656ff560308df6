#pragma once

#include <cstdint>

#include "Event.h"

namespace vdl {

/// A read in flight on a block.
struct WaitRead {
  uint64_t cmd_id = 0;
  Event* event = nullptr;  ///< newest event when the read was issued: newer ones are not its concern
  WaitRead* next = nullptr;
};

static_assert(sizeof(WaitRead) == 24);

/// What the table keeps for one block.
struct LBARecord {
  uint64_t ref_count = 0;         ///< obligations still open: writes to read back, hashes, reads to repeat
  Event* events = nullptr;        ///< newest first
  WaitRead* wait_read = nullptr;  ///< reads in flight, newest first
};

}  // namespace vdl
