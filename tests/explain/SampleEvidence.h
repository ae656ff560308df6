#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "host/base/Random.h"
#include "host/explain/WrittenData.h"
#include "host/run/FindingEvidence.h"
#include "tests/run/ManualClock.h"
#include "vdl/Status.h"

namespace corvane::host::testing {

/// A short test on a drive that remembers what it was given, told command by command; a command takes a millisecond.
class SampleEvidence {
 public:
  static constexpr uint32_t sector = 512;
  static constexpr uint64_t blocks = 64;
  static constexpr size_t poolSectors = 128;

  explicit SampleEvidence(uint32_t protectionBytes = 0) {
    evidence.geometry = {.blocks = blocks, .protectionBytes = protectionBytes};
    evidence.agentStatus = vdl::status::miscompare;
    evidence.agentError = "Miscompare Detected at LBA 0x0000000000000000, first_offset = 0, num_bytes = 1";
    Random random(7);
    evidence.pool.resize(poolSectors * sectorBytes());
    for (size_t i = 0; i < evidence.pool.size(); ++i) {
      evidence.pool[i] = static_cast<uint8_t>(random.below(256));
    }
    for (size_t bucket = 0; bucket < poolSectors; ++bucket) {
      uint8_t* number = &evidence.pool[bucket * sectorBytes()];
      number[0] = number[1] = 0;
      number[2] = static_cast<uint8_t>(bucket);
    }
    evidence.journal = journal;
    medium.assign(blocks, std::vector<uint8_t>(sectorBytes()));
  }

  uint32_t sectorBytes() const { return evidence.geometry.sectorBytes(); }

  /// Issues and finishes a command, and carries it out. Returns its entry.
  const JournalEntry& command(CommandKind kind, uint64_t lba, uint32_t count, uint32_t bucket = 0,
                              uint32_t status = scsi_status::good) {
    const JournalEntry& entry = issue(kind, lba, count, bucket);
    clock.pause(1000);
    journal->finished(0, status);
    const WrittenData data(evidence);
    for (uint64_t block = lba; status == scsi_status::good && block < lba + count; ++block) {
      if (const auto content = data.contentOf(entry, block)) {
        medium[block] = *content;
      }
    }
    return entry;
  }
  const JournalEntry& issue(CommandKind kind, uint64_t lba, uint32_t count, uint32_t bucket = 0) {
    DriveCommand command;
    command.kind = kind;
    command.lba = lba;
    command.blocks = count;
    journal->issued(command, bucket, false);
    return *journal->byNumber(journal->issuedCount());
  }
  const JournalEntry& write(uint64_t lba, uint32_t count, uint32_t bucket) {
    return command(CommandKind::write, lba, count, bucket);
  }
  const JournalEntry& read(uint64_t lba, uint32_t count) { return command(CommandKind::read, lba, count); }

  std::vector<uint8_t> contentOf(const JournalEntry& write, uint64_t lba) const {
    return WrittenData(evidence).contentOf(write, lba).value();
  }

  /// The last command, a read, found a block wrong: `drive` instead of `reference`. What it holds later is the
  /// medium's.
  const FindingEvidence& found(uint64_t lba, std::vector<uint8_t> drive, std::vector<uint8_t> reference) {
    evidence.lba = lba;
    evidence.driveBlock = std::move(drive);
    evidence.referenceBlock = std::move(reference);
    evidence.readId = journal->byNumber(journal->issuedCount())->commandId;
    evidence.foundAfter = journal->issuedCount();
    evidence.foundUs = journal->nowUs();
    evidence.rereadFirst = 0;
    evidence.reread = medium;
    return evidence;
  }

  FindingEvidence evidence;
  ManualClock clock;
  std::shared_ptr<CommandJournal> journal = std::make_shared<CommandJournal>(256, 4, clock);
  std::vector<std::vector<uint8_t>> medium;
};

}  // namespace corvane::host::testing
