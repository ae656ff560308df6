#include "Compare.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "BlockStamp.h"
#include "JudgeInPlace.h"
#include "LazyHasher.h"
#include "Miscompare.h"
#include "SectorBuckets.h"

namespace vdl::agent {

namespace {

/// One block of a read under judgement.
struct Block {
  uint64_t lba;
  const uint8_t* bytes;
  ObserveData observed;
  PeekResult expected;
};

/// How a block's content differs from the reference.
struct Difference {
  uint32_t firstOffset = 0;
  uint32_t bytes = 0;
};

Difference differenceOf(const uint8_t* left, const uint8_t* right, uint32_t size) {
  Difference difference;
  for (uint32_t i = 0; i < size; ++i) {
    if (left[i] != right[i]) {
      if (difference.bytes == 0) {
        difference.firstOffset = i;
      }
      ++difference.bytes;
    }
  }
  return difference;
}

void logCdb(const Step& step) {
  uint64_t size = 0;
  const uint8_t* cdb = step.data.recvCDB->getData(*step.data.lastTagID, &size);
  if (cdb == nullptr || size < 16) {
    step.log().logf(2, "Could not dump CDB: cdb_size = %u", static_cast<unsigned>(cdb == nullptr ? 0 : size));
    return;
  }
  step.log().logf(2, "Miscompare CDB: %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X %02X",
                  cdb[0], cdb[1], cdb[2], cdb[3], cdb[4], cdb[5], cdb[6], cdb[7], cdb[8], cdb[9], cdb[10], cdb[11],
                  cdb[12], cdb[13], cdb[14], cdb[15]);
}

/// Keeps a sector for the dump at the end of the test; without memory there is simply none.
void keepSector(Buffer& keep, const uint8_t* sector, uint32_t bytes) {
  if (!keep.owned) {
    keep.release();
  }
  if (keep.reserve(bytes) == status::ok) {
    std::memcpy(keep.data, sector, bytes);
    keep.size = bytes;
  }
}

int32_t reportMiscompare(Step& step, const ComparableReadData& read, const Block& block, const uint8_t* reference) {
  const uint32_t sector = sectorBytes(step.thread);
  logCdb(step);
  keepSector(*step.data.driveCompareData, block.bytes, sector);
  keepSector(*step.data.referenceCompareData, reference, sector);
  logFailure(step, "compareBlock", status::miscompare);
  triggerMiscompare(step, block.lba, block.expected.block_num, block.observed.block_num, read.cmdId,
                    block.expected.invalidated);
  step.data.trace->setHistory(read.context.getHistory(block.lba));
  return status::miscompare;
}

int32_t compareContent(Step& step, const ComparableReadData& read, const Block& block) {
  const uint8_t* reference = expectedSector(step, block.expected.block_num, block.expected.embed);
  if (reference == nullptr) {
    return status::ok;
  }
  const uint32_t sector = sectorBytes(step.thread);
  const bool equal = std::memcmp(block.bytes, reference, sector) == 0;
  // An invalidated block may hold anything but its last content.
  if (equal != block.expected.invalidated) {
    return status::ok;
  }
  const auto lba = static_cast<unsigned long long>(block.lba);
  if (equal) {
    step.log().logf(2, "Data match on invalidated block at LBA 0x%016llX", lba);
  } else {
    const Difference difference = differenceOf(block.bytes, reference, sector);
    step.log().logf(2, "Miscompare Detected at LBA 0x%016llX, first_offset = %u, num_bytes = %u", lba,
                    difference.firstOffset, difference.bytes);
  }
  return reportMiscompare(step, read, block, reference);
}

int32_t compareHash(Step& step, const ComparableReadData& read, const Block& block, LazyHasher& hasher) {
  if (hasher() == block.expected.hash) {
    return status::ok;
  }
  std::printf("hash compare fail %lx != %lx\n", static_cast<unsigned long>(block.expected.hash),
              static_cast<unsigned long>(hasher()));
  triggerMiscompare(step, block.lba, block_num::unknown, block_num::unknown, read.cmdId, block.expected.invalidated);
  step.data.trace->setHistory(read.context.getHistory(block.lba));
  return status::miscompare;
}

/// @param atomicSeen set when the block may still be either side of an atomic write
int32_t compareBlock(Step& step, const ComparableReadData& read, uint64_t lba, const uint8_t* bytes, bool& atomicSeen) {
  LazyHasher hasher(bytes, bytes + sectorBytes(step.thread));
  Block block{lba, bytes, getObserveData(bytes), {}};
  // What explains the block, if anything does, decides what the peek answers.
  read.context.observe(lba, block.observed, hasher);
  block.expected = read.context.peek(lba);
  switch (block.expected.block_type) {
    case BlockType::Normal:
      return compareContent(step, read, block);
    case BlockType::Atomic:
      atomicSeen = true;
      return compareContent(step, read, block);
    case BlockType::Hash:
      return compareHash(step, read, block, hasher);
    case BlockType::Unknown:
      break;
  }
  return status::ok;
}

int32_t checkAtomicOrder(Step& step, const ComparableReadData& read) {
  uint64_t failedLba = 0;
  if (read.context.atomicValid(failedLba)) {
    return status::ok;
  }
  std::fprintf(stderr, "atomic data ordering failure lba:0x%lx\n", static_cast<unsigned long>(failedLba));
  triggerMiscompare(step, failedLba, block_num::unknown, block_num::unknown, 0, false);
  std::string text = "atomic data ordering failure\n";
  if (failedLba != 0) {
    text += read.context.getHistory(failedLba - 1);
  }
  text += read.context.getHistory(failedLba);
  text += read.context.getHistory(failedLba + 1);
  std::printf("%s\n", text.c_str());
  step.data.trace->setHistory(std::move(text));
  return status::atomicOrder;
}

int32_t dataCompare(Step& step, const ComparableReadData& read) {
  if (read.data.data == nullptr) {
    step.log().logf(2, "Read Buffer == NULL");
    return status::bufferTooLarge;
  }
  const uint64_t sector = sectorBytes(step.thread);
  const uint64_t stride = blockStride(read, sector);
  bool atomicSeen = false;
  for (uint32_t i = 0; i < read.blockCount; ++i) {
    const uint64_t offset = i * stride;
    if (offset + sector > read.data.size) {
      step.log().logf(2, "dataCompare() Read pointer: offset > buff size");
      return status::pointerBeyondBuffer;
    }
    const uint64_t lba = read.lba + uint64_t{i} * read.lbaStep;
    const int32_t result = compareBlock(step, read, lba, read.data.data + offset, atomicSeen);
    if (result != status::ok) {
      return result;
    }
  }
  return atomicSeen ? checkAtomicOrder(step, read) : static_cast<int32_t>(status::ok);
}

/// The same as the table's getContext, into memory that is there: the blocks on which the read waits, the one behind
/// its end included.
void fillContext(const AtomicHash& table, ComparableReadData& read) {
  const uint64_t end = read.lba + uint64_t{read.blockCount} * read.lbaStep;
  read.context.clear();
  if (end < read.lba) {
    return;
  }
  AwaitedEvents awaited(table, read.cmdId, BlockRun{read.lba, end});
  for (uint64_t lba = read.lba; lba < end; ++lba) {
    read.context.copyHistory(lba, awaited.next());
  }
  read.context.copyHistory(end, table.awaitedEvent(read.cmdId, end));
}

/// Ends the read in the table, up to the first refusal.
int32_t finishRead(AtomicHash& table, const ComparableReadData& read) {
  const uint64_t end = read.lba + uint64_t{read.blockCount} * read.lbaStep;
  return table.readFinished(read.cmdId, BlockRun{read.lba, end, read.lbaStep}, false);
}

int32_t judgeRead(Step& step, ComparableReadData& read) {
  if (rightInPlace(step, read)) {
    return finishRead(step.data.atomicHash, read);
  }
  return judgeByHistory(step, read);
}

/// Ids of the outstanding writes, ascending; empty when no read waits for any, which is the rule.
std::vector<uint64_t> writesInFlight(const DriveData& data) {
  std::vector<uint64_t> ids;
  const bool wanted = std::any_of(data.comparableReads.begin(), data.comparableReads.end(),
                                  [](const ComparableReadData& read) { return !read.pendingWrites.empty(); });
  if (wanted) {
    ids.reserve(data.writeSent.size());
    for (const WriteSent& write : data.writeSent) {
      ids.push_back(write.cmdId);
    }
    std::sort(ids.begin(), ids.end());
  }
  return ids;
}

/// Forgets the writes that are no longer in flight; true while one is left.
bool stillWaits(ComparableReadData& read, const std::vector<uint64_t>& inFlight) {
  if (read.pendingWrites.empty()) {
    return false;
  }
  std::erase_if(read.pendingWrites,
                [&inFlight](uint64_t id) { return !std::binary_search(inFlight.begin(), inFlight.end(), id); });
  return !read.pendingWrites.empty();
}

/// What is still to be compared when a step ends outlives the host's memory.
class KeepTheRest {
 public:
  explicit KeepTheRest(std::list<ComparableReadData>& reads) : reads_(reads) {}
  KeepTheRest(const KeepTheRest&) = delete;
  KeepTheRest& operator=(const KeepTheRest&) = delete;
  ~KeepTheRest() {
    for (ComparableReadData& read : reads_) {
      read.keep();
    }
  }

 private:
  std::list<ComparableReadData>& reads_;
};

}  // namespace

int32_t judgeByHistory(Step& step, ComparableReadData& read) {
  if (read.blockCount == 0) {
    return status::ok;
  }
  fillContext(step.data.atomicHash, read);
  const int32_t result = finishRead(step.data.atomicHash, read);
  return result == status::ok ? dataCompare(step, read) : result;
}

int32_t doCompares(Step& step) {
  DriveData& data = step.data;
  const KeepTheRest keepTheRest(data.comparableReads);
  const std::vector<uint64_t> inFlight = writesInFlight(data);
  for (auto read = data.comparableReads.begin(); read != data.comparableReads.end();) {
    if (stillWaits(*read, inFlight)) {
      ++read;
      continue;
    }
    const int32_t result = judgeRead(step, *read);
    const auto done = read++;
    done->context.clear();
    done->forget();
    data.spareReads.splice(data.spareReads.begin(), data.comparableReads, done);
    if (result != status::ok) {
      return logFailure(step, "doCompares", result);
    }
  }
  return status::ok;
}

}  // namespace vdl::agent
