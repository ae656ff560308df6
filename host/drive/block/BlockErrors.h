#pragma once

#include <cstdint>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/engine/EngineTarget.h"

namespace corvane::host {

/// Answers a command as the drive would have, from what the kernel made of the drive's answer.
///
/// - nothing moved, or an error, behind the end: 05/21/00, LBA out of range, with the first such LBA
/// - ENODATA, EIO, EILSEQ, EUCLEAN: 03/11/00 of a read and 03/0C/00 of a write, with the LBA; 04/44/00 of a flush
/// - nothing moved before the end, EREMOTEIO: 04/44/00, internal target failure, with the LBA
/// - EBADE: status reservation conflict
/// - ENOSPC: 07/27/07, space allocation failed
/// - EPERM, EROFS: 07/27/00, write protected
/// - EOPNOTSUPP: 05/20/00, invalid operation
/// - EINVAL: 05/24/00, invalid field
/// - ENOLINK, ETIMEDOUT, ETIME: 0B/44/00, aborted
///
/// Throws DriveError for a device that is gone (ENODEV, ENXIO, ENOMEDIUM, ESHUTDOWN, or no size any more) and for every
/// other error, which is the host's own.
///
/// @param blocksNow the size of the device when it had failed; 0: it is gone
/// @param name      of the device, for complaints
void answerBlockFailure(const FailedOperation& failed, uint64_t blocksNow, const std::string& name,
                        DriveCompletion& out);

}  // namespace corvane::host
