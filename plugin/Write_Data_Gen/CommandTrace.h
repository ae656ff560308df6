#pragma once

#include <sys/time.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "Event.h"
#include "vdl/DriveThread.h"
#include "vdl/SenseParser.h"

namespace vdl {

/// What a trace entry stands for. The numbers are part of the report's format.
enum class TraceType : uint8_t {
  Unknown = 0,
  WriteIssued = 1,
  WriteFinished = 2,
  WriteAborted = 3,
  WriteAtomicIssued = 4,
  WriteSameIssued = 5,
  TrimIssued = 6,
  PreReadIssued = 7,
  ReadIssued = 8,
  ReadFinished = 9,
  ReadAborted = 10,
  VerifyIssued = 11,
  VerifyFinished = 12,
  VerifyAborted = 13,
  Miscompare = 14,
  WriteSplice = 15,
  RecvOutOfOrder = 16,
  PowerToggleOff = 17,
  PowerToggleOn = 18,
  SyncIssued = 19,
  SyncFinished = 20,
  InvalidateRange = 21,
  ZoneReset = 22,
};

/// The most recent commands of one drive, in a ring, and what was last issued on every tag.
///
/// An append writes one entry and at most one row of the tag table; nothing is allocated after construction. A tag
/// of 1024 or more, or an append to a ring without entries, is a programming error and aborts the process in every
/// build.
///
/// Operations that take an LBA take it first, then the length in blocks, the command id and the tag.
class CommandTrace {
 public:
  /// One entry of the ring.
  struct TraceInfo {
    uint64_t lba = 0;     ///< first LBA; first of a range; of an out-of-order entry the id of the overtaken write
    uint64_t cmd_id = 0;  ///< command id; end of a range
    uint32_t xfer_len = 0;
    uint32_t tag = 0;    ///< tag; milliseconds of a power toggle; of a miscompare the block number found
    uint32_t block = 0;  ///< block number; the expected one of a miscompare; the unit error code of a completion
    SenseParser::Kcq kcq;
    uint8_t flag = 0;  ///< printed as "!"
    TraceType type = TraceType::Unknown;
  };
  static_assert(sizeof(TraceInfo) == 40);

  /// What was last traced on a tag: an issue sets all of it, a completion or abort only the type.
  struct TagSlot {
    uint64_t lba = 0;
    uint32_t xfer_len = 0;
    TraceType type = TraceType::Unknown;
  };

  static constexpr uint32_t tagCount = 1024;

  /// Entries that a ring gets: four times the depth asked for but at least 2000; four times the queue and 100 more
  /// when no depth is asked for.
  static constexpr uint32_t ringSize(uint32_t traceDepth, uint32_t maxQueueSize) {
    if (traceDepth == 0) {
      return 4 * maxQueueSize + 100;
    }
    return 4 * traceDepth > 2000 ? 4 * traceDepth : 2000;
  }

  /// Throws std::bad_alloc or std::length_error when the ring cannot be had.
  explicit CommandTrace(uint64_t size) : ring_(size + entriesAhead), trace_queue_size(size) {}

