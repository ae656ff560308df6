#pragma once

#include "vdl/Agent.h"

namespace vdl {

/// The agent: decides which command a test issues next, supplies its data, and checks what comes back.
///
/// The class is a scope, not an object: all state of a drive is in its `DriveData`, all options in one
/// `ConfigData`. The nine callbacks are what `initAgent` hands to the framework; see `vdl::AgentTable` for the
/// order in which they are called. The work behind them lives in `vdl::agent`, one file an idea.
///
/// No exception leaves a callback except two from `execute`: `std::system_error` of a range queue's mutex, and
/// `std::out_of_range` for a tag that the drive does not have. Memory that runs out becomes status -1002.
class Corvane {
 public:
  struct ConfigData;          ///< option values, shared by all drives
  struct DriveData;           ///< state of one drive
  struct CmdStatus;           ///< records of commands in flight and just finished
  struct ComparableReadData;  ///< a finished read that waits for its compare

  /// Checks the options against each other and the drive, and creates pool, trace and buffers.
  /// Every check is made and logged; the result is the last failure's status.
  static int startTest(DriveThread* drive, const void* configData, void* driveData, int ignored) noexcept;

  /// Writes the report and the dumps that the test calls for; returns 0.
  static int stopTest(DriveThread* drive, const void* configData, void* driveData, int ignored) noexcept;

  /// One step of the test: absorbs the finished command, compares what became comparable, prepares the next command.
  static int execute(DriveThread* drive, const void* configData, void* driveData);

  /// Accounts for every command in flight as lost and takes the tags back; returns 0.
  static int deviceReset(DriveThread* drive, const void* configData, void* driveData) noexcept;

  /// Creates the configuration record and registers every option with the manager.
  static int initConfigData(ConfigManager* manager) noexcept;
  /// Releases a record made by `initConfigData`; null is ignored.
  static void freeConfigData(void* configData) noexcept;

  /// Creates the drive's record, maps the shared variables and registers the record with the drive.
  static int initDriveData(DriveThread* drive) noexcept;
  /// Releases a record made by `initDriveData`, whatever state the test was left in.
  static void freeDriveData(void* driveData) noexcept;

  /// The usage text; one constant string.
  static const char* getHelpStr() noexcept;
};

}  // namespace vdl
