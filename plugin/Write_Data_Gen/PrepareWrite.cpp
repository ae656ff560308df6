#include "LbaSpan.h"
#include "Scheduling.h"
#include "SectorBuckets.h"
#include "SectorPrefetch.h"
#include "TablePrefetch.h"
#include "WriteData.h"

namespace vdl::agent {

namespace {

constexpr const char* operation = "doAWrite";

enum class WriteKind { write, writeSame, trim };

/// Which write kinds are to run: the configured one, or those that the test selected when there is a choice.
struct SelectedKinds {
  SelectedKinds(const ConfigData& config, const ActiveConditions& active)
      : write(configured(config.writeCondition)),
        writeSame(configured(config.writeSameCondition)),
        trim(configured(config.trimCondition)) {
    if (count() >= 2) {
      write = active.write;
      writeSame = active.writeSame;
      trim = active.trim;
    }
  }

  int count() const { return static_cast<int>(write) + static_cast<int>(writeSame) + static_cast<int>(trim); }

  /// The kind, when exactly one is selected.
  WriteKind kind() const { return write ? WriteKind::write : writeSame ? WriteKind::writeSame : WriteKind::trim; }

  bool write;
  bool writeSame;
  bool trim;
};

const Condition& conditionOf(const ConfigData& config, WriteKind kind) {
  switch (kind) {
    case WriteKind::write:
      return config.writeCondition;
    case WriteKind::writeSame:
      return config.writeSameCondition;
    case WriteKind::trim:
      break;
  }
  return config.trimCondition;
}

/// On a zoned drive only the test knows where the next write may go.
void takeHostManagedLba(DriveData& data) {
  if (data.hostManaged == nullptr || *data.hostManaged == 0 || data.writeLBA == nullptr ||
      data.writeXferLength == nullptr) {
    return;
  }
  *data.lba = *data.writeLBA;
  *data.xferLength = *data.writeXferLength;
  if (data.writeCmdUsed != nullptr) {
    ++*data.writeCmdUsed;
  }
  if (data.skipGenOnList) {
    *data.skipGen = 1;
  }
}

struct WriteCommand {
  WriteKind kind;
  uint32_t tag;
  uint64_t cmdId;
  uint64_t lba;
  uint32_t xferLength;
  bool e2e;
  BlockNum bucket;
};

/// With skip commands the data carry consecutive LBAs while the table records every other one; hosts that mix
/// stamps and skip commands know it.
int32_t recordIssue(Step& step, const WriteCommand& write) {
  const LbaSpan span = spanOf(write.lba, write.xferLength, step.config.useSkipCommands);
  WrittenContent content{write.bucket, EmbedData{step.config.embedData, write.cmdId, write.lba}};
  content.nextBucketEach = write.kind == WriteKind::write;
  content.ownLbaEach = write.kind != WriteKind::writeSame;
  if (write.kind == WriteKind::trim) {
    content.embed.valid = false;
  }
  return step.data.atomicHash.writeIssued(write.cmdId, span, content);
}

/// Tells the table of the write and makes its data.
int32_t prepareBlocks(Step& step, WriteCommand& write) {
  if (write.kind == WriteKind::trim) {
    write.bucket = block_num::zero;
    *step.data.bucketIndex = write.bucket;
    return recordIssue(step, write);
  }
  write.bucket = chooseBucket(step, write.xferLength);
  const uint32_t blocks = write.kind == WriteKind::writeSame ? 1 : write.xferLength;
  const WriteBlocks content{write.tag, write.lba, write.cmdId, write.bucket, blocks, write.e2e, step.config.embedData};
  // The sectors are on their way while the table is told.
  const uint32_t sector = sectorBytes(step.thread);
  prefetchBytes(step.data.buckets + uint64_t{write.bucket} * sector, uint64_t{blocks} * sector);
  uint8_t* buffer = roomForWriteData(step, content);
  if (buffer == nullptr) {
    return status::outOfMemory;
  }
  const int32_t result = recordIssue(step, write);
  fillWriteData(step, content, buffer);
  return result;
}

void traceIssue(CommandTrace& trace, const WriteCommand& write) {
  switch (write.kind) {
    case WriteKind::write:
      return trace.traceWriteIssued(write.lba, write.xferLength, write.cmdId, write.tag, write.bucket);
    case WriteKind::writeSame:
      return trace.traceWriteSameIssued(write.lba, write.xferLength, write.cmdId, write.tag, write.bucket);
    case WriteKind::trim:
      return trace.traceTrimIssued(write.lba, write.xferLength, write.cmdId, write.tag);
  }
}

}  // namespace

int32_t doAWrite(Step& step, uint32_t tag, const ActiveConditions& active) {
  DriveData& data = step.data;
  takeHostManagedLba(data);
  WriteCommand write{WriteKind::write, tag, data.nextCmdId++, *data.lba, *data.xferLength, false, 0};
  TablePrefetch::askForWrite(data, write.lba);
  int32_t result = checkTransferLength(step, write.xferLength);

  // The record stays even when the command is refused below.
  data.writeSent.push_back(WriteSent{write.cmdId, 0, write.lba, write.xferLength, tag, 1, 0});

  // The end-to-end selection is the test's, so it counts as it was before this write's own condition.
  write.e2e = holds(step.config.e2eCondition, step.thread.conditions);
  const SelectedKinds kinds(step.config, active);
  if (kinds.count() == 1) {
    write.kind = kinds.kind();
    apply(conditionOf(step.config, write.kind), step.thread);
  } else {
    step.log().logf(2, "%s", kinds.count() == 0 ? "No write command selected" : "Multiple write commands selected");
    result = status::incompatibleOptions;
  }
  if (result != status::ok) {
    return logFailure(step, operation, result);
  }

  result = prepareBlocks(step, write);
  traceIssue(*data.trace, write);
  return result == status::ok ? result : logFailure(step, operation, result);
}

}  // namespace vdl::agent
