#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/fault/FaultLedger.h"
#include "host/run/CheckedBlocks.h"
#include "host/run/FindingEvidence.h"
#include "host/run/UnansweredCommand.h"

namespace corvane::host {

inline constexpr uint32_t commandKinds = 7;  ///< those that an agent may ask for: CommandKind up to syncCache

/// How a test ended, or one drive's part of it.
enum class RunStatus : uint8_t {
  clean,          ///< ran to its end, nothing found
  dataFailure,    ///< the drive did not hold what it had to hold
  configuration,  ///< the agent refused its options
  drive,          ///< the drive or its transport failed
  internal,       ///< a fault of this program or of the agent
};

/// "clean", "data failure", "configuration error", "drive error", "internal error".
const char* runStatusName(RunStatus status);

/// The more telling of two: data failure, internal, drive, configuration, clean.
RunStatus worse(RunStatus a, RunStatus b);

/// What an agent status means for the test: 0 is clean; -1046, -1062 and -1063 are data failures; statuses about
/// options are configuration errors; every other one is internal.
RunStatus statusOfAgentCode(int32_t agentStatus);

/// Running figures of one drive. Bytes are those of the blocks, protection information included; a block of a
/// write-same counts like any other written block.
struct DriveTotals {
  std::array<uint64_t, commandKinds> issued{};     ///< by CommandKind
  std::array<uint64_t, commandKinds> completed{};  ///< delivered to the agent, whatever the status
  uint64_t failed = 0;                             ///< delivered with a status other than good
  uint64_t blocksWritten = 0;                      ///< by good writes, atomic writes and write-sames
  uint64_t bytesWritten = 0;
  uint64_t blocksTrimmed = 0;
  uint64_t blocksRead = 0;  ///< by good reads, pre-reads included
  uint64_t bytesRead = 0;
  uint64_t blocksCompared = 0;  ///< by good reads that were no pre-reads, and by good verifies
  uint64_t bytesCompared = 0;
  CheckedBlocks checked;  ///< what the compared blocks were worth, and those of reads and verifies that failed
  uint64_t resets = 0;
  uint64_t powerCycles = 0;
  uint64_t connectionsLost = 0;  ///< each with a reset of the drive that `resets` does not count
  uint64_t zoneResets = 0;       ///< without those that empty a host-managed drive before the first step
  uint64_t invalidations = 0;    ///< of ranges
  uint64_t heldBack = 0;         ///< commands that waited for an overlapping one before they went to the drive
  uint64_t retried = 0;          ///< busy, task set full, unit attention, reservation conflict
  uint64_t stray = 0;            ///< completions of commands that were not outstanding; dropped
  uint32_t outstanding = 0;      ///< now
  uint32_t maxOutstanding = 0;

  uint64_t commandsIssued() const;
  uint64_t commandsCompleted() const;
  /// Adds the other's counts; `maxOutstanding` becomes the greater one.
  DriveTotals& operator+=(const DriveTotals& other);
};

/// What the agent said while a drive was tested.
struct AgentMessages {
  static constexpr size_t maxTexts = 100;
  struct Line {
    int level = 0;
    std::string text;
  };
  uint64_t warnings = 0;                ///< lines of level 1
  uint64_t errors = 0;                  ///< lines of level 2
  std::vector<Line> lines;              ///< the first `maxTexts` of level 1 and 2, in order
  std::vector<std::string> reports;     ///< command-sequence reports that the agent wrote
  std::vector<std::string> dumps;       ///< dumps of the drive's and the reference data
  std::vector<std::string> incomplete;  ///< what is missing of these files, a sentence each
};

/// When something happened in the test of one drive.
struct TestMoment {
  uint64_t commandNumber = 0;  ///< commands that had been issued to the drive
  uint64_t step = 0;       ///< steps of the test's loop that had begun; a test that ends after them gets there again
  uint64_t elapsedMs = 0;  ///< since the drive's test began
};

/// One data failure.
struct Finding {
  uint32_t driveIndex = 0;                     ///< in the order of the test's drives
  std::string drive;                           ///< display name
  int32_t agentStatus = 0;                     ///< -1046 miscompare, -1062 write splice, -1063 atomic order
  std::optional<uint64_t> lba = std::nullopt;  ///< that the agent named
  std::string text;                            ///< the agent's first error line
  std::vector<std::string> files;              ///< reports and dumps about it
  TestMoment moment;
};

/// How one drive's test went.
struct DriveResult {
  std::string name;  ///< display name
  std::string address;
  std::string description;  ///< the drive's own
  RunStatus status = RunStatus::clean;
  int32_t agentStatus = 0;             ///< the first status other than 0 that a callback returned
  std::string error;                   ///< one line; empty when clean
  std::optional<uint64_t> findingLba;  ///< of a data failure, as far as the agent named one
  TestMoment moment;                   ///< when `agentStatus` came; all 0 while there is none
  DriveTotals totals;
  AgentMessages messages;
  std::vector<UnansweredCommand> unanswered;        ///< all that a drive that hangs has not answered, oldest first
  std::vector<Injection> injections;                ///< what the drive did wrong on purpose
  std::shared_ptr<const FindingEvidence> evidence;  ///< of a data failure; null without a journal
  std::shared_ptr<const CommandJournal> journal;    ///< null when none was asked for
  uint64_t elapsedMs = 0;
};

/// The data failure in which a drive's test ended, if it ended in one.
std::optional<Finding> findingOf(const DriveResult& drive);

/// How a test went.
struct RunResult {
  RunStatus status = RunStatus::clean;  ///< the worst of all drives
  std::vector<DriveResult> drives;
  std::vector<Finding> findings;
  uint64_t seed = 0;
  uint64_t elapsedMs = 0;
  bool stopped = false;  ///< ended by `requestStop`

  DriveTotals totals() const;
};

}  // namespace corvane::host
