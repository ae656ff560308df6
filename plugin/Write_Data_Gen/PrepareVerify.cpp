#include <algorithm>
#include <cstring>

#include "BlockStamp.h"
#include "Conditions.h"
#include "LbaSpan.h"
#include "ReadBack.h"
#include "SectorBuckets.h"
#include "WriteData.h"

namespace vdl::agent {

namespace {

constexpr const char* operation = "doAVerify";

/// What a verify covers.
struct VerifyRange {
  uint64_t lba;
  uint32_t xferLength;
  bool expectMiscompare;
};

/// The first run of known blocks. Without one the whole write is sent with data that cannot match: the drive must
/// then say so.
VerifyRange knownRun(const AtomicHash& table, const WriteToCheck& write) {
  const LbaSpan span = spanOf(write.lba, write.xferLength, false);
  uint64_t first = span.first;
  while (first < span.end && table.peek(first).block_num == block_num::unknown) {
    ++first;
  }
  if (first == span.end) {
    return VerifyRange{write.lba, std::max<uint32_t>(write.xferLength, 1), true};
  }
  bool expectMiscompare = false;
  uint64_t end = first;
  for (; end < span.end; ++end) {
    const PeekResult expected = table.peek(end);
    expectMiscompare = expectMiscompare || expected.invalidated;
    if (expected.block_num == block_num::unknown) {
      break;
    }
  }
  return VerifyRange{first, static_cast<uint32_t>(end - first), expectMiscompare};
}

/// Random bytes that say of themselves that they are no bucket.
void fillUnknownBlock(Step& step, uint8_t* block, uint64_t cmdId) {
  const uint64_t byteOffset = step.data.rng() % step.config.bucketCount;
  std::memcpy(block, step.data.buckets + byteOffset, sectorBytes(step.thread));
  block[0] = 8;
  block[1] = 0;
  block[2] = 1;
  block[3] = 0;
  stampCommandId(block, cmdId);
}

int32_t assembleVerifyData(Step& step, uint32_t tag, uint64_t cmdId, const VerifyRange& range, bool e2e) {
  const uint32_t sector = sectorBytes(step.thread);
  const uint64_t unit = sector + (e2e ? e2eBytes : 0);
  const uint64_t total = unit * std::max<uint32_t>(range.xferLength, 1);
  uint8_t* buffer = tagBuffer(step, tag, total);
  if (buffer == nullptr) {
    return status::outOfMemory;
  }
  for (uint32_t i = 0; i < range.xferLength; ++i) {
    uint8_t* block = buffer + i * unit;
    const PeekResult expected = step.data.atomicHash.peek(range.lba + i);
    const uint8_t* content = expectedSector(step, expected.block_num, expected.embed);
    if (content == nullptr) {
      fillUnknownBlock(step, block, cmdId);
    } else {
      std::memcpy(block, content, sector);
    }
  }
  step.data.writeData->view(buffer, total);
  return status::ok;
}

/// Every LBA of the write, also with skip commands: a verify has no mask.
int32_t recordIssue(AtomicHash& table, uint64_t cmdId, const WriteToCheck& write, const VerifyRange& range) {
  const LbaSpan verify = spanOf(range.lba, range.xferLength, false);
  const LbaSpan written = spanOf(write.lba, write.xferLength, false);
  // The verify lies inside the write, but for one of a write without blocks.
  const uint64_t first = std::min(verify.first, written.end);
  const uint64_t end = std::min(verify.end, written.end);
  int32_t result = table.readSkip(BlockRun{written.first, first});
  if (result == status::ok) {
    result = table.readIssued(cmdId, BlockRun{first, end}, true);
  }
  return result == status::ok ? table.readSkip(BlockRun{end, written.end}) : result;
}

}  // namespace

int32_t doAVerify(Step& step, uint32_t tag, uint64_t cmdId, const WriteToCheck* write) {
  if (write == nullptr) {
    step.log().logf(2, "doAVerify(): Invalid WriteSent and WriteFinished");
    return status::noRecord;
  }
  DriveData& data = step.data;
  const VerifyRange range = knownRun(data.atomicHash, *write);
  apply(step.config.verifyCondition, step.thread);
  const bool e2e = holds(step.config.e2eCondition, step.thread.conditions);
  if (const int32_t result = assembleVerifyData(step, tag, cmdId, range, e2e); result != status::ok) {
    return logFailure(step, operation, result);
  }
  const PeekResult first = data.atomicHash.peek(range.lba);
  data.trace->traceVerifyIssued(range.lba, range.xferLength, cmdId, tag, first.block_num, first.invalidated);
  data.verifySent.push_back(
      VerifySent{cmdId, range.lba, range.xferLength, tag, static_cast<uint8_t>(range.expectMiscompare ? 1 : 0)});
  *data.lba = range.lba;
  *data.xferLength = range.xferLength;
  const int32_t result = recordIssue(data.atomicHash, cmdId, *write, range);
  return result == status::ok ? result : logFailure(step, operation, result);
}

}  // namespace vdl::agent
