#include "tests/e2e/ClockJump.h"

#include <gtest/gtest.h>

#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/FailingDrive.h"

namespace corvane::host::e2e {
namespace {

constexpr int64_t hour = 3'600'000'000;

/// Runs a test with power cuts by the second while the time of day jumps to and fro.
RunResult runWithJumps(const std::vector<int64_t>& jumps, uint64_t everyCommands) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:16m,cache=volatile"};
  test.commandLimit = 20'000;
  test.timeLimitMs = 600'000;  // an hour forward must not end it
  test.watchdogMs = 60'000;
  test.journalDepth = 1024;
  test.powerToggle = PowerToggle::withSync;
  test.agentOptions = {{"Min Queue Size", "64"},
                       {"Max Queue Size", "256"},
                       {"Write Splice Detection", "true"},
                       {"PowerToggle Freq", "1"}};
  uint64_t commands = 0;
  size_t jumped = 0;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
    return std::make_unique<FailingDrive>(std::move(drive), [&](const DriveCommand&) -> std::optional<Fault> {
      if (++commands % everyCommands == 0) {
        jumpTimeOfDay(jumps.at(jumped++ % jumps.size()));
      }
      return std::nullopt;
    });
  });
  EXPECT_GT(jumped, 1U);
  EXPECT_GE(result.totals().commandsIssued(), 20'000U) << "it ended early";
  const DriveResult& drive = result.drives.at(0);
  EXPECT_LT(drive.elapsedMs, 600'000U);
  for (size_t kind = 0; kind < latencyKinds; ++kind) {
    // A command that took longer than the whole test was issued before it began.
    EXPECT_LE(drive.journal->latencies().at(kind).maxUs(), (drive.elapsedMs + 1) * 1000);
  }
  return result;
}

TEST(ClockJump, ForwardEndsNothingAndAccusesNobody) {
  const RunResult result = runWithJumps({hour}, 4000);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
}

TEST(ClockJump, BackHangsNothingAndAccusesNobody) {
  const RunResult result = runWithJumps({-hour}, 4000);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
}

TEST(ClockJump, ToAndFroKeepsThePowerCutsComing) {
  const RunResult result = runWithJumps({hour, -hour, 24 * hour, -24 * hour}, 1500);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().powerCycles, 1U);
}

}  // namespace
}  // namespace corvane::host::e2e
