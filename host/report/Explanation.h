#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane::host::report {

/// One command to a drive, as a result tells of it.
struct ReportedCommand {
  uint64_t number = 0;         ///< 1: the first to the drive; 0: unknown
  std::optional<uint64_t> id;  ///< the agent's
  std::string kind;            ///< "write", "atomic", "writesame", "trim", "read", "verify" or "sync"
  std::optional<uint64_t> tag;
  uint64_t lba = 0;
  uint64_t blocks = 0;
  uint64_t lbaStep = 1;  ///< from one of its blocks to the next
  uint64_t issued = 0;   ///< microseconds since the test's start, or a place in a sequence
  std::optional<uint64_t> finished;
  std::optional<uint64_t> status;  ///< SCSI status
  bool preRead = false;
  std::string trouble;  ///< what else went wrong with it, in words; empty when nothing did

  bool failed() const { return status.value_or(0) != 0 || !trouble.empty(); }
  bool reads() const { return kind == "read" || kind == "verify"; }

  /// Whether a block belongs to it.
  bool touches(uint64_t block) const {
    return block >= lba && (block - lba) % lbaStep == 0 && (block - lba) / lbaStep < blocks;
  }
};

/// What a block says of itself.
struct Stamp {
  std::optional<uint64_t> bucket;
  std::optional<uint64_t> lba;
  std::optional<uint64_t> commandId;
  bool zeros = false;  ///< the whole block is zeros
};

/// A content that would have been accepted.
struct LegalOutcome {
  std::string text;
  std::optional<uint64_t> commandId;
  std::optional<uint64_t> bucket;
};

/// What a block beside the wrong one held.
struct Neighbour {
  uint64_t lba = 0;
  std::string state;  ///< "expected", "old", "zeros", "other", "unknown" or "unreadable"
  std::optional<uint64_t> commandId;
};

/// What a run found out about one finding.
struct Explanation {
  std::string kind;                    ///< "old-data", "zeros", …
  std::vector<std::string> suspects;   ///< names of faults, likeliest first
  std::vector<std::string> sentences;  ///< for people, in order
  std::optional<uint64_t> lba;
  std::optional<uint64_t> blockSize;  ///< bytes, protection bytes included
  std::optional<ReportedCommand> read;
  std::optional<Stamp> expected;
  std::optional<Stamp> observed;
  std::optional<ReportedCommand> expectedWrite;
  std::optional<ReportedCommand> observedWrite;
  std::vector<LegalOutcome> legal;
  std::optional<uint64_t> firstDifference;  ///< byte of the block
  std::optional<uint64_t> differingBytes;
  std::vector<uint8_t> driveData;      ///< empty when unknown
  std::vector<uint8_t> referenceData;  ///< empty when unknown
  std::string reread;                  ///< "same", "as expected", "different" or "failed"; empty when not tried
  std::vector<Neighbour> neighbours;
  std::vector<ReportedCommand> commands;  ///< around the LBA, oldest first
  std::string history;                    ///< the agent's table
  std::string replay;                     ///< a command line
};

}  // namespace corvane::host::report
