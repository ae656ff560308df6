#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/run/FindingEvidence.h"

namespace corvane::host {

/// A block that a command wrote.
struct WrittenBlock {
  const JournalEntry* write = nullptr;  ///< in the evidence's journal
  uint64_t lba = 0;                     ///< of the block
};

/// Rebuilds what the commands of a test put into blocks, from the journal and the agent's pool of sectors, and tells
/// who wrote given bytes. The evidence must have a journal and outlives the object.
class WrittenData {
 public:
  explicit WrittenData(const FindingEvidence& evidence) : evidence_(evidence), journal_(*evidence.journal) {}

  /// The sector that a command put on an LBA; nothing when it did not, or when the pool does not hold it any more.
  std::optional<std::vector<uint8_t>> contentOf(const JournalEntry& write, uint64_t lba) const;

  /// The commands that changed an LBA, newest first, of those issued before the command with a number.
  std::vector<const JournalEntry*> changesOf(uint64_t lba, uint64_t beforeNumber) const;

  /// The newest command that wrote exactly this sector, onto `lba` if there is one, else anywhere.
  std::optional<WrittenBlock> writerOf(std::span<const uint8_t> sector, uint64_t lba) const;

  /// As `writerOf`, of the part of a sector from byte `begin` up to `end` (excluded). The part has to be longer than
  /// a stamp.
  std::optional<WrittenBlock> writerOfPart(std::span<const uint8_t> sector, size_t begin, size_t end,
                                           uint64_t lba) const;

  /// Whether the sector is one of the pool with a stamp of its own, whoever wrote it.
  bool isGenuine(std::span<const uint8_t> sector) const;

 private:
  size_t sectorBytes() const { return evidence_.geometry.sectorBytes(); }
  size_t buckets() const { return evidence_.pool.size() / sectorBytes(); }
  std::span<const uint8_t> bucket(uint64_t number) const;
  bool isStamped(const JournalEntry& write) const {
    return evidence_.embedded || write.kind == CommandKind::writeAtomic;
  }

  const FindingEvidence& evidence_;
  const CommandJournal& journal_;
};

/// Whether a zone reset or an invalidation has undone what a command wrote to a block.
bool isUndone(const JournalEntry& change, uint64_t lba, const std::vector<Incident>& incidents);

}  // namespace corvane::host
