#pragma once

#include <cstdint>

#include "Conditions.h"
#include "Step.h"

namespace vdl::agent {

/// Chooses the next command and prepares it, or does nothing when every tag is taken.
///
/// @return 0 also when nothing was issued; else the failing status, already logged
int32_t prepareNextCommand(Step& step);

/// Prepares a write, write-same or trim on the tag.
int32_t doAWrite(Step& step, uint32_t tag, const ActiveConditions& active);

/// Prepares an atomic write on the tag, or a pre-read when the content below it is not known.
int32_t doAWriteAtomic(Step& step, uint32_t tag);

/// Prepares the read-back or verify of an earlier write on the tag.
int32_t doAReadOrVerify(Step& step, uint32_t tag, const ActiveConditions& active);

/// Moves a read around the write that it checks, so that both still overlap. One draw; half of all reads stay.
///
/// @param lba,xferLength the write's on entry, the read's on return
void slideRead(DriveData& data, uint64_t& lba, uint32_t& xferLength, bool skipCommands);

/// Whether the transfer fits the pool; logs when it does not.
/// @return 0 or -1022
int32_t checkTransferLength(const Step& step, uint32_t xferLength);

}  // namespace vdl::agent
