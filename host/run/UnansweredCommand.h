#pragma once

#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// A command that a drive which hangs has not answered.
struct UnansweredCommand {
  CommandKind kind = CommandKind::read;
  uint32_t tag = 0;
  uint64_t lba = 0;
  uint32_t blocks = 0;  ///< 0 of a cache flush
  uint64_t ageUs = 0;   ///< since it was sent
};

}  // namespace corvane::host
