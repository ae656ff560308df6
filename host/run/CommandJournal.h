#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/drive/Drive.h"
#include "host/run/CommandClock.h"
#include "host/run/HostClock.h"
#include "host/run/LatencyHistogram.h"

namespace corvane::host {

/// One command of an agent, as the host saw it.
struct JournalEntry {
  enum class End : uint8_t { outstanding, finished, lost };

  uint64_t number = 0;      ///< 1: the first command of the drive
  uint64_t commandId = 0;   ///< the agent's; 0 for a cache flush, which has none
  uint64_t lba = 0;         ///< first block
  uint64_t issuedUs = 0;    ///< since the journal began
  uint64_t finishedUs = 0;  ///< when its completion was taken, or when a reset or power cut took it away
  uint32_t blocks = 0;
  uint32_t bucket = 0;  ///< of a write: the agent's number of the data of its first block
  uint32_t atomicBound = 0;
  uint16_t tag = 0;
  CommandKind kind = CommandKind::read;
  uint8_t lbaStep = 1;
  uint8_t status = 0;  ///< SCSI status of a finished one
  End end = End::outstanding;
  bool preRead = false;  ///< of a read: one ahead of an atomic write, whose data nobody compares

  /// One past the last LBA.
  uint64_t endLba() const { return blocks == 0 ? lba : lba + uint64_t{blocks - 1} * lbaStep + 1; }
  bool covers(uint64_t block) const { return block >= lba && block < endLba() && (block - lba) % lbaStep == 0; }
  /// Whether it changed what blocks hold.
  bool changesContent() const { return changesMedium(kind); }
  /// Whether somebody compared, or could have compared, what the drive holds.
  bool looks() const { return (kind == CommandKind::read && !preRead) || kind == CommandKind::verify; }
  bool endedWell() const { return end == End::finished && status == scsi_status::good; }
};

/// Something that happened to the whole drive or to a range of it.
struct Incident {
  enum class What : uint8_t { reset, powerCut, connectionLost, zoneReset, invalidation };

  What what = What::reset;
  uint64_t afterCommand = 0;  ///< number of the last command that had been issued
  uint64_t us = 0;
  uint64_t firstLba = 0;  ///< of the range; 0 and `endLba` 0: the whole drive
  uint64_t endLba = 0;    ///< excluded
};

/// The latest commands of one drive with their times, and how long each kind of command took.
///
/// A ring: memory is taken once, and a command costs two stores. It starts with the drive's first command, so that
/// the numbers are right. One thread writes it; read it when the drive's test has ended.
class CommandJournal {
 public:
  /// @param depth commands that are kept, at least 1
  /// @param tags  of the agent
  /// @param clock outlives the object
  CommandJournal(size_t depth, uint32_t tags, HostClock& clock);

  /// @param bucket of a write, see JournalEntry
  void issued(const DriveCommand& command, uint32_t bucket, bool preRead);
  /// The completion of the command that was issued on a tag last.
  ///
  /// @param rightAfterIssue another command was issued a moment before, and its time is this one's, too: a look at the
  ///                        clock costs as much as the rest of an entry.
  void finished(uint32_t tag, uint32_t status, bool rightAfterIssue = false);
  /// Every outstanding command was lost.
  void lostAll();
  void happened(Incident::What what, uint64_t firstLba = 0, uint64_t endLba = 0);

  /// Microseconds since the journal began.
  uint64_t nowUs() const { return std::max(clock_.steadyUs() - beganUs_, latestUs_); }
  uint64_t beganUs() const { return beganUs_; }
  /// When the clock was looked at last, for a command, and how often it was.
  uint64_t latestUs() const { return latestUs_; }
  uint64_t looks() const { return looks_; }
  /// Commands issued so far.
  uint64_t issuedCount() const { return count_; }
  /// The kept command with a number; null when it is too old, or not issued yet.
  const JournalEntry* byNumber(uint64_t number) const;
  /// The kept command with an agent's id.
  const JournalEntry* byCommandId(uint64_t commandId) const;
  /// Number of the oldest command that is kept; one past the last when none is.
  uint64_t oldestNumber() const { return count_ > ring_.size() ? count_ - ring_.size() + 1 : 1; }
  /// The latest incidents, oldest first.
  std::vector<Incident> incidents() const;
  /// Whether such an incident is among them.
  bool has(Incident::What what) const;
  const std::array<LatencyHistogram, latencyKinds>& latencies() const { return latencies_; }

 private:
  uint64_t look() {
    ++looks_;
    return latestUs_ = commandClock_.steadyUs() - beganUs_;
  }
  JournalEntry& at(uint64_t number) { return ring_[place(number)]; }
  size_t place(uint64_t number) const { return mask_ != 0 ? (number - 1) & mask_ : (number - 1) % ring_.size(); }

  static constexpr size_t keptIncidents = 256;

  HostClock& clock_;
  const uint64_t beganUs_;
  CommandClock commandClock_;
  const bool everyLookCounts_;
  std::vector<JournalEntry> ring_;
  const size_t mask_;  ///< of a ring that is a power of two long; else 0
  struct Slot {
    uint64_t number = 0;  ///< 0: nothing is outstanding
    uint64_t issuedUs = 0;
    CommandKind kind = CommandKind::read;
  };
  std::vector<Slot> slots_;  ///< by tag
  uint64_t latestUs_ = 0;
  uint64_t looks_ = 0;
  uint64_t count_ = 0;
  uint64_t nextId_ = 1;
  std::vector<Incident> incidents_;  ///< a ring
  uint64_t incidentCount_ = 0;
  std::array<LatencyHistogram, latencyKinds> latencies_;  ///< by CommandKind
};

}  // namespace corvane::host
