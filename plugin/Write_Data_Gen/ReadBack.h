#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// The write that a read or verify checks.
struct WriteToCheck {
  uint64_t lba;
  uint32_t xferLength;
  uint8_t spliceCheck;
  uint8_t spliceRetries;
};

/// Prepares the read-back of a write. A null `write` is refused.
int32_t doARead(Step& step, uint32_t tag, uint64_t cmdId, const WriteToCheck* write);

/// Prepares a verify of the known blocks of a write. A null `write` is refused.
int32_t doAVerify(Step& step, uint32_t tag, uint64_t cmdId, const WriteToCheck* write);

}  // namespace vdl::agent
