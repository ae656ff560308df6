#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/Overwriting.h"
#include "host/fault/FaultSpec.h"
#include "host/run/ConditionPlan.h"

namespace corvane::host {

/// How often each kind of command is chosen, relative to the others of its direction; 0: never.
///
/// The weights of write, writeAtomic, writeSame and trim are compared with each other, and those of read and verify.
/// How many writes go with how many reads is the agent's affair.
struct CommandMix {
  uint32_t write = 1;
  uint32_t writeAtomic = 0;
  uint32_t writeSame = 0;
  uint32_t trim = 0;
  uint32_t read = 1;
  uint32_t verify = 0;

  /// A mix in which nothing is selected.
  static CommandMix nothing() { return {.write = 0, .read = 0}; }
  /// The weight of a kind; 0 for a cache flush, which no mix selects.
  uint32_t weight(CommandKind kind) const;
  /// Sets the weight of a kind; throws std::invalid_argument for a cache flush.
  void setWeight(CommandKind kind, uint32_t weight);
  bool selects(CommandKind kind) const { return weight(kind) != 0; }
  /// How many of write, writeAtomic, writeSame and trim are selected.
  uint32_t writeKinds() const;
};

/// Whether the test cuts the drive's power; how often is the agent's option "PowerToggle Freq".
enum class PowerToggle : uint8_t {
  off,
  withoutSync,  ///< needs a drive without a volatile cache, or forced unit access
  withSync,     ///< flushes the cache before each cut
};

/// How much of a drive is tested, counted from the test's first LBA. Nothing is set: all that follows.
struct DriveShare {
  uint64_t bytes = 0;         ///< of logical blocks, without their protection bytes; 0: `milliPercent` counts
  uint32_t milliPercent = 0;  ///< thousandths of a percent of the drive's blocks, at most 100'000

  bool any() const { return bytes != 0 || milliPercent != 0; }
  /// The share in whole blocks; what is left of a block is not tested.
  uint64_t blocksOf(const DriveGeometry& drive) const;

  bool operator==(const DriveShare&) const = default;
};

/// Everything that one test is made of. A plain value: nothing is checked before a TestRun is made of it.
struct TestDefinition {
  std::vector<std::string> driveAddresses;  ///< one drive thread each, as `openDrive` takes them
  Overwriting overwriting = Overwriting::ofEmptyDrives;
  std::string pluginPath;  ///< the agent's library

  CommandMix mix;
  uint32_t queueDepth = 32;  ///< 1 to 1024
  uint32_t minBlocks = 1;    ///< shortest transfer, at least 1
  uint32_t maxBlocks = 8;    ///< longest transfer, below the agent's "Bucket Count"

  /// Which conditions there are, what sets them, and which steps they gate.
  ConditionPlan conditions;

  std::string lbaAgent = "mixed";  ///< one of `lbaAgentNames()`
  uint64_t firstLba = 0;
  uint64_t endLba = 0;          ///< excluded; 0: the whole drive, less what sliding reads need behind the range
  DriveShare size;              ///< instead of an end: of each drive as it is
  uint32_t minAtomicBound = 1;  ///< blocks per segment of an atomic write, at least 1
  uint32_t maxAtomicBound = 8;

  uint32_t e2ePercent = 0;  ///< share of writes and verifies with 8 end-to-end bytes a block, 0 to 100
  PowerToggle powerToggle = PowerToggle::off;
  uint64_t resetEveryCommands = 0;  ///< resets the device each time so many commands were issued; 0: never
  /// Resets a zone each time so many commands were issued; 0: never. Only on drives with zones; a host-managed one
  /// needs it, and is then written at its zones' write pointers instead of where the LBA agent says.
  uint64_t zoneResetEveryCommands = 0;
  uint64_t invalidateEveryCommands = 0;  ///< the same for the invalidation of a range of 1 to `maxBlocks` blocks
  bool forceUnitAccess = false;          ///< on every command that writes
  uint32_t deviceInterface = 0;          ///< the agent's "DeviceInterface"; not 0: it shall not look at sense data

  uint64_t seed = 1;          ///< everything random of the test follows from it
  uint64_t timeLimitMs = 0;   ///< per drive; 0: none
  uint64_t commandLimit = 0;  ///< commands per drive; 0: none. Without any limit the test runs until it is stopped
  uint64_t stepLimit = 0;     ///< steps of the test's loop per drive, each of which issues at most one command; 0: none
  uint64_t commandsPerSecond = 0;  ///< upper limit per drive; 0: none
  /// Processors for the drives' threads: drive i runs on number i of them, in turn. Empty: wherever the system puts it.
  std::vector<uint32_t> pinnedCpus;
  uint64_t watchdogMs = 60'000;  ///< a drive that completes nothing for so long has failed

  /// The agent's own options by name, in the order in which they are set. "Random Seed" and "Miscompare Output Path"
  /// are set from `seed` and `outputDirectory` unless they stand here.
  std::vector<std::pair<std::string, std::string>> agentOptions;
  std::vector<FaultSpec> faults;  ///< what the drives do wrong on purpose, beneath first
  bool readDataDelivered = true;  ///< false: reads come back without data and nothing is compared, to test a test
  /// Latest commands of each drive that are remembered with their times, so that a finding can be explained. 0: none,
  /// and findings come without evidence.
  uint32_t journalDepth = 0;
  std::string outputDirectory;  ///< for reports and dumps; empty: the agent's default path stays

  /// Whether the host carries out operations of its own on ranges, which takes a place in the drive beside the
  /// `queueDepth` commands of the agent.
  bool usesRangeOperations() const { return zoneResetEveryCommands != 0 || invalidateEveryCommands != 0; }
  /// Commands that are outstanding at once at most.
  uint32_t mostOutstanding() const { return queueDepth + (usesRangeOperations() ? 1 : 0); }
};

/// The name of a drive in messages and report file names: the last part of its path (of an iSCSI unit the last two,
/// target and LUN), or its kind and index; made of letters, digits, '.', '_' and '-' only.
std::string driveDisplayName(std::string_view address, uint32_t index);

/// The seed of one consumer, so that no two of a test draw the same numbers.
///
/// @param purpose what the numbers are for, e.g. "lba"
/// @param index   the drive's
uint64_t deriveSeed(uint64_t seed, std::string_view purpose, uint64_t index);

}  // namespace corvane::host
