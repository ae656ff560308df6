#pragma once

#include <cstdint>

#include "Step.h"

namespace vdl::agent {

/// The handlers of finished commands: each finds the command's record by its tag, removes it, traces the outcome and
/// tells the expected-state table what the blocks may hold now.
///
/// @return 0, or the failing status, already logged by the handler's own name; -1200 when the tag has no record
int32_t recvWrite(Step& step, const FinishedCommand& finished);
int32_t recvPreRead(Step& step, const FinishedCommand& finished);
int32_t recvVerify(Step& step, const FinishedCommand& finished);

/// An ordinary good read is not judged here but noted as a `ComparableReadData`. Its data stay in the host's memory
/// when the compare of the same step judges them, and are copied when the read waits for a write that it overtook.
int32_t recvRead(Step& step, const FinishedCommand& finished);

}  // namespace vdl::agent
