#include "AtomicHash.h"

#include <algorithm>
#include <bit>
#include <iostream>
#include <mutex>

#include "vdl/Status.h"

namespace vdl {

namespace {

/// The tables of all drives share the stream, and each has a thread of its own.
std::mutex complaints;

// The diagnostic stream is left in hexadecimal on purpose: every number on it is an LBA or an id.
void complain(const char* text, uint64_t lba) {
  const std::lock_guard lock(complaints);
  std::cerr << text << std::hex << lba << '\n';
}

void complain(const char* text, uint64_t lba, uint64_t cmd_id) {
  const std::lock_guard lock(complaints);
  std::cerr << text << std::hex << lba << " cmd_id:" << cmd_id << '\n';
}

void complainNoWait(uint64_t lba, uint64_t cmd_id) {
  complain("<E> readFinished couldn't find wait_read lba:", lba, cmd_id);
}

Event* findEvent(Event* head, uint64_t cmd_id) {
  Event* event = head;
  while (event != nullptr && event->cmd_id != cmd_id) {
    event = event->next;
  }
  return event;
}

const WaitRead* findWait(const WaitRead* head, uint64_t cmd_id) {
  const WaitRead* wait = head;
  while (wait != nullptr && wait->cmd_id != cmd_id) {
    wait = wait->next;
  }
  return wait;
}

RunPiece pieceOf(uint64_t lba) {
  return {lba / RecordPage::blocksPerPage, uint64_t{1} << lba % RecordPage::blocksPerPage};
}

uint64_t lowestOf(uint64_t blocks) { return blocks & -blocks; }

uint64_t lbaOf(const RunPiece& piece, uint64_t block) {
  return piece.page * RecordPage::blocksPerPage + static_cast<uint64_t>(std::countr_zero(block));
}

/// Whether all blocks of the piece are on record.
bool holds(const RecordPage* page, const RunPiece& piece) {
  return page != nullptr && (piece.blocks & ~page->present()) == 0;
}

/// Calls `visit(block, record)` for each block of the piece, which has one at least and all of which are on record, in
/// ascending order until it answers false. `block` is a mask of one bit.
template <typename Visit>
void visitBlocks(RecordPage& page, const RunPiece& piece, Visit visit) {
  const uint64_t first = lowestOf(piece.blocks);
  LBARecord* record = page.record(static_cast<uint32_t>(std::countr_zero(first)));
  uint64_t present = page.present() & ~(first - 1);
  for (uint64_t rest = piece.blocks; rest != 0; present &= present - 1, ++record) {
    const uint64_t block = lowestOf(present);
    if ((rest & block) != 0) {
      rest &= ~block;
      if (!visit(block, *record)) {
        return;
      }
    }
  }
}

/// Calls `visit(lba)` for each block of the piece in ascending order, until it does not answer 0.
template <typename Visit>
int32_t visitLbas(const RunPiece& piece, Visit visit) {
  int32_t result = status::ok;
  for (uint64_t rest = piece.blocks; rest != 0 && result == status::ok; rest &= rest - 1) {
    result = visit(lbaOf(piece, lowestOf(rest)));
  }
  return result;
}

/// Takes the wait of a read off its record; null when there is none.
WaitRead* unlinkWait(LBARecord& record, uint64_t cmd_id) {
  WaitRead** link = &record.wait_read;
  while (*link != nullptr && (*link)->cmd_id != cmd_id) {
    link = &(*link)->next;
  }
  WaitRead* wait = *link;
  if (wait != nullptr) {
    *link = wait->next;
  }
  return wait;
}

/// Whether somebody still needs the record.
bool isClaimed(const LBARecord& record) { return record.ref_count != 0 || record.wait_read != nullptr; }

/// Whether a peek at the history finds anything.
bool hasContent(const Event* event) {
  while (event != nullptr && event->type == EventType::InvalidateMarker) {
    event = event->next;
  }
  return event != nullptr;
}

/// Adds all events of a record.
void addEvents(ChunkPool<Event>::Returns& returns, LBARecord& record) {
  Event* last = record.events;
  if (last == nullptr) {
    return;
  }
  while (last->next != nullptr) {
    last = last->next;
  }
  returns.addList(record.events, last);
}

void insert(LBARecord& record, Event& event) {
  Event* current = record.events;
  if (current == nullptr || event.cmd_id == 0 || event.cmd_id > current->cmd_id) {
    event.next = current;
    record.events = &event;
    return;
  }
  while (current->next != nullptr && current->next->cmd_id > event.cmd_id) {
    current = current->next;
  }
  event.next = current->next;
  current->next = &event;
}

}  // namespace

LBARecord* AtomicHash::getRecord(uint64_t lba) {
  const RunPiece piece = pieceOf(lba);
  RecordPage* page = records_.reserve(piece.page, piece.blocks);
  return page == nullptr ? nullptr : page->record(static_cast<uint32_t>(lba % RecordPage::blocksPerPage));
}

Event* AtomicHash::newEvent(EventType type, uint64_t cmd_id, BlockType blockType, BlockNum block, EmbedData embed) {
  Event* event = events_.takeUnset();
  if (event != nullptr) {
    *event = {type, cmd_id, blockType, block, 0, embed, {}, nullptr};
  }
  return event;
}

PeekResult AtomicHash::peek(uint64_t lba) const {
  const LBARecord* record = records_.record(lba);
  return record == nullptr ? PeekResult{} : Event::peek(record->events, nullptr, true);
}

int32_t AtomicHash::writeIssued(uint64_t cmd_id, uint64_t lba, BlockNum block, EmbedData embed) {
  LBARecord* record = getRecord(lba);
  if (record == nullptr) {
    return status::outOfMemory;
  }
  ++record->ref_count;
  ++references_;
  insertEvent(record, newEvent(EventType::Write, cmd_id, BlockType::Normal, block, embed));
  return status::ok;
}

int32_t AtomicHash::writeIssued(uint64_t cmd_id, const BlockRun& run, const WrittenContent& content) {
  const Event first{EventType::Write, cmd_id, BlockType::Normal, content.block, 0, content.embed, {}, nullptr};
  BlockNum bucket = content.block;
  const BlockNum nextBucket = content.nextBucketEach ? 1 : 0;
  uint64_t lba = content.ownLbaEach ? run.first : content.embed.lba;
  const uint64_t nextLba = content.ownLbaEach ? run.step : 0;
  for (RunPieces pieces(run); pieces.more();) {
    const RunPiece piece = pieces.take();
    RecordPage* page = records_.reserve(piece.page, piece.blocks);
    if (page == nullptr) {
      return status::outOfMemory;
    }
    references_ += static_cast<uint64_t>(std::popcount(piece.blocks));
    visitBlocks(*page, piece, [&](uint64_t, LBARecord& record) {
      ++record.ref_count;
      if (Event* event = events_.takeUnset()) {
        *event = first;
        event->block_num = bucket;
        event->embed.lba = lba;
        insert(record, *event);
      }
      bucket += nextBucket;
      lba += nextLba;
      return true;
    });
  }
  return status::ok;
}

int32_t AtomicHash::atomicWriteIssued(uint64_t cmd_id, uint64_t lba, BlockNum block, EmbedData embed,
                                      AtomicSegment segment) {
  LBARecord* record = getRecord(lba);
  if (record == nullptr) {
    complain("<E> atomicWriteIssued failed getRecord() lba:", lba, cmd_id);
    return status::outOfMemory;
  }
  ++record->ref_count;
  ++references_;
  Event* event = newEvent(EventType::Atomic, cmd_id, BlockType::Atomic, block, embed);
  if (event != nullptr) {
    event->segment = segment;
    atomicSeen_ = true;
    records_.page(pieceOf(lba).page)->noteAtomic();
  }
  insertEvent(record, event);
  return status::ok;
}

void AtomicHash::finishWrites(const RunPiece& piece, uint64_t cmd_id) {
  RecordPage* page = records_.page(piece.page);
  if (page == nullptr || !page->atomicSeen()) {
    return;
  }
  const RunPiece onRecord{piece.page, piece.blocks & page->present()};
  if (onRecord.blocks == 0) {
    return;
  }
  visitBlocks(*page, onRecord, [&](uint64_t, LBARecord& record) {
    Event* event = findEvent(record.events, cmd_id);
    if (event != nullptr && event->block_type == BlockType::Atomic) {
      event->block_type = BlockType::Normal;
    }
    return true;
  });
}

void AtomicHash::writeFinished(uint64_t cmd_id, uint64_t lba) {
  // Nothing but the event of an atomic write changes.
  if (atomicSeen_) {
    finishWrites(pieceOf(lba), cmd_id);
  }
}

void AtomicHash::writeFinished(uint64_t cmd_id, const BlockRun& run) {
  if (atomicSeen_) {
    for (RunPieces pieces(run); pieces.more();) {
      finishWrites(pieces.take(), cmd_id);
    }
  }
}

void AtomicHash::hardWriteError(uint64_t cmd_id, uint64_t lba) {
  const LBARecord* record = records_.record(lba);
  if (record == nullptr) {
    return;
  }
  Event* event = findEvent(record->events, cmd_id);
  if (event != nullptr && event->type == EventType::Write) {
    event->block_num = block_num::unknown;
  }
}

bool AtomicHash::isStateKnown(const Records::const_iterator& record) const {
  const Event* event = record->second.events;
  while (event != nullptr && event->isTransparent()) {
    event = event->next;
  }
  return event != nullptr && event->isKnown();
}

bool AtomicHash::isStateKnown(uint64_t first, uint64_t end) const {
  // The block behind the range must be on record, too.
  if (records_.record(first) == nullptr || records_.record(end) == nullptr) {
    return false;
  }
  for (uint64_t lba = first; lba < end; ++lba) {
    const auto record = records_.find(lba);
    if (record == records_.end() || !isStateKnown(record)) {
      return false;
    }
  }
  return true;
}

void AtomicHash::insertEvent(LBARecord* record, Event* event) {
  if (record != nullptr && event != nullptr) {
    insert(*record, *event);
  }
}

void AtomicHash::invalidate(uint64_t first, uint64_t last, InvalidationMethod method) {
  const EventType type = method == InvalidateKeepPrior ? EventType::InvalidateMarker : EventType::Invalidate;
  records_.visit(first, last, [&](uint64_t, LBARecord& record) {
    insertEvent(&record, newEvent(type, 0, BlockType::Unknown, block_num::unknown, {}));
  });
}

int32_t AtomicHash::noteRead(LBARecord& record, uint64_t cmd_id, uint64_t lba, bool expect) {
  if (expect) {
    if (record.ref_count == 0) {
      complain("<E> SANITY_CHECK readIssued expect=1 ref_count=0 lba:", lba, cmd_id);
      return status::noRecord;
    }
    // The record must outlive this even at 0: the wait below is its new claim.
    --record.ref_count;
    --references_;
  }
  WaitRead* wait = waits_.takeUnset();
  if (wait == nullptr) {
    return status::outOfMemory;
  }
  *wait = {cmd_id, record.events, record.wait_read};
  record.wait_read = wait;
  return status::ok;
}

int32_t AtomicHash::readIssued(uint64_t cmd_id, uint64_t lba, bool expect) {
  LBARecord* record = records_.record(lba);
  if (record == nullptr) {
    if (expect) {
      complain("<E> readIssued !record && expect lba:", lba, cmd_id);
      return status::notFound;
    }
    record = getRecord(lba);
    if (record == nullptr) {
      complain("<E> readIssued failed getRecord, !record !expect lba:", lba, cmd_id);
      return status::outOfMemory;
    }
    insertEvent(record, newEvent(EventType::None, 0, BlockType::Unknown, block_num::unknown, {}));
  }
  return noteRead(*record, cmd_id, lba, expect);
}

int32_t AtomicHash::readIssued(uint64_t cmd_id, const BlockRun& run, bool expect) {
  int32_t result = status::ok;
  for (RunPieces pieces(run); pieces.more() && result == status::ok;) {
    const RunPiece piece = pieces.take();
    RecordPage* page = records_.page(piece.page);
    if (!holds(page, piece)) {
      result = visitLbas(piece, [&](uint64_t lba) { return readIssued(cmd_id, lba, expect); });
      continue;
    }
    visitBlocks(*page, piece, [&](uint64_t block, LBARecord& record) {
      result = noteRead(record, cmd_id, lbaOf(piece, block), expect);
      return result == status::ok;
    });
  }
  return result;
}

void AtomicHash::prefetchEvents(uint64_t lba, uint32_t blocks) const {
  const RecordPage* const page = records_.pageAtHome(lba);
  const auto first = static_cast<uint32_t>(lba % RecordPage::blocksPerPage);
  if (page == nullptr || !page->has(first)) {
    return;
  }
  // The blocks behind the first eight have their events beside these, where the processor looks by itself.
  constexpr uint32_t mostEvents = 8;
  const uint32_t last = std::min(first + std::min(blocks, mostEvents), RecordPage::blocksPerPage);
  const LBARecord* record = page->record(first);
  for (uint32_t block = first; block < last && page->has(block); ++block, ++record) {
    const Event* const event = record->events;
    __builtin_prefetch(event);
    __builtin_prefetch(reinterpret_cast<const std::byte*>(event) + sizeof(Event) - 1);
  }
}

const Event* AtomicHash::awaitedEvent(uint64_t cmd_id, uint64_t lba) const {
  const LBARecord* record = records_.record(lba);
  const WaitRead* wait = record == nullptr ? nullptr : findWait(record->wait_read, cmd_id);
  return wait == nullptr ? nullptr : wait->event;
}

PeekResult AtomicHash::readFinished(uint64_t cmd_id, uint64_t lba, bool keep) {
  LBARecord* record = records_.record(lba);
  if (record == nullptr) {
    complain("<E> readFinished couldn't find record lba:", lba, cmd_id);
    return PeekResult{};
  }
  WaitRead* wait = unlinkWait(*record, cmd_id);
  if (wait == nullptr) {
    complainNoWait(lba, cmd_id);
    return PeekResult{};
  }
  const PeekResult result = Event::peek(wait->event, nullptr, true);
  waits_.give(wait);
  if (keep) {
    ++record->ref_count;
    ++references_;
  } else if (forget(*record)) {
    const RunPiece piece = pieceOf(lba);
    records_.remove(piece.page, piece.blocks);
  }
  return result;
}

int32_t AtomicHash::finishReads(RecordPage& page, const RunPiece& piece, uint64_t cmd_id, bool keep, uint64_t& gone) {
  int32_t result = status::ok;
  uint64_t kept = 0;
  ChunkPool<Event>::Returns events(events_);
  ChunkPool<WaitRead>::Returns waits(waits_);
  visitBlocks(page, piece, [&](uint64_t block, LBARecord& record) {
    WaitRead* wait = unlinkWait(record, cmd_id);
    if (wait == nullptr) {
      complainNoWait(lbaOf(piece, block), cmd_id);
      result = status::notFound;
      return false;
    }
    result = hasContent(wait->event) ? status::ok : status::notFound;
    waits.add(wait);
    if (keep) {
      ++record.ref_count;
      ++kept;
    } else if (!isClaimed(record)) {
      addEvents(events, record);
      gone |= block;
    }
    return result == status::ok;
  });
  references_ += kept;
  return result;
}

int32_t AtomicHash::readFinished(uint64_t cmd_id, const BlockRun& run, bool keep) {
  int32_t result = status::ok;
  for (RunPieces pieces(run); pieces.more() && result == status::ok;) {
    const RunPiece piece = pieces.take();
    RecordPage* page = records_.page(piece.page);
    if (!holds(page, piece)) {
      result = visitLbas(piece, [&](uint64_t lba) { return readFinished(cmd_id, lba, keep).status; });
      continue;
    }
    uint64_t gone = 0;
    result = finishReads(*page, piece, cmd_id, keep, gone);
    if (gone != 0) {
      records_.remove(piece.page, gone);
    }
  }
  return result;
}

int32_t AtomicHash::readSkip(uint64_t lba) {
  LBARecord* record = records_.record(lba);
  if (record == nullptr) {
    complain("<E> readSkip couldn't find record lba:", lba);
    return status::notFound;
  }
  if (record->ref_count == 0) {
    return status::ok;
  }
  --record->ref_count;
  --references_;
  hashClean(lba);
  return status::ok;
}

int32_t AtomicHash::readSkip(const BlockRun& run) {
  int32_t result = status::ok;
  for (RunPieces pieces(run); pieces.more() && result == status::ok;) {
    result = visitLbas(pieces.take(), [this](uint64_t lba) { return readSkip(lba); });
  }
  return result;
}

int32_t AtomicHash::saveHash(uint64_t cmd_id, uint64_t lba, uint64_t hash, bool addRef) {
  LBARecord* record = getRecord(lba);
  if (record == nullptr) {
    return status::outOfMemory;
  }
  if (addRef) {
    ++record->ref_count;
    ++references_;
  }
  Event* event = newEvent(EventType::Hash, cmd_id, BlockType::Hash, block_num::unknown, {});
  if (event != nullptr) {
    event->hash = hash;
  }
  insertEvent(record, event);
  return status::ok;
}

int32_t AtomicHash::dropHash(uint64_t cmd_id, uint64_t lba) {
  LBARecord* record = records_.record(lba);
  if (record == nullptr) {
    complain("<E> dropHash couldn't find record lba:", lba);
    return status::notFound;
  }
  if (findEvent(record->events, cmd_id) == nullptr) {
    complain("<E> dropHash no hash event found. lba:", lba, cmd_id);
    return status::notFound;
  }
  if (record->ref_count == 0) {
    complain("<E> SANITY_CHECK dropHash ref_count=0 lba:", lba, cmd_id);
    return status::noRecord;
  }
  --record->ref_count;
  --references_;
  hashClean(lba);
  return status::ok;
}

bool AtomicHash::forget(LBARecord& record) {
  if (isClaimed(record)) {
    return false;
  }
  ChunkPool<Event>::Returns events(events_);
  addEvents(events, record);
  record.events = nullptr;
  return true;
}

void AtomicHash::hashClean(uint64_t lba) {
  LBARecord* record = records_.record(lba);
  if (record != nullptr && forget(*record)) {
    const RunPiece piece = pieceOf(lba);
    records_.remove(piece.page, piece.blocks);
  }
}

void AtomicHash::hashClean(const Records::const_iterator& record) {
  if (record != records_.end()) {
    hashClean(record->first);
  }
}

AtomicContext AtomicHash::getContext(uint64_t first, uint64_t last, uint64_t cmd_id) const {
  AtomicContext context;
  records_.visit(first, last, [&](uint64_t lba, const LBARecord& record) {
    const WaitRead* wait = findWait(record.wait_read, cmd_id);
    if (wait != nullptr) {
      context.copyHistory(lba, wait->event);
    }
  });
  return context;
}

void AwaitedEvents::enterPage() {
  const RunPiece piece = pieces_.take();
  const RecordPage* page = records_.page(piece.page);
  left_ = piece.blocks;
  present_ = page == nullptr ? 0 : page->present() & ~(lowestOf(left_) - 1);
  if (present_ != 0) {
    record_ = page->record(static_cast<uint32_t>(std::countr_zero(present_)));
  }
}

}  // namespace vdl
