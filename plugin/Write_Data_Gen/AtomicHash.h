#pragma once

#include <cstddef>
#include <cstdint>

#include "AtomicContext.h"
#include "BlockRun.h"
#include "ChunkPool.h"
#include "Event.h"
#include "LBARecord.h"
#include "RecordTable.h"

namespace vdl {

/// What a normal write leaves on its blocks.
struct WrittenContent {
  BlockNum block;               ///< of the first block
  EmbedData embed;              ///< of the first block
  bool nextBucketEach = false;  ///< every block takes the bucket behind its predecessor's
  bool ownLbaEach = false;      ///< every block is stamped with its own LBA, whatever `embed` says
};

/// The expected state of a drive: for every block that still matters, the history of what was done to it.
///
/// A record lives while somebody has a claim on it: `ref_count` counts writes to read back, hashes kept with a
/// reference and reads to repeat; `wait_read` holds the reads in flight. When both are gone the record and its
/// events go too.
///
/// Statuses: 0; -1002 no memory; -1003 no record or no matching event; -1200 a reference count that had to be
/// positive. A refusal writes one line to standard error, numbers in hexadecimal, and changes nothing; the stream
/// stays in hexadecimal. An event that cannot be had for lack of memory is left out silently. Nothing here throws
/// but `getContext`.
///
/// The argument order is the command id first, then the LBA, except in `getContext`.
///
/// Operations on a `BlockRun` do what the same ones do block by block, in ascending order, and stop at the first
/// refusal; the blocks before it keep what was done. They look each 64 neighbouring LBAs up once. Without memory for
/// new records none of those 64 is changed.
class AtomicHash {
 public:
  using Records = RecordTable;

  /// How `invalidate` marks a range.
  enum InvalidationMethod : uint32_t {
    InvalidateKeepPrior = 0,  ///< the previous content stays the expectation, as what must be gone
    InvalidateReplace = 1,    ///< nothing is expected any more
  };

  AtomicHash() = default;
  AtomicHash(const AtomicHash&) = delete;
  AtomicHash& operator=(const AtomicHash&) = delete;

  /// The newest event of a block that is not a marker.
  PeekResult peek(uint64_t lba) const;

  /// A normal write over the block was issued: one more reference, one more event.
  int32_t writeIssued(uint64_t cmd_id, uint64_t lba, BlockNum block, EmbedData embed);
  int32_t writeIssued(uint64_t cmd_id, const BlockRun& run, const WrittenContent& content);
  /// An atomic write over the block was issued; its event is transparent until `writeFinished`.
  int32_t atomicWriteIssued(uint64_t cmd_id, uint64_t lba, BlockNum block, EmbedData embed, AtomicSegment segment);
  /// The write is on the medium.
  void writeFinished(uint64_t cmd_id, uint64_t lba);
  void writeFinished(uint64_t cmd_id, const BlockRun& run);
  /// The write failed: a normal write's content becomes unknown, an atomic write stays transparent.
  void hardWriteError(uint64_t cmd_id, uint64_t lba);

  /// Whether the newest event that is not transparent is known.
  bool isStateKnown(const Records::const_iterator& record) const;
  /// Whether every block from `first` below `end` is known. A record at `end` itself is required, too.
  bool isStateKnown(uint64_t first, uint64_t end) const;

  /// Puts an event into a record's list by its id. Null arguments do nothing.
  void insertEvent(LBARecord* record, Event* event);

  /// Marks every record from `first` to `last`, both included. References stay.
  void invalidate(uint64_t first, uint64_t last, InvalidationMethod method);

  /// A read over the block was issued and waits for the history as it stands now.
  ///
  /// @param expect the read pays a write's reference off; the record must have one
  int32_t readIssued(uint64_t cmd_id, uint64_t lba, bool expect);
  int32_t readIssued(uint64_t cmd_id, const BlockRun& run, bool expect);
  /// The event at which a read waits on the block: the newest one when the read was issued. Null when it does not wait
  /// there, or when nothing could be kept of the block.
  const Event* awaitedEvent(uint64_t cmd_id, uint64_t lba) const;
  /// The read is done; answers what it may have seen, as of its issue.
  ///
  /// @param keep leave a reference for a read that will be repeated
  PeekResult readFinished(uint64_t cmd_id, uint64_t lba, bool keep);
  /// The same for a run, for those who only ask how it went.
  /// @return 0; -1003 at the first block without a waiting read, or of which nothing is known but markers
  int32_t readFinished(uint64_t cmd_id, const BlockRun& run, bool keep);
  /// A reference is given back without a read.
  int32_t readSkip(uint64_t lba);
  int32_t readSkip(const BlockRun& run);

