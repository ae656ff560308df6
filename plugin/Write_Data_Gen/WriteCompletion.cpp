#include <algorithm>

#include "Completion.h"
#include "FindByTag.h"
#include "HardError.h"
#include "LbaSpan.h"

namespace vdl::agent {

namespace {

constexpr uint8_t mediumError = 3;

/// What is still to be done for a finished write.
struct FollowUp {
  bool readBack;
  bool spliceCheck;
};

/// A failed atomic write is read back as it is: old or new, but whole. Any other one only to see whether its blocks
/// can be read at all.
FollowUp afterFailure(const WriteSent& write, bool spliceCheck) {
  return write.readBackOnError != 0 ? FollowUp{true, false} : FollowUp{spliceCheck, spliceCheck};
}

/// Blocks before a reported failing LBA get no call at all: they keep their expectation.
void markFailed(AtomicHash& table, const WriteSent& write, const LbaSpan& span, uint64_t from) {
  if (from < span.first) {
    // LBAs below the command's own carry nothing of it; start at its first one on the same stride.
    from += (span.first - from + span.step - 1) / span.step * span.step;
  }
  // Counted, because an LBA behind the last one of all would be 0 again.
  uint64_t lba = from;
  for (uint64_t left = BlockRun{from, span.end, span.step}.count(); left != 0; --left, lba += span.step) {
    table.hardWriteError(write.cmdId, lba);
  }
}

FollowUp absorbStatus(Step& step, const FinishedCommand& finished, const WriteSent& write, const LbaSpan& span) {
  DriveData& data = step.data;
  const bool spliceDetection = step.config.writeSpliceDetection;
  if (finished.status == statusAborted) {
    markFailed(data.atomicHash, write, span, span.first);
    data.trace->traceWriteAborted(finished.lba, finished.xferLength, write.cmdId, finished.tag);
    return afterFailure(write, spliceDetection);
  }
  const SenseResult sense = finished.status == statusGood ? SenseResult{} : readSense(step);
  if (sense.hard) {
    markFailed(data.atomicHash, write, span, sense.informationValid != 0 ? sense.information : finished.lba);
  }
  data.trace->traceWriteFinished(finished.lba, finished.xferLength, write.cmdId, finished.tag, sense.uec, sense.kcq);
  if (sense.hard) {
    return afterFailure(write, spliceDetection && sense.kcq.key != mediumError);
  }
  data.atomicHash.writeFinished(write.cmdId, span);
  return FollowUp{write.readBack != 0, false};
}

/// The read is in flight already: it only learns that it checks for a splice.
void markLinkedRead(DriveData& data, uint64_t readCmdId) {
  const auto read = std::find_if(data.readSent.begin(), data.readSent.end(),
                                 [readCmdId](const ReadSent& candidate) { return candidate.cmdId == readCmdId; });
  if (read != data.readSent.end()) {
    read->spliceCheck = 1;
  }
}

}  // namespace

int32_t recvWrite(Step& step, const FinishedCommand& finished) {
  DriveData& data = step.data;
  const auto write = takeByTag(data.writeSent, finished.tag);
  if (!write) {
    step.log().logf(2, "recvWrite(): Couldn't find write");
    return status::noRecord;
  }
  const LbaSpan span = spanOf(write->lba, write->xferLength, step.config.useSkipCommands);
  const FollowUp next = absorbStatus(step, finished, *write, span);
  if (write->readCmdId != 0) {
    if (next.spliceCheck) {
      markLinkedRead(data, write->readCmdId);
    }
    return status::ok;
  }
  if (next.readBack) {
    data.writeFinished.push_back(
        WriteFinished{write->cmdId, write->lba, write->xferLength, static_cast<uint8_t>(next.spliceCheck ? 1 : 0), 0});
    return status::ok;
  }
  const int32_t result = data.atomicHash.readSkip(span);
  return result == status::ok ? result : logFailure(step, "recvWrite", result);
}

}  // namespace vdl::agent
