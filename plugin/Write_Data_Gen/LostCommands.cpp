#include "LostCommands.h"

#include "LbaSpan.h"

namespace vdl::agent {

namespace {

/// A restart that was refused leaves commands in flight, but no trace to tell of them.
template <typename Lost>
void trace(DriveData& data, const Lost& lost, void (CommandTrace::*operation)(uint64_t, uint32_t, uint64_t, uint32_t)) {
  if (data.trace != nullptr) {
    (data.trace->*operation)(lost.lba, lost.xferLength, lost.cmdId, lost.tagId);
  }
}

}  // namespace

void commandLost(DriveData& data, const PreRead& lost) { trace(data, lost, &CommandTrace::traceReadAborted); }

void commandLost(DriveData& data, const VerifySent& lost) {
  trace(data, lost, &CommandTrace::traceVerifyAborted);
  for (uint64_t lba = lost.lba; lba < lost.lba + lost.xferLength; ++lba) {
    data.atomicHash.readFinished(lost.cmdId, lba, false);
  }
}

void commandLost(DriveData& data, const ConfigData& config, const ReadSent& lost) {
  trace(data, lost, &CommandTrace::traceReadAborted);
  const LbaSpan span = spanOf(lost.lba, lost.xferLength, config.useSkipCommands);
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    data.atomicHash.readFinished(lost.cmdId, lba, true);
  }
}

void commandLost(DriveData& data, const ConfigData& config, const WriteSent& lost) {
  trace(data, lost, &CommandTrace::traceWriteAborted);
  const LbaSpan span = spanOf(lost.lba, lost.xferLength, config.useSkipCommands);
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    data.atomicHash.hardWriteError(lost.cmdId, lba);
  }
}

}  // namespace vdl::agent
