#include "host/report/HistoryTable.h"

#include <algorithm>
#include <array>

#include "host/report/TextLines.h"

namespace corvane::host::report {
namespace {

constexpr size_t columns = 7;

bool isEvent(std::string_view word) {
  constexpr std::array<std::string_view, 6> events{"none", "write", "atomic", "hash", "invalidate", "?"};
  return std::find(events.begin(), events.end(), word) != events.end();
}

bool isDecimal(std::string_view word) {
  return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

bool readHistoryRow(std::string_view line, HistoryRow& row) {
  const std::vector<std::string_view> words = wordsOf(line);
  if (words.size() < columns || words.size() > columns + 1 || !isEvent(words[0]) || !isDecimal(words[1])) {
    return false;
  }
  const bool observed = words.size() == columns + 1;
  if (observed && words[columns] != "*observed*") {
    return false;
  }
  row = {.event = std::string(words[0]),
         .commandId = std::string(words[1]),
         .blockType = std::string(words[2]),
         .bucket = std::string(words[3]),
         .embeddedId = std::string(words[4]),
         .embeddedLba = std::string(words[5]),
         .hash = std::string(words[6]),
         .observed = observed};
  return true;
}

std::vector<HistoryRow> historyRows(std::string_view text) {
  std::vector<HistoryRow> rows;
  for (const std::string_view line : linesOf(text)) {
    HistoryRow row;
    if (readHistoryRow(line, row)) {
      rows.push_back(std::move(row));
    }
  }
  return rows;
}

}  // namespace corvane::host::report
