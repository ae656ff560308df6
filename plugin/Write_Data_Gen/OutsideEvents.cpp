#include "OutsideEvents.h"

#include <cstdio>

#include "HardError.h"
#include "LbaSpan.h"

namespace vdl::agent {

void absorbPowerOn(Step& step) {
  DriveData& data = step.data;
  if (data.epo == nullptr || *data.epo == 0) {
    return;
  }
  data.trace->tracePowerOn();
  *data.epo = 0;
  data.powerOnTime = static_cast<double>(wallClockUs()) / 1000.0;
}

namespace {

/// Whether a zone reset concerns a command: with skip commands only one of the reset's own parity.
bool concerns(const LbaSpan& span, const LBARange& reset) {
  if (span.step == 2 && ((span.first ^ reset.first) & 1) != 0) {
    return false;
  }
  return span.overlaps(reset.first, reset.end);
}

/// The content of a reset zone is nobody's expectation any more: pending read-backs over it are not issued.
void dropReadBacks(Step& step, const LBARange& reset) {
  DriveData& data = step.data;
  data.writeFinished.eraseIf([&](const WriteFinished& write) {
    const LbaSpan span = spanOf(write.lba, write.xferLength, step.config.useSkipCommands);
    if (write.spliceCheck != 0 || !concerns(span, reset)) {
      return false;
    }
    std::printf("<W> Clearing out Read LBA Range 0x%016lX thru 0x%016lX\n", static_cast<unsigned long>(span.first),
                static_cast<unsigned long>(span.end));
    for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
      data.atomicHash.readSkip(lba);
    }
    return true;
  });
}

void absorbZoneReset(Step& step, const LBARange& reset) {
  DriveData& data = step.data;
  dropReadBacks(step, reset);
  for (WriteSent& write : data.writeSent) {
    if (write.readCmdId == 0 && concerns(spanOf(write.lba, write.xferLength, step.config.useSkipCommands), reset)) {
      write.readBack = 0;
    }
  }
  // The table's ranges include their end, the queue's do not; the block behind the reset is given up with it.
  data.atomicHash.invalidate(reset.first, reset.end, AtomicHash::InvalidateReplace);
  data.trace->traceZoneReset(reset.first, reset.end);
}

}  // namespace

void absorbRangeEvents(Step& step) {
  DriveData& data = step.data;
  LBARange range{};
  while (data.zoneResetQueue != nullptr && !data.zoneResetQueue->empty() && data.zoneResetQueue->tryPop(range)) {
    absorbZoneReset(step, range);
  }
  while (data.invalidateQueue != nullptr && !data.invalidateQueue->empty() && data.invalidateQueue->tryPop(range)) {
    data.atomicHash.invalidate(range.first, range.end, AtomicHash::InvalidateKeepPrior);
    data.trace->traceInvalidate(range.first, range.end);
  }
}

void recvSync(Step& step, const FinishedCommand& finished) {
  DriveData& data = step.data;
  data.syncIssued = false;
  SenseResult sense;
  if (finished.status == statusGood) {
    data.syncDone = true;
  } else {
    // Only for the trace: a flush that failed in any way withholds the power toggle.
    sense = readSense(step);
  }
  data.trace->traceSyncFinished(finished.tag, sense.uec, sense.kcq);
}

}  // namespace vdl::agent
