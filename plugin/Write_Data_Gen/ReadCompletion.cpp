#include <algorithm>
#include <vector>

#include "Completion.h"
#include "FindByTag.h"
#include "HardError.h"
#include "LbaSpan.h"

namespace vdl::agent {

namespace {

/// Unit error codes that say why a block cannot be read without a write having torn it.
bool excludesSplice(SenseParser::Uec uec) { return uec == 0xF7C3 || uec == 0xF815 || uec == 0xF510 || uec == 0xF827; }

int32_t absorbAbort(Step& step, const FinishedCommand& finished, const ReadSent& read, const LbaSpan& span) {
  DriveData& data = step.data;
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    data.atomicHash.readFinished(read.cmdId, lba, false);
  }
  data.trace->traceReadAborted(finished.lba, finished.xferLength, read.cmdId, finished.tag);
  if (read.spliceCheck != 0 && read.spliceRetries == 0) {
    data.writeFinished.push_front(WriteFinished{0, read.lba, read.xferLength, 1, 1});
    // The repeated check has no reference to pay off.
    data.referencesBalanced = false;
  }
  return status::ok;
}

int32_t absorbHardError(Step& step, const FinishedCommand& finished, const ReadSent& read, const LbaSpan& span,
                        const SenseResult& sense) {
  DriveData& data = step.data;
  data.trace->traceReadFinished(finished.lba, finished.xferLength, read.cmdId, finished.tag, sense.uec, sense.kcq);
  if (read.spliceCheck != 0 && !excludesSplice(sense.uec)) {
    data.trace->traceWriteSplice(finished.lba, finished.xferLength, read.cmdId, finished.tag, sense.uec, sense.kcq);
    data.failureSeen = true;
    step.log().logf(2, "Write Splice Detected at LBA 0x%016llX Transfer Length 0x%lX",
                    static_cast<unsigned long long>(read.lba), static_cast<unsigned long>(read.xferLength));
    return status::writeSplice;
  }
  return data.atomicHash.readFinished(read.cmdId, span, false);
}

/// Finds the writes that were issued before the read, overlap it, and are still in flight: the drive answered out of
/// order.
void overtakenWrites(Step& step, const FinishedCommand& finished, const ReadSent& read, const LbaSpan& span,
                     std::vector<uint64_t>& pending) {
  DriveData& data = step.data;
  pending.clear();
  for (const WriteSent& write : data.writeSent) {
    if (write.cmdId > read.cmdId) {
      break;  // they stand in the order of issue
    }
    const LbaSpan written = spanOf(write.lba, write.xferLength, step.config.useSkipCommands);
    const bool sameBlocks = span.step == 1 || ((written.first ^ span.first) & 1) == 0;
    if (sameBlocks && span.overlaps(written.first, written.end)) {
      pending.push_back(write.cmdId);
      data.trace->traceRecvOutOfOrder(write.cmdId, finished.tag, read.cmdId);
    }
  }
  if (!pending.empty()) {
    std::sort(pending.begin(), pending.end());
    step.log().logf(1, "recvRead(): recv read %lu out of order before write %lu",
                    static_cast<unsigned long>(read.cmdId), static_cast<unsigned long>(pending.front()));
    data.failureSeen = true;
  }
}

/// A read that waits for no write is compared before the step ends, where the host has put it.
int32_t takeReadData(Step& step, uint32_t tag, ComparableReadData& kept) {
  uint64_t size = 0;
  uint8_t* bytes = step.data.readDataPtr == nullptr ? nullptr : step.data.readDataPtr->getData(tag, &size);
  if (bytes == nullptr) {
    step.log().logf(2, "Read Buffer == NULL");
    return status::bufferTooLarge;
  }
  const int32_t result = kept.view(bytes, size);
  if (result == status::ok && !kept.pendingWrites.empty()) {
    kept.keep();
  }
  return result;
}

/// Keeps the read's data for the compare. Blocks from a reported failing LBA on are not compared, so they end here.
int32_t keepForCompare(Step& step, const FinishedCommand& finished, const ReadSent& read, const LbaSpan& span,
                       const SenseResult& sense) {
  DriveData& data = step.data;
  if (data.spareReads.empty()) {
    data.spareReads.emplace_back();
  }
  // Its node moves between the lists, and its memory with it.
  ComparableReadData& kept = data.spareReads.front();
  kept.cmdId = read.cmdId;
  kept.xferLength = read.xferLength;
  kept.lba = read.lba;
  kept.lbaStep = static_cast<uint8_t>(span.step);
  kept.blockCount = 0;
  overtakenWrites(step, finished, read, span, kept.pendingWrites);
  int32_t result = takeReadData(step, finished.tag, kept);

  const uint64_t limit = sense.informationValid != 0 ? sense.information : span.end;
  const BlockRun compared{span.first, std::min(limit, span.end), span.step};
  kept.blockCount = static_cast<uint32_t>(compared.count());
  if (limit < span.end) {
    const BlockRun rest{span.first + compared.count() * span.step, span.end, span.step};
    const int32_t refused = data.atomicHash.readFinished(read.cmdId, rest, false);
    result = refused == status::ok ? result : refused;
  }
  if (result == status::ok) {
    data.comparableReads.splice(data.comparableReads.end(), data.spareReads, data.spareReads.begin());
  } else {
    kept.forget();
  }
  return result;
}

}  // namespace

int32_t recvRead(Step& step, const FinishedCommand& finished) {
  DriveData& data = step.data;
  const auto read = takeByTag(data.readSent, finished.tag);
  if (!read) {
    step.log().logf(2, "recvRead(): couldn't find read");
    return status::noRecord;
  }
  const LbaSpan span = spanOf(read->lba, read->xferLength, step.config.useSkipCommands);
  if (finished.status == statusAborted) {
    return absorbAbort(step, finished, *read, span);
  }
  const SenseResult sense = finished.status == statusGood ? SenseResult{} : readSense(step);
  if (sense.hard) {
    return absorbHardError(step, finished, *read, span, sense);
  }
  data.trace->traceReadFinished(finished.lba, finished.xferLength, read->cmdId, finished.tag, sense.uec, sense.kcq);
  if (read->spliceCheck != 0 || *data.readDataIsValid == 0) {
    return data.atomicHash.readFinished(read->cmdId, span, false);
  }
  const int32_t result = keepForCompare(step, finished, *read, span, sense);
  return result == status::ok ? result : logFailure(step, "recvRead", result);
}

}  // namespace vdl::agent