  /// Keeps the hash of a block's content, with a reference of its own if asked.
  int32_t saveHash(uint64_t cmd_id, uint64_t lba, uint64_t hash, bool addRef);
  /// Gives a kept hash's reference back; the event stays while the record lives.
  int32_t dropHash(uint64_t cmd_id, uint64_t lba);

  /// Removes the record when nobody has a claim on it.
  void hashClean(const Records::const_iterator& record);
  void hashClean(uint64_t lba);

  /// The histories from `first` to `last`, both included, of the blocks on which the read waits.
  /// Throws std::bad_alloc without memory.
  AtomicContext getContext(uint64_t first, uint64_t last, uint64_t cmd_id) const;

  // What an operation on blocks will read, asked for ahead of it: first the place of a block's page, some time later
  // the page, the record, then the events. Blocks that are not on record cost nothing and do no harm.
  bool outgrowsCaches() const { return records_.outgrowsCaches(); }
  void prefetchPlace(uint64_t lba) const { records_.prefetchPlace(lba); }
  void prefetchPage(uint64_t lba) const { records_.prefetchPage(lba); }
  void prefetchRecord(uint64_t lba) const { records_.prefetchRecord(lba); }
  void prefetchEvents(uint64_t lba, uint32_t blocks) const;

  const Records& records() const { return records_; }
  /// Memory for records, events and waits, bytes. It only grows.
  std::size_t bytes() const { return records_.bytes() + events_.bytes() + waits_.bytes(); }
  /// Sum of all reference counts.
  uint64_t references() const { return references_; }

 private:
  LBARecord* getRecord(uint64_t lba);
  Event* newEvent(EventType type, uint64_t cmd_id, BlockType blockType, BlockNum block, EmbedData embed);
  int32_t noteRead(LBARecord& record, uint64_t cmd_id, uint64_t lba, bool expect);
  /// Gives the events of a record back if nobody has a claim on it.
  /// @return whether the record is to be removed
  bool forget(LBARecord& record);
  void finishWrites(const RunPiece& piece, uint64_t cmd_id);
  /// Ends the read on blocks that are all on record; those that must go are added to `gone`.
  int32_t finishReads(RecordPage& page, const RunPiece& piece, uint64_t cmd_id, bool keep, uint64_t& gone);

  Records records_;
  uint64_t references_ = 0;
  bool atomicSeen_ = false;  ///< an atomic write was issued
  ChunkPool<Event> events_;
  ChunkPool<WaitRead> waits_;
};

/// The events at which a read waits on the blocks of a run, one after the other: what `awaitedEvent` answers, with one
/// look-up for 64 neighbouring LBAs. The table must stay as it is meanwhile.
class AwaitedEvents {
 public:
  AwaitedEvents(const AtomicHash& table, uint64_t cmd_id, const BlockRun& run)
      : records_(table.records()), cmd_id_(cmd_id), pieces_(run) {}

  /// The next block's event, or null; as many calls as the run has blocks.
  const Event* next() {
    if (left_ == 0) {
      enterPage();
    }
    const uint64_t block = left_ & -left_;
    left_ &= ~block;
    for (; (present_ & (block - 1)) != 0; present_ &= present_ - 1) {
      ++record_;
    }
    return (present_ & block) == 0 ? nullptr : awaited(*record_);
  }

 private:
  const Event* awaited(const LBARecord& record) const {
    const WaitRead* wait = record.wait_read;
    while (wait != nullptr && wait->cmd_id != cmd_id_) {
      wait = wait->next;
    }
    return wait == nullptr ? nullptr : wait->event;
  }

  void enterPage();

  const RecordTable& records_;
  uint64_t cmd_id_;
  RunPieces pieces_;
  uint64_t left_ = 0;                  ///< blocks of the piece that are still to come
  uint64_t present_ = 0;               ///< blocks on record from `record_` on
  const LBARecord* record_ = nullptr;  ///< of the lowest block in `present_`
};

}  // namespace vdl
