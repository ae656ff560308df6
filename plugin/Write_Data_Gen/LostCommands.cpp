#include "LostCommands.h"

#include "LbaSpan.h"

namespace vdl::agent {

void commandLost(DriveData& data, const PreRead& lost) {
  data.trace->traceReadAborted(lost.lba, lost.xferLength, lost.cmdId, lost.tagId);
}

void commandLost(DriveData& data, const VerifySent& lost) {
  data.trace->traceVerifyAborted(lost.lba, lost.xferLength, lost.cmdId, lost.tagId);
  for (uint64_t lba = lost.lba; lba < lost.lba + lost.xferLength; ++lba) {
    data.atomicHash.readFinished(lost.cmdId, lba, false);
  }
}

void commandLost(DriveData& data, const ConfigData& config, const ReadSent& lost) {
  data.trace->traceReadAborted(lost.lba, lost.xferLength, lost.cmdId, lost.tagId);
  const LbaSpan span = spanOf(lost.lba, lost.xferLength, config.useSkipCommands);
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    data.atomicHash.readFinished(lost.cmdId, lba, true);
  }
}

void commandLost(DriveData& data, const ConfigData& config, const WriteSent& lost) {
  data.trace->traceWriteAborted(lost.lba, lost.xferLength, lost.cmdId, lost.tagId);
  const LbaSpan span = spanOf(lost.lba, lost.xferLength, config.useSkipCommands);
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    data.atomicHash.hardWriteError(lost.cmdId, lba);
  }
}

}  // namespace vdl::agent
