#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/drive/Drive.h"
#include "host/framework/DriveThreadHost.h"
#include "host/run/AgentConfig.h"
#include "host/run/AgentLog.h"
#include "host/run/ContractCheck.h"
#include "host/run/DriveCalls.h"
#include "host/run/DriveCounters.h"
#include "host/run/HostClock.h"
#include "host/run/MiscompareRecorder.h"
#include "host/run/RunResult.h"
#include "host/run/StepLoop.h"
#include "host/run/TestDefinition.h"
#include "vdl/Agent.h"

namespace corvane::host {

/// What all drives of a test share; outlives their runs and does not change while they run, but for the stop flag.
struct RunContext {
  const TestDefinition& test;
  const AgentOptionValues& options;
  const vdl::AgentTable& agent;
  const void* configData;
  HostClock& clock;
  const std::atomic<bool>& stop;
  RunObserver* observer;  ///< never null
  WorthListener worthListener;
  uint64_t turnUs = 0;  ///< for askForTimeSlice, by drives that work in calls; 0: the system's choice
};

/// One drive's part of a test, from `initDriveData` to `freeDriveData`.
class DriveRun {
 public:
  /// @param ledger what `drive` does wrong on purpose; null when it does nothing wrong
  DriveRun(const RunContext& context, uint32_t index, std::string name, const std::string& address,
           std::unique_ptr<Drive> drive, std::unique_ptr<FaultLedger> ledger);

  /// Runs the whole test; the body of the drive's thread. Nothing is thrown: every end is in the result.
  void run() noexcept;

  /// Ends the test of this drive when its thread has been inside one call of the drive for the watchdog's time, as far
  /// as earlier calls of this have seen. That thread then sleeps for good, and the object, and all that it uses, must
  /// stay. Of one thread, which is not the drive's.
  ///
  /// @return whether it did
  bool giveUpIfHung(std::chrono::steady_clock::time_point now);

  /// Whether the test of this drive is over. Any thread.
  bool ended() const { return ended_.load(std::memory_order_acquire); }

  /// Once it has ended. Any thread.
  const DriveResult& result() const { return result_; }

  /// Any thread.
  DriveTotals totals() const { return counters_.totals(geometry_.sectorBytes()); }

  const std::string& name() const { return result_.name; }
  const std::string& address() const { return result_.address; }
  const std::string& description() const { return result_.description; }
  const DriveGeometry& geometry() const { return geometry_; }
  const TestRange& range() const { return range_; }

 private:
  /// Keeps the calling thread on the CPU that the test gives the drive, if it gives one.
  void pin() const;
  /// Asks for long turns when the drive loses nothing by waiting for the next one.
  void askForTurns() const;
  DriveThreadHost::Settings threadSettings();
  StepSettings stepSettings();
  CheckRules checkRules() const;
  RangeSettings rangeSettings() const;
  std::unique_ptr<LbaAgent> makeLbaSource() const;
  void runTest();
  /// Completes the result of a test that is over.
  void conclude();
  /// Looks whether the agent's files are complete.
  void checkFiles();
  void runAgent(DriveThreadHost& host);
  /// From `startTest` to `stopTest`.
  void runStarted(DriveThreadHost& host, StepLoop& loop);
  int32_t stepUntilEnd(StepLoop& loop);
  /// Closes a drive whose test broke off, so that it is done with the memory of its commands; one that hangs is reset
  /// first.
  ///
  /// @return the failure to go on with
  std::exception_ptr closeAfter(const std::exception_ptr& failure, StepLoop& loop);
  /// @return what came of it, to continue a sentence
  std::string resetHungDrive();
  /// Tells of the end.
  void tellEnd();
  bool foundSomething() const { return statusOfAgentCode(result_.agentStatus) == RunStatus::dataFailure; }
  /// The LBA that the agent named, to the device or in its first error line.
  std::optional<uint64_t> findingLba() const;
  /// After `stopTest`: the agent's files are written, and its data and the loop's are still there.
  void gatherEvidence(DriveThreadHost& host, StepLoop& loop);
  /// How long the test of the drive has taken so far, at most a step ago.
  uint64_t elapsedUs(uint64_t beganUs);
  /// Waits until the rate allows another command, but not for long at a time.
  bool mustWait(const StepLoop& loop, uint64_t elapsedUs);
  /// Remembers when the agent ended the test.
  void noteMoment(const StepLoop& loop);
  void agentEnded(const char* callback, int32_t status);
  void failed(RunStatus status, std::string_view error);

  DriveCounters counters_;  // first, as it begins a cache line
  const RunContext context_;
  const uint32_t index_;
  std::unique_ptr<FaultLedger> ledger_;  // outlives the drive that writes it
  std::unique_ptr<Drive> drive_;
  const DriveGeometry geometry_;
  const TestRange range_;
  AgentLog log_;
  MiscompareRecorder recorder_;              // detached before its drive goes
  std::shared_ptr<CommandJournal> journal_;  ///< null: nobody asked for it
  uint64_t foundUs_ = 0;
  uint64_t beganUs_ = 0;
  uint64_t steps_ = 0;
  uint64_t looksSeen_ = 0;  ///< of the journal at the clock
  DriveCalls calls_;
  std::string hang_;       ///< how the drive hangs, while it is reset for that
  std::string remedy_;     ///< for it
  uint64_t seenCall_ = 0;  ///< of the thread that waits
  std::chrono::steady_clock::time_point seenAt_;
  DriveResult result_;
  std::atomic<bool> ended_{false};
};

}  // namespace corvane::host
