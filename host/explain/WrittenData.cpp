#include "host/explain/WrittenData.h"

#include <algorithm>

#include "host/explain/BlockStamp.h"

namespace corvane::host {

bool isUndone(const JournalEntry& change, uint64_t lba, const std::vector<Incident>& incidents) {
  return std::ranges::any_of(incidents, [&](const Incident& incident) {
    return incident.afterCommand >= change.number && incident.firstLba <= lba && lba < incident.endLba;
  });
}

std::span<const uint8_t> WrittenData::bucket(uint64_t number) const {
  return std::span(evidence_.pool).subspan(number * sectorBytes(), sectorBytes());
}

std::optional<std::vector<uint8_t>> WrittenData::contentOf(const JournalEntry& write, uint64_t lba) const {
  if (!write.covers(lba) || !write.changesContent()) {
    return std::nullopt;
  }
  if (write.kind == CommandKind::trim) {
    return std::vector<uint8_t>(sectorBytes());
  }
  // Data of a write that skips blocks is stamped as if it did not.
  const uint64_t index = write.kind == CommandKind::writeSame ? 0 : (lba - write.lba) / write.lbaStep;
  if (write.bucket + index >= buckets()) {
    return std::nullopt;
  }
  const std::span<const uint8_t> source = bucket(write.bucket + index);
  std::vector<uint8_t> sector(source.begin(), source.end());
  if (isStamped(write)) {
    stamp(sector, write.lba + index, write.commandId);
  }
  return sector;
}

std::vector<const JournalEntry*> WrittenData::changesOf(uint64_t lba, uint64_t beforeNumber) const {
  std::vector<const JournalEntry*> changes;
  const uint64_t last = std::min(beforeNumber, journal_.issuedCount() + 1);
  for (uint64_t number = last; number-- > journal_.oldestNumber();) {
    const JournalEntry* entry = journal_.byNumber(number);
    if (entry->changesContent() && entry->covers(lba)) {
      changes.push_back(entry);
    }
  }
  return changes;
}

std::optional<WrittenBlock> WrittenData::writerOf(std::span<const uint8_t> sector, uint64_t lba) const {
  return sector.size() == sectorBytes() ? writerOfPart(sector, 0, sector.size(), lba) : std::nullopt;
}

std::optional<WrittenBlock> WrittenData::writerOfPart(std::span<const uint8_t> sector, size_t begin, size_t end,
                                                      uint64_t lba) const {
  const auto holds = [&](const JournalEntry& write, uint64_t block) {
    const std::optional<std::vector<uint8_t>> content = contentOf(write, block);
    return content &&
           std::equal(sector.begin() + static_cast<ptrdiff_t>(begin), sector.begin() + static_cast<ptrdiff_t>(end),
                      content->begin() + static_cast<ptrdiff_t>(begin));
  };
  for (const JournalEntry* write : changesOf(lba, journal_.issuedCount() + 1)) {
    if (holds(*write, lba)) {
      return WrittenBlock{write, lba};
    }
  }
  // Elsewhere: the sector of the pool first, then who used it.
  if (end - begin <= stampBytes) {
    return std::nullopt;
  }
  const size_t telling = std::max(begin, stampBytes);
  for (uint64_t number = 0; number < buckets(); ++number) {
    const std::span<const uint8_t> source = bucket(number);
    if (!std::equal(source.begin() + static_cast<ptrdiff_t>(telling), source.begin() + static_cast<ptrdiff_t>(end),
                    sector.begin() + static_cast<ptrdiff_t>(telling))) {
      continue;
    }
    for (uint64_t newest = journal_.issuedCount(); newest >= journal_.oldestNumber() && newest != 0; --newest) {
      const JournalEntry& write = *journal_.byNumber(newest);
      const uint64_t used = write.kind == CommandKind::writeSame ? 1 : write.blocks;
      if (!write.changesContent() || write.kind == CommandKind::trim || number < write.bucket ||
          number >= write.bucket + used) {
        continue;
      }
      const uint64_t block = write.lba + (number - write.bucket) * write.lbaStep;
      if (holds(write, block)) {
        return WrittenBlock{&write, block};
      }
    }
  }
  return std::nullopt;
}

bool WrittenData::isGenuine(std::span<const uint8_t> sector) const {
  const std::optional<BlockStamp> own = stampOf(sector);
  if (!own || sector.size() != sectorBytes() || own->bucket >= buckets()) {
    return false;
  }
  const std::span<const uint8_t> source = bucket(own->bucket);
  return std::equal(source.begin() + stampBytes, source.end(), sector.begin() + stampBytes);
}

}  // namespace corvane::host
