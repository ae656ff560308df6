#include "host/run/CommandJournal.h"

#include <algorithm>
#include <bit>

#include "host/base/Prefetch.h"

namespace corvane::host {

CommandJournal::CommandJournal(size_t depth, uint32_t tags, HostClock& clock)
    : clock_(clock),
      beganUs_(clock.steadyUs()),
      commandClock_(clock),
      everyLookCounts_(!clock.runsByItself()),
      ring_(depth),
      mask_(std::has_single_bit(depth) ? depth - 1 : 0),
      slots_(tags) {
  incidents_.reserve(keptIncidents);
}

void CommandJournal::issued(const DriveCommand& command, uint32_t bucket, bool preRead) {
  const uint64_t us = look();
  JournalEntry& entry = at(++count_);
  // The ring is larger than the nearest caches, and what is written to a place waits until its old content has come.
  prefetch(&at(count_ + 2));
  entry = {.number = count_,
           // The agent counts every command but its cache flushes.
           .commandId = command.kind == CommandKind::syncCache ? 0 : nextId_++,
           .lba = command.lba,
           .issuedUs = us,
           .blocks = command.blocks,
           .bucket = bucket,
           .atomicBound = command.atomicBound,
           .tag = static_cast<uint16_t>(command.tag),
           .kind = command.kind,
           .lbaStep = static_cast<uint8_t>(command.lbaStep),
           .preRead = preRead};
  slots_[command.tag] = {.number = count_, .issuedUs = us, .kind = command.kind};
}

void CommandJournal::finished(uint32_t tag, uint32_t status, bool rightAfterIssue) {
  Slot& slot = slots_[tag];
  if (slot.number == 0) {
    return;
  }
  const uint64_t us = rightAfterIssue && !everyLookCounts_ ? latestUs_ : look();
  latencies_[static_cast<size_t>(slot.kind)].add(us - slot.issuedUs);
  if (slot.number >= oldestNumber()) {
    JournalEntry& entry = at(slot.number);
    entry.finishedUs = us;
    entry.status = static_cast<uint8_t>(status);
    entry.end = JournalEntry::End::finished;
  }
  slot.number = 0;
}

void CommandJournal::lostAll() {
  const uint64_t us = nowUs();
  for (Slot& slot : slots_) {
    if (slot.number >= oldestNumber() && slot.number != 0) {
      JournalEntry& entry = at(slot.number);
      entry.finishedUs = us;
      entry.end = JournalEntry::End::lost;
    }
    slot.number = 0;
  }
}

void CommandJournal::happened(Incident::What what, uint64_t firstLba, uint64_t endLba) {
  const Incident incident{.what = what, .afterCommand = count_, .us = nowUs(), .firstLba = firstLba, .endLba = endLba};
  if (incidents_.size() < keptIncidents) {
    incidents_.push_back(incident);
  } else {
    incidents_[incidentCount_ % keptIncidents] = incident;
  }
  ++incidentCount_;
}

const JournalEntry* CommandJournal::byNumber(uint64_t number) const {
  return number == 0 || number > count_ || number < oldestNumber() ? nullptr : &ring_[place(number)];
}

const JournalEntry* CommandJournal::byCommandId(uint64_t commandId) const {
  // Numbers and ids differ by the flushes before the command, so the number is never below the id.
  for (uint64_t number = std::max(commandId, oldestNumber()); commandId != 0 && number <= count_; ++number) {
    const JournalEntry* entry = byNumber(number);
    if (entry->commandId == commandId) {
      return entry;
    }
    if (entry->commandId > commandId) {
      break;
    }
  }
  return nullptr;
}

bool CommandJournal::has(Incident::What what) const {
  return std::ranges::any_of(incidents_, [what](const Incident& incident) { return incident.what == what; });
}

std::vector<Incident> CommandJournal::incidents() const {
  std::vector<Incident> ordered;
  const uint64_t kept = incidents_.size();
  for (uint64_t i = incidentCount_ - kept; i < incidentCount_; ++i) {
    ordered.push_back(incidents_[i % keptIncidents]);
  }
  return ordered;
}

}  // namespace corvane::host
