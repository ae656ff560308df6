#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/HistoryTable.h"

namespace corvane::host::report {

/// What an entry of a command sequence tells of.
enum class TraceEvent : uint8_t {
  issued,
  finished,
  aborted,
  miscompare,
  writeSplice,
  outOfOrder,
  powerOff,
  powerOn,
  rangeInvalidated,
  zoneReset,
};

/// One entry of a command sequence.
struct TraceEntry {
  uint64_t index = 0;  ///< its place in the sequence
  TraceEvent event = TraceEvent::issued;
  std::string
      kind;  ///< of a command as in results: "write", "atomic", …; of a finished one "write", "read" or "verify"
  bool preRead = false;
  std::optional<uint64_t> commandId;
  std::optional<uint64_t> tag;
  uint64_t lba = 0;                   ///< first LBA, also of a range
  uint64_t blocks = 0;                ///< 0 where the report gives none
  uint64_t endLba = 0;                ///< second LBA of a range, as printed
  std::optional<uint64_t> bucket;     ///< written, or expected by a read or by a miscompare
  std::optional<uint64_t> found;      ///< of a miscompare: the bucket on the drive
  bool invalidated = false;           ///< "!" before the bucket
  std::optional<uint64_t> unitError;  ///< UEC
  std::optional<uint64_t> sense;      ///< KCQ
  std::optional<uint64_t> overtaken;  ///< of a completion out of order: the other command's id
};

/// A line that is none of those that a report is made of.
struct UnreadLine {
  size_t number = 0;  ///< 1: the first
  std::string text;   ///< its beginning
};

/// A command-sequence report of the agent.
struct TraceReport {
  std::optional<uint64_t> lba;  ///< the block that it is about
  std::vector<TraceEntry> aboutBlock;
  std::vector<TraceEntry> all;
  std::vector<HistoryRow> history;
  std::vector<UnreadLine> unread;  ///< the first ones
  size_t unreadLines = 0;          ///< how many there are
};

/// Reads a report; whatever bytes it is given, it takes what it can read and lists the rest. Throws nothing but
/// std::bad_alloc.
TraceReport readTrace(std::string_view text);

}  // namespace corvane::host::report