  void traceWriteIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, BlockNum block) {
    issued(TraceType::WriteIssued, lba, length, cmd_id, tag, block, false, __func__);
  }
  void traceWriteAtomicIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, BlockNum block) {
    issued(TraceType::WriteAtomicIssued, lba, length, cmd_id, tag, block, false, __func__);
  }
  void traceWriteSameIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, BlockNum block) {
    issued(TraceType::WriteSameIssued, lba, length, cmd_id, tag, block, false, __func__);
  }
  void traceTrimIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag) {
    issued(TraceType::TrimIssued, lba, length, cmd_id, tag, 0, false, __func__);
  }
  void tracePreReadIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag) {
    issued(TraceType::PreReadIssued, lba, length, cmd_id, tag, 0, false, __func__);
  }
  /// @param block expected block number of the first block
  /// @param flag  an invalidation lies over the first block's event
  void traceReadIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, BlockNum block, bool flag) {
    issued(TraceType::ReadIssued, lba, length, cmd_id, tag, block, flag, __func__);
  }
  void traceVerifyIssued(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, BlockNum block, bool flag) {
    issued(TraceType::VerifyIssued, lba, length, cmd_id, tag, block, flag, __func__);
  }

  void traceWriteFinished(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, SenseParser::Uec uec,
                          SenseParser::Kcq kcq) {
    ended(TraceType::WriteFinished, lba, length, cmd_id, tag, uec, kcq, __func__);
  }
  void traceReadFinished(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, SenseParser::Uec uec,
                         SenseParser::Kcq kcq) {
    ended(TraceType::ReadFinished, lba, length, cmd_id, tag, uec, kcq, __func__);
  }
  void traceVerifyFinished(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, SenseParser::Uec uec,
                           SenseParser::Kcq kcq) {
    ended(TraceType::VerifyFinished, lba, length, cmd_id, tag, uec, kcq, __func__);
  }
  void traceWriteAborted(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag) {
    ended(TraceType::WriteAborted, lba, length, cmd_id, tag, 0, {}, __func__);
  }
  void traceReadAborted(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag) {
    ended(TraceType::ReadAborted, lba, length, cmd_id, tag, 0, {}, __func__);
  }
  void traceVerifyAborted(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag) {
    ended(TraceType::VerifyAborted, lba, length, cmd_id, tag, 0, {}, __func__);
  }

  /// Entry: `tag` holds what was found, `block` what was expected.
  void traceMiscompare(uint64_t lba, BlockNum expected, BlockNum found, uint64_t cmd_id, bool flag) {
    TraceInfo& entry = append(TraceType::Miscompare, __func__);
    entry.lba = lba;
    entry.cmd_id = cmd_id;
    entry.tag = found;
    entry.block = expected;
    entry.flag = flag ? 1 : 0;
  }

  /// Neither an issue nor a completion: the tag's row stays.
  void traceWriteSplice(uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, SenseParser::Uec uec,
                        SenseParser::Kcq kcq) {
    checkTag(tag, __func__);
    TraceInfo& entry = append(TraceType::WriteSplice, __func__);
    fill(entry, lba, length, cmd_id, tag);
    entry.block = uec;
    entry.kcq = kcq;
  }

  /// A read finished before a write that was issued earlier; the tag's row stays.
  void traceRecvOutOfOrder(uint64_t writeId, uint32_t tag, uint64_t readId) {
    checkTag(tag, __func__);
    TraceInfo& entry = append(TraceType::RecvOutOfOrder, __func__);
    fill(entry, writeId, 0, readId, tag);
  }

  void tracePowerOff() { append(TraceType::PowerToggleOff, __func__).tag = nowMs(); }
  void tracePowerOn() { append(TraceType::PowerToggleOn, __func__).tag = nowMs(); }

  void traceSyncIssued(uint32_t tag) { issued(TraceType::SyncIssued, 0, 0, 0, tag, 0, false, __func__); }
  void traceSyncFinished(uint32_t tag, SenseParser::Uec uec, SenseParser::Kcq kcq) {
    ended(TraceType::SyncFinished, 0, 0, 0, tag, uec, kcq, __func__);
  }

  /// The range as it was given; whether `end` belongs to it is the caller's convention.
  void traceInvalidate(uint64_t first, uint64_t end) { range(TraceType::InvalidateRange, first, end, __func__); }
  void traceZoneReset(uint64_t first, uint64_t end) { range(TraceType::ZoneReset, first, end, __func__); }

  /// What was last traced on a tag; a tag that cannot exist has an empty slot.
  TagSlot slot(uint32_t tag) const { return tag < tagCount ? tags_[tag] : TagSlot{}; }

  /// Writes one section of the report: every entry from the oldest on, or with `filter` those that touch `lba`.
  ///
  /// @param mask selects the bits of an LBA that name its media block; all ones: no block is shared
  void dumpCmdData(FILE* file, bool filter, bool miscompareHeader, uint64_t lba, uint64_t mask) const;

  /// Writes the command-sequence report; after a miscompare first the commands that touched `lba`.
  ///
  /// @param path requested file name; an existing file is not overwritten but gets a numbered neighbour
  /// @return 0, 5 or 6 as `fs::openFile` says; -1052 when no file could be opened
  int createReport(DriveThread* drive, std::string path, bool miscompare, uint64_t lba, uint64_t mask) const;

  /// History of a block that was judged wrong; the report shows it between its two sections.
  void setHistory(std::string text) { history_ = std::move(text); }
  const std::string& history() const { return history_; }

  uint64_t size() const { return trace_queue_size; }
  uint64_t count() const { return count_; }         ///< entries ever traced
  uint64_t nextIndex() const { return trace_idx; }  ///< where the next entry goes
  const TraceInfo& entry(uint64_t index) const { return ring_[index]; }

 private:
  [[noreturn]] static void fail(const char* expression, const char* operation);

  static void checkTag(uint32_t tag_id, const char* operation) {
    if (tag_id >= tagCount) {
      fail("tag_id < 1024 && tag_id >= 0", operation);
    }
  }

  static uint32_t nowMs() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000);
  }

  static void fill(TraceInfo& entry, uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag) {
    entry.lba = lba;
    entry.cmd_id = cmd_id;
    entry.xfer_len = length;
    entry.tag = tag;
  }

  /// The oldest entry, emptied: fields that an operation does not name must not survive from the command before.
  TraceInfo& append(TraceType type, const char* operation) {
    if (trace_idx >= trace_queue_size) {
      fail("trace_idx < trace_queue_size", operation);
    }
    TraceInfo& entry = ring_[trace_idx];
    entry = TraceInfo{};
    entry.type = type;
    if (++trace_idx == trace_queue_size) {
      trace_idx = 0;
    }
    ++count_;
    __builtin_prefetch(&ring_[trace_idx] + entriesAhead);
    return entry;
  }

  void issued(TraceType type, uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, BlockNum block, bool flag,
              const char* operation) {
    checkTag(tag, operation);
    TraceInfo& entry = append(type, operation);
    fill(entry, lba, length, cmd_id, tag);
    entry.block = block;
    entry.flag = flag ? 1 : 0;
    tags_[tag] = TagSlot{lba, length, type};
  }

  void ended(TraceType type, uint64_t lba, uint32_t length, uint64_t cmd_id, uint32_t tag, SenseParser::Uec uec,
             SenseParser::Kcq kcq, const char* operation) {
    checkTag(tag, operation);
    TraceInfo& entry = append(type, operation);
    fill(entry, lba, length, cmd_id, tag);
    entry.block = uec;
    entry.kcq = kcq;
    tags_[tag].type = type;
  }

  void range(TraceType type, uint64_t first, uint64_t end, const char* operation) {
    TraceInfo& entry = append(type, operation);
    entry.lba = first;
    entry.cmd_id = end;
  }

  /// How far before its time an entry is asked for: the ring is larger than the nearest caches, and what is written to
  /// a place has to wait until its old content has come from memory.
  static constexpr uint64_t entriesAhead = 4;

  std::vector<TraceInfo> ring_;  ///< with `entriesAhead` more behind its end, which nobody uses
  uint64_t trace_queue_size;
  uint64_t count_ = 0;
  uint64_t trace_idx = 0;
  std::array<TagSlot, tagCount> tags_{};
  std::string history_;
};

/// The name that the report prints for a type; "Unknown" for a type without one.
const char* traceTypeName(TraceType type);

}  // namespace vdl
