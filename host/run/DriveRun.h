#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "host/drive/Drive.h"
#include "host/framework/DriveThreadHost.h"
#include "host/run/AgentConfig.h"
#include "host/run/AgentLog.h"
#include "host/run/ContractCheck.h"
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
  RunObserver* observer;
  WorthListener worthListener;
};

/// One drive's part of a test, from `initDriveData` to `freeDriveData`.
class DriveRun {
 public:
  /// @param ledger what `drive` does wrong on purpose; null when it does nothing wrong
  DriveRun(const RunContext& context, uint32_t index, std::string name, std::string address,
           std::unique_ptr<Drive> drive, std::unique_ptr<FaultLedger> ledger);

  /// Runs the whole test; the body of the drive's thread. Nothing is thrown: every end is in the result.
  void run() noexcept;

  /// After `run` has returned.
  const DriveResult& result() const { return result_; }

  /// Any thread.
  DriveTotals totals() const { return counters_.totals(geometry_.sectorBytes()); }

  const std::string& name() const { return result_.name; }
  const std::string& address() const { return result_.address; }
  const std::string& description() const { return result_.description; }
  const DriveGeometry& geometry() const { return geometry_; }
  const TestRange& range() const { return range_; }

 private:
  DriveThreadHost::Settings threadSettings();
  StepSettings stepSettings() const;
  CheckRules checkRules() const;
  RangeSettings rangeSettings() const;
  std::unique_ptr<LbaAgent> makeLbaSource() const;
  void runTest();
  void runAgent(DriveThreadHost& host);
  /// From `startTest` to `stopTest`.
  void runStarted(DriveThreadHost& host, StepLoop& loop);
  int32_t stepUntilEnd(StepLoop& loop);
  /// Waits until the rate allows another command, but not for long at a time.
  bool mustWait(const StepLoop& loop, uint64_t elapsedUs);
  void agentEnded(const char* callback, int32_t status);
  void failed(RunStatus status, const std::string& error);

  const RunContext context_;
  const uint32_t index_;
  std::unique_ptr<FaultLedger> ledger_;  // outlives the drive that writes it
  std::unique_ptr<Drive> drive_;
  const DriveGeometry geometry_;
  const TestRange range_;
  DriveCounters counters_;
  AgentLog log_;
  MiscompareRecorder recorder_;
  DriveResult result_;
};

}  // namespace corvane::host
