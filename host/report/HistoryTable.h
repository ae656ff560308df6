#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane::host::report {

/// One event of a block's history, in the agent's words; "---" stands for nothing.
struct HistoryRow {
  std::string event;        ///< "write", "atomic", …
  std::string commandId;    ///< decimal
  std::string blockType;    ///< "normal", …
  std::string bucket;       ///< hexadecimal, "ZERO" or "INVALID"
  std::string embeddedId;   ///< hexadecimal
  std::string embeddedLba;  ///< hexadecimal
  std::string hash;         ///< hexadecimal
  bool observed = false;    ///< the data matched this event
};

/// The rows of the agent's context history, newest first; lines that are no rows are left out. Never throws.
std::vector<HistoryRow> historyRows(std::string_view text);

/// Reads one line of the table. Returns whether it is a row.
bool readHistoryRow(std::string_view line, HistoryRow& row);

}  // namespace corvane::host::report
