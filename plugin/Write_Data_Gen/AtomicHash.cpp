#include "AtomicHash.h"

#include <iostream>
#include <mutex>
#include <new>

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

}  // namespace

LBARecord* AtomicHash::getRecord(uint64_t lba) {
  try {
    return &records_.try_emplace(lba).first->second;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

Event* AtomicHash::newEvent(EventType type, uint64_t cmd_id, BlockType blockType, BlockNum block, EmbedData embed) {
  Event* event = events_.take();
  if (event != nullptr) {
    event->type = type;
    event->cmd_id = cmd_id;
    event->block_type = blockType;
    event->block_num = block;
    event->embed = embed;
  }
  return event;
}

PeekResult AtomicHash::peek(uint64_t lba) const {
  const auto record = records_.find(lba);
  return record == records_.end() ? PeekResult{} : Event::peek(record->second.events, nullptr, true);
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
  }
  insertEvent(record, event);
  return status::ok;
}

void AtomicHash::writeFinished(uint64_t cmd_id, uint64_t lba) {
  const auto record = records_.find(lba);
  if (record == records_.end()) {
    return;
  }
  Event* event = findEvent(record->second.events, cmd_id);
  if (event != nullptr && event->block_type == BlockType::Atomic) {
    event->block_type = BlockType::Normal;
  }
}

void AtomicHash::hardWriteError(uint64_t cmd_id, uint64_t lba) {
  const auto record = records_.find(lba);
  if (record == records_.end()) {
    return;
  }
  Event* event = findEvent(record->second.events, cmd_id);
  if (event != nullptr && event->type == EventType::Write) {
    event->block_num = block_num::unknown;
  }
}

bool AtomicHash::isStateKnown(Records::const_iterator record) const {
  const Event* event = record->second.events;
  while (event != nullptr && event->isTransparent()) {
    event = event->next;
  }
  return event != nullptr && event->isKnown();
}

bool AtomicHash::isStateKnown(uint64_t first, uint64_t end) const {
  auto record = records_.find(first);
  // The block behind the range must be on record, too.
  if (record == records_.end() || records_.find(end) == records_.end()) {
    return false;
  }
  for (uint64_t expected = first; expected < end; ++expected, ++record) {
    if (record == records_.end()) {
      return true;
    }
    if (record->first != expected || !isStateKnown(record)) {
      return false;
    }
  }
  return true;
}

void AtomicHash::insertEvent(LBARecord* record, Event* event) {
  if (record == nullptr || event == nullptr) {
    return;
  }
  Event* current = record->events;
  if (current == nullptr || event->cmd_id == 0 || event->cmd_id > current->cmd_id) {
    event->next = current;
    record->events = event;
    return;
  }
  while (current->next != nullptr && current->next->cmd_id > event->cmd_id) {
    current = current->next;
  }
  event->next = current->next;
  current->next = event;
}

void AtomicHash::invalidate(uint64_t first, uint64_t last, InvalidationMethod method) {
  const EventType type = method == InvalidateKeepPrior ? EventType::InvalidateMarker : EventType::Invalidate;
  for (auto record = records_.lower_bound(first); record != records_.end() && record->first <= last; ++record) {
    insertEvent(&record->second, newEvent(type, 0, BlockType::Unknown, block_num::unknown, {}));
  }
}

int32_t AtomicHash::readIssued(uint64_t cmd_id, uint64_t lba, bool expect) {
  LBARecord* record = nullptr;
  if (const auto found = records_.find(lba); found != records_.end()) {
    record = &found->second;
    if (expect) {
      if (record->ref_count == 0) {
        complain("<E> SANITY_CHECK readIssued expect=1 ref_count=0 lba:", lba, cmd_id);
        return status::noRecord;
      }
      // The record must outlive this even at 0: the wait below is its new claim.
      --record->ref_count;
      --references_;
    }
  } else if (expect) {
    complain("<E> readIssued !record && expect lba:", lba, cmd_id);
    return status::notFound;
  } else {
    record = getRecord(lba);
    if (record == nullptr) {
      complain("<E> readIssued failed getRecord, !record !expect lba:", lba, cmd_id);
      return status::outOfMemory;
    }
    insertEvent(record, newEvent(EventType::None, 0, BlockType::Unknown, block_num::unknown, {}));
  }
  WaitRead* wait = waits_.take();
  if (wait == nullptr) {
    return status::outOfMemory;
  }
  wait->cmd_id = cmd_id;
  wait->event = record->events;
  wait->next = record->wait_read;
  record->wait_read = wait;
  return status::ok;
}

const Event* AtomicHash::awaitedEvent(uint64_t cmd_id, uint64_t lba) const {
  const auto record = records_.find(lba);
  const WaitRead* wait = record == records_.end() ? nullptr : findWait(record->second.wait_read, cmd_id);
  return wait == nullptr ? nullptr : wait->event;
}

PeekResult AtomicHash::readFinished(uint64_t cmd_id, uint64_t lba, bool keep) {
  const auto record = records_.find(lba);
  if (record == records_.end()) {
    complain("<E> readFinished couldn't find record lba:", lba, cmd_id);
    return PeekResult{};
  }
  WaitRead** link = &record->second.wait_read;
  while (*link != nullptr && (*link)->cmd_id != cmd_id) {
    link = &(*link)->next;
  }
  WaitRead* wait = *link;
  if (wait == nullptr) {
    complain("<E> readFinished couldn't find wait_read lba:", lba, cmd_id);
    return PeekResult{};
  }
  *link = wait->next;
  const PeekResult result = Event::peek(wait->event, nullptr, true);
  waits_.give(wait);
  if (keep) {
    ++record->second.ref_count;
    ++references_;
  } else {
    hashClean(record);
  }
  return result;
}

int32_t AtomicHash::readSkip(uint64_t lba) {
  const auto record = records_.find(lba);
  if (record == records_.end()) {
    complain("<E> readSkip couldn't find record lba:", lba);
    return status::notFound;
  }
  if (record->second.ref_count == 0) {
    return status::ok;
  }
  --record->second.ref_count;
  --references_;
  hashClean(record);
  return status::ok;
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
  const auto record = records_.find(lba);
  if (record == records_.end()) {
    complain("<E> dropHash couldn't find record lba:", lba);
    return status::notFound;
  }
  if (findEvent(record->second.events, cmd_id) == nullptr) {
    complain("<E> dropHash no hash event found. lba:", lba, cmd_id);
    return status::notFound;
  }
  if (record->second.ref_count == 0) {
    complain("<E> SANITY_CHECK dropHash ref_count=0 lba:", lba, cmd_id);
    return status::noRecord;
  }
  --record->second.ref_count;
  --references_;
  hashClean(record);
  return status::ok;
}

void AtomicHash::hashClean(Records::iterator record) {
  if (record == records_.end() || record->second.ref_count != 0 || record->second.wait_read != nullptr) {
    return;
  }
  for (Event* event = record->second.events; event != nullptr;) {
    Event* older = event->next;
    events_.give(event);
    event = older;
  }
  records_.erase(record);
}

void AtomicHash::hashClean(uint64_t lba) { hashClean(records_.find(lba)); }

AtomicContext AtomicHash::getContext(uint64_t first, uint64_t last, uint64_t cmd_id) const {
  AtomicContext context;
  for (auto record = records_.lower_bound(first); record != records_.end() && record->first <= last; ++record) {
    const WaitRead* wait = findWait(record->second.wait_read, cmd_id);
    if (wait != nullptr) {
      context.copyHistory(record->first, wait->event);
    }
  }
  return context;
}

}  // namespace vdl
