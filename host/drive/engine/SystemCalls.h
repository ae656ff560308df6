#pragma once

#include <cstdint>

#include "host/drive/engine/Engine.h"

namespace corvane::host {

/// Carries out an operation in the calling thread, which waits for its end, with one system call: pread, pwrite (with
/// flags pwritev2), fallocate, the ioctl BLKDISCARD, fdatasync.
///
/// @return as EngineReply::result
int64_t carryOut(int fd, const EngineRequest& request);

}  // namespace corvane::host
