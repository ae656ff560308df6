#include "host/run/FindingEvidence.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>

namespace corvane::host {
namespace {

constexpr uint64_t marginBlocks = 16;
constexpr uint64_t mostBlocks = 1024;  ///< on either side of the LBA

constexpr std::string_view historyTitle = "Context History for lba 0x";
constexpr std::string_view fullDumpTitle = "Dump of the full command sequence:";

/// The command id of a "Miscompare" line: index, id, name.
std::optional<uint64_t> miscompareIdIn(const std::string& line) {
  std::istringstream words(line);
  uint64_t index = 0;
  uint64_t id = 0;
  std::string name;
  return words >> index >> id >> name && name == "Miscompare" ? std::optional(id) : std::nullopt;
}

void readReport(FindingEvidence& evidence, const std::string& path) {
  std::ifstream report(path);
  std::string line;
  bool inHistory = false;
  while (std::getline(report, line)) {
    if (line.starts_with(historyTitle)) {
      inHistory = true;
    } else if (line.starts_with(fullDumpTitle)) {
      inHistory = false;
    }
    if (inHistory && !line.empty()) {
      evidence.history += line + "\n";
    }
    if (const std::optional<uint64_t> id = miscompareIdIn(line); id && *id != 0) {
      evidence.readId = id;
    }
  }
}

std::vector<uint8_t> contentOfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

RereadRange rereadRange(const CommandJournal& journal, uint64_t lba, uint64_t firstLba, uint64_t endLba) {
  RereadRange range{lba, lba + 1};
  const auto include = [&range](const JournalEntry& entry) {
    range.firstLba = std::min(range.firstLba, entry.lba);
    range.endLba = std::max(range.endLba, entry.endLba());
  };
  bool changeFound = false;
  bool lookFound = false;
  for (uint64_t number = journal.issuedCount(); number >= journal.oldestNumber() && !(changeFound && lookFound);
       --number) {
    const JournalEntry& entry = *journal.byNumber(number);
    if (!entry.covers(lba)) {
      continue;
    }
    if (!changeFound && entry.changesContent()) {
      changeFound = true;
      include(entry);
    } else if (!lookFound && entry.looks()) {
      lookFound = true;
      include(entry);
    }
  }
  const uint64_t first = range.firstLba - std::min(range.firstLba, marginBlocks);
  const uint64_t nearest = lba - std::min(lba, mostBlocks);
  range.firstLba = std::max({first, nearest, firstLba});
  range.endLba = std::min({range.endLba + marginBlocks, lba + mostBlocks, endLba});
  return range;
}

void readAgentFiles(FindingEvidence& evidence, const std::vector<std::string>& reports,
                    const std::vector<std::string>& dumps) {
  if (!reports.empty()) {
    readReport(evidence, reports.back());
  }
  if (dumps.size() >= 2) {
    evidence.driveBlock = contentOfFile(dumps[dumps.size() - 2]);
    evidence.referenceBlock = contentOfFile(dumps.back());
  }
}

}  // namespace corvane::host
