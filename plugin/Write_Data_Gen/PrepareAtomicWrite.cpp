#include <algorithm>
#include <optional>

#include "LbaSpan.h"
#include "Scheduling.h"
#include "WriteData.h"

namespace vdl::agent {

namespace {

constexpr const char* operation = "doAWriteAtomic";

void publishRange(DriveData& data, const PreRead& preRead) {
  if (data.skipGenOnList) {
    *data.skipGen = 1;
  }
  *data.lba = preRead.lba;
  *data.xferLength = preRead.xferLength;
  *data.atomicBound = preRead.writeParam;
}

RecordQueue<PreRead>::iterator firstUnclaimed(RecordQueue<PreRead>& preReads) {
  return std::find_if(preReads.begin(), preReads.end(), [](const PreRead& preRead) { return preRead.readCmdId == 0; });
}

/// What an atomic write can be built on.
struct Base {
  bool usable = false;
  std::optional<uint64_t> preReadToDrop;  ///< the finished pre-read whose hashes the write replaces
};

/// Known content at the test's own range; else the range of a pre-read, finished or still in flight.
Base findBase(Step& step) {
  DriveData& data = step.data;
  if (data.atomicHash.isStateKnown(*data.lba, *data.lba + *data.xferLength)) {
    return Base{true, {}};
  }
  if (const auto finished = firstUnclaimed(data.preReadFinished); finished != data.preReadFinished.end()) {
    const Base base{true, finished->cmdId};
    publishRange(data, *finished);
    data.preReadFinished.erase(finished);
    return base;
  }
  if (const auto sent = firstUnclaimed(data.preReadSent); sent != data.preReadSent.end()) {
    sent->readCmdId = data.nextCmdId;
    publishRange(data, *sent);
    return Base{true, {}};
  }
  return Base{};
}

int32_t issuePreRead(Step& step, uint32_t tag) {
  DriveData& data = step.data;
  PreRead preRead{data.nextCmdId++, 0, *data.lba, *data.xferLength, tag, 1, *data.atomicBound, 0};
  if (!data.preReadRequeue.empty()) {
    // The shared LBA and length stay the test's own here.
    const uint64_t cmdId = preRead.cmdId;
    if (data.skipGenOnList) {
      *data.skipGen = 1;
    }
    preRead = data.preReadRequeue.front();
    preRead.cmdId = cmdId;
    preRead.tagId = tag;
    data.preReadRequeue.pop_front();
  }
  data.trace->tracePreReadIssued(preRead.lba, preRead.xferLength, preRead.cmdId, tag);
  data.preReadSent.push_back(preRead);
  apply(step.config.readCondition, step.thread);
  return status::ok;
}

/// Walks the segments of an atomic command, block by block.
class SegmentWalk {
 public:
  SegmentWalk(uint32_t bound, uint64_t end) : length_(bound), end_(end) {}

  /// The block's place; the last segment ends with the command.
  AtomicSegment at(uint64_t lba) {
    if (offset_ == 0 && lba + length_ > end_) {
      length_ = static_cast<uint32_t>(end_ - lba);
    }
    return AtomicSegment{offset_, length_, segment_};
  }

  void advance() {
    // Without a bound there is nothing to walk through.
    if (length_ != 0 && ++offset_ == length_) {
      offset_ = 0;
      ++segment_;
    }
  }

 private:
  uint32_t offset_ = 0;
  uint32_t length_;
  uint32_t segment_ = 0;
  uint64_t end_;
};

struct AtomicCommand {
  uint32_t tag;
  uint64_t cmdId;
  uint64_t lba;
  uint32_t xferLength;
  uint32_t bound;
  BlockNum bucket;
};

int32_t recordIssue(Step& step, const AtomicCommand& write, const Base& base) {
  AtomicHash& table = step.data.atomicHash;
  const LbaSpan span = spanOf(write.lba, write.xferLength, step.config.useSkipCommands);
  SegmentWalk segments(write.bound, span.end);
  BlockNum bucket = write.bucket;
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    int32_t result =
        table.atomicWriteIssued(write.cmdId, lba, bucket, EmbedData{true, write.cmdId, lba}, segments.at(lba));
    if (result == status::ok && base.preReadToDrop) {
      result = table.dropHash(*base.preReadToDrop, lba);
    }
    if (result != status::ok) {
      return result;
    }
    segments.advance();
    ++bucket;
  }
  return status::ok;
}

int32_t issueAtomicWrite(Step& step, uint32_t tag, const Base& base) {
  DriveData& data = step.data;
  AtomicCommand write{tag, data.nextCmdId++, *data.lba, *data.xferLength, *data.atomicBound, 0};
  int32_t result = checkTransferLength(step, write.xferLength);
  data.writeSent.push_back(WriteSent{write.cmdId, 0, write.lba, write.xferLength, tag, 1, 1});
  apply(step.config.writeAtomicCondition, step.thread);
  // Unlike a plain write's, this selection counts as it is after the command's own condition.
  const bool e2e = holds(step.config.e2eCondition, step.thread.conditions);
  if (result != status::ok) {
    return logFailure(step, operation, result);
  }

  write.bucket = chooseBucket(step, write.xferLength);
  // Always stamped: without it nobody could tell whether a torn block is the old or the new one.
  result = assembleWriteData(step, WriteBlocks{tag, write.lba, write.cmdId, write.bucket, write.xferLength, e2e, true});
  if (result == status::ok) {
    result = recordIssue(step, write, base);
  }
  data.trace->traceWriteAtomicIssued(write.lba, write.xferLength, write.cmdId, tag, write.bucket);
  return result == status::ok ? result : logFailure(step, operation, result);
}

}  // namespace

int32_t doAWriteAtomic(Step& step, uint32_t tag) {
  const Base base = findBase(step);
  return base.usable ? issueAtomicWrite(step, tag, base) : issuePreRead(step, tag);
}

}  // namespace vdl::agent
