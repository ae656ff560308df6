#pragma once

#include <cstdint>

#include "host/drive/Drive.h"
#include "host/drive/scsi/ScsiCdb.h"

namespace corvane::host {

/// The SBC command block of a command, as an initiator would send it: WRITE(16), WRITE ATOMIC(16), WRITE SAME(16),
/// UNMAP, READ(16), VERIFY(16) with byte check, SYNCHRONIZE CACHE(16) of the whole medium. It is what an agent is
/// shown, whatever the drive behind the command is.
///
/// @param protection the 3-bit WRPROTECT, RDPROTECT or VRPROTECT field; UNMAP and SYNCHRONIZE CACHE have none
Cdb buildCdb(const DriveCommand& command, uint8_t protection);

}  // namespace corvane::host
