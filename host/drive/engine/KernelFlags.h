#pragma once

#include <linux/fs.h>
#include <sys/uio.h>

#include <cstdint>

#include "host/drive/engine/Engine.h"

namespace corvane::host {

/// What newer kernels understand and older headers do not name. Whether the kernel that runs understands it is asked
/// where it is used.
namespace kernel {
/// `RWF_ATOMIC`, since 6.11: the write is done wholly or not at all, or refused.
inline constexpr int writeAtomically = 0x40;
/// `BLOCK_URING_CMD_DISCARD`, since 6.12.
inline constexpr uint32_t blockDiscardCommand = _IO(0x12, 0);
}  // namespace kernel

/// The flags of a write as pwritev2 and the ring take them.
inline int writeFlags(const EngineRequest& request) {
  return (request.dataSync ? RWF_DSYNC : 0) | (request.atomic ? kernel::writeAtomically : 0);
}

}  // namespace corvane::host
