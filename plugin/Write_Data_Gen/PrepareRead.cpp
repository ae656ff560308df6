#include <algorithm>

#include "Conditions.h"
#include "LbaSpan.h"
#include "ReadBack.h"
#include "Scheduling.h"
#include "SectorBuckets.h"

namespace vdl::agent {

namespace {

constexpr const char* operation = "doARead";

/// Blocks of the write that the read leaves out are given up; blocks beside the write are read without a claim.
int32_t recordIssue(AtomicHash& table, uint64_t cmdId, const LbaSpan& write, const LbaSpan& read) {
  if (read.first == write.first && read.end == write.end) {
    return table.readIssued(cmdId, read, true);
  }
  const uint64_t end = std::max(write.end, read.end);
  for (uint64_t lba = std::min(write.first, read.first); lba < end; lba += read.step) {
    const int32_t result = read.contains(lba) ? table.readIssued(cmdId, lba, write.contains(lba)) : table.readSkip(lba);
    if (result != status::ok) {
      return result;
    }
  }
  return status::ok;
}

/// Asks the processor for the sectors of the pool that a read will be compared with, while the drive works on it.
///
/// @param first what the first block should hold
void prefetchContent(Step& step, const PeekResult& first, uint32_t blocks) {
  if (first.block_type != BlockType::Normal) {
    return;
  }
  const uint8_t* content = unstampedSector(step, first.block_num);
  if (content != nullptr) {
    step.data.sectorsAhead.prefetch(content, uint64_t{blocks} * sectorBytes(step.thread));
  }
}

}  // namespace

int32_t doARead(Step& step, uint32_t tag, uint64_t cmdId, const WriteToCheck* write) {
  if (write == nullptr) {
    step.log().logf(2, "doARead(): Invalid WriteSent and WriteFinished");
    return status::noRecord;
  }
  DriveData& data = step.data;
  const bool skip = step.config.useSkipCommands;
  uint64_t lba = write->lba;
  uint32_t xferLength = write->xferLength;
  const LbaSpan written = spanOf(write->lba, write->xferLength, skip);
  if (step.config.slideReads && write->spliceCheck == 0) {
    slideRead(data, lba, xferLength, skip);
    // Only commands without blocks part; what is given up between them was somebody else's.
    const LbaSpan slid = spanOf(lba, xferLength, skip);
    data.referencesBalanced = data.referencesBalanced && slid.first <= written.end && written.first <= slid.end;
  }
  apply(step.config.readCondition, step.thread);
  const PeekResult first = data.atomicHash.peek(lba);
  prefetchContent(step, first, xferLength);
  data.trace->traceReadIssued(lba, xferLength, cmdId, tag, first.block_num, first.invalidated);
  data.readSent.push_back(ReadSent{cmdId, lba, xferLength, tag, write->spliceCheck, write->spliceRetries});
  *data.lba = lba;
  *data.xferLength = xferLength;
  const int32_t result = recordIssue(data.atomicHash, cmdId, written, spanOf(lba, xferLength, skip));
  return result == status::ok ? result : logFailure(step, operation, result);
}

}  // namespace vdl::agent
