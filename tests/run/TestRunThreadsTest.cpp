#include <gtest/gtest.h>
#include <sched.h>

#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/base/CpuList.h"
#include "host/run/ConfigurationError.h"
#include "tests/run/TestRunFixture.h"
#include "tests/support/ThreadSchedule.h"

namespace corvane::host {
namespace {

using testing::FakeDrive;

using TestRunThreadsTest = testing::TestRunFixture;

TEST_F(TestRunThreadsTest, SeveralDrivesRunEachOnItsOwnThread) {
  test.driveAddresses = {"fake:x/a", "fake:y/a", "fake:z"};
  test.commandLimit = 2000;
  std::mutex mutex;
  std::map<std::string, int> steps;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    {
      const std::lock_guard lock(mutex);
      ++steps[thread.name];
    }
    return readEverything(thread);
  };
  TestRun run(test, nullptr, surroundings());
  ASSERT_EQ(run.drives().size(), 3U);
  EXPECT_EQ(run.drives()[1].name, "a-1");
  EXPECT_EQ(run.drives()[2].description, "fake drive");
  EXPECT_EQ(run.drives()[2].endLba, 100'000U);
  EXPECT_EQ(run.progress().drivesRunning, 0U);
  const RunResult result = run.run();
  EXPECT_EQ(result.status, RunStatus::clean);
  EXPECT_EQ(result.totals().commandsIssued(), 6000U);
  EXPECT_EQ(run.progress().totals.commandsCompleted(), 6000U);
  EXPECT_EQ(run.progress().drivesRunning, 0U);
  EXPECT_GE(steps["a"], 2000);
  EXPECT_GE(steps["a-1"], 2000);
  EXPECT_GE(steps["z"], 2000);
  EXPECT_THROW(run.run(), std::logic_error);
}

TEST_F(TestRunThreadsTest, OneDrivesFailureLeavesTheOthersRunning) {
  test.driveAddresses = {"fake:good", "fake:bad"};
  agent.onExecute = [](vdl::DriveThread& thread) { return thread.name == "bad" ? -1062 : readEverything(thread); };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::dataFailure);
  EXPECT_EQ(result.drives[0].status, RunStatus::clean);
  EXPECT_EQ(result.drives[0].totals.commandsIssued(), 50U);
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].drive, "bad");
}

TEST_F(TestRunThreadsTest, PinsTheThreadsOfTheDrivesInTurn) {
  const std::vector<uint32_t> mayUse = allowedCpus();
  test.pinnedCpus = {mayUse.back(), mayUse.front()};
  if (mayUse.size() == 1) {
    test.pinnedCpus.pop_back();
  }
  test.driveAddresses = {"fake:a", "fake:b", "fake:c"};
  std::mutex mutex;
  std::map<std::string, std::set<uint32_t>> ranOn;
  std::map<std::string, std::vector<uint32_t>> allowed;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    {
      const std::lock_guard lock(mutex);
      ranOn[thread.name].insert(static_cast<uint32_t>(sched_getcpu()));
      allowed[thread.name] = allowedCpus();
    }
    return readEverything(thread);
  };
  EXPECT_EQ(runIt().status, RunStatus::clean);
  ASSERT_EQ(ranOn.size(), 3U);
  for (size_t drive = 0; drive < 3; ++drive) {
    const std::string name(1, static_cast<char>('a' + drive));
    const uint32_t cpu = test.pinnedCpus[drive % test.pinnedCpus.size()];
    EXPECT_EQ(ranOn[name], std::set<uint32_t>{cpu}) << name;
    EXPECT_EQ(allowed[name], std::vector<uint32_t>{cpu}) << name;
  }
  EXPECT_EQ(allowedCpus(), mayUse) << "the test's own thread is free";
}

TEST_F(TestRunThreadsTest, RefusesACpuThatTheProcessMayNotUse) {
  test.pinnedCpus = {mostCpus - 1};
  try {
    runIt();
    FAIL();
  } catch (const ConfigurationError& error) {
    EXPECT_NE(std::string(error.what()).find("CPU 8191"), std::string::npos) << error.what();
    EXPECT_NE(std::string(error.what()).find(cpuListText(allowedCpus())), std::string::npos) << error.what();
  }
}

class TurnsTest : public testing::TestRunFixture {
 protected:
  TurnsTest() {
    agent.onExecute = [this](vdl::DriveThread& thread) {
      {
        const std::lock_guard lock(mutex);
        slices[thread.name] = tests::timeSliceUs();
      }
      return readEverything(thread);
    };
    // Those with an address that begins so answer from memory.
    adapt = [this](FakeDrive& drive) { drive.offers.worksInCalls = opened.back().starts_with("fake:memory"); };
  }

  /// What a drive's thread has of its processor at a time, where the kernel lets it choose; else as everywhere.
  uint64_t sliceAmong(size_t drives) {
    test.driveAddresses.clear();
    for (size_t drive = 0; drive < drives; ++drive) {
      test.driveAddresses.push_back("fake:memory" + std::to_string(drive));
    }
    EXPECT_EQ(runIt().status, RunStatus::clean);
    EXPECT_EQ(slices.size(), drives);
    return slices["memory0"];
  }

  const uint64_t usual = tests::timeSliceUs();
  const bool known = tests::kernelKnowsTimeSlices();
  std::mutex mutex;
  std::map<std::string, uint64_t> slices;
};

TEST_F(TurnsTest, MoreDrivesThanProcessorsTakeLongTurns) {
  EXPECT_EQ(sliceAmong(allowedCpus().size() + 1), known ? 100'000 : usual);
  EXPECT_EQ(tests::timeSliceUs(), usual) << "of the test's own thread";
}

TEST_F(TurnsTest, DrivesWithAProcessorEachTakeTheUsualOnes) { EXPECT_EQ(sliceAmong(allowedCpus().size()), usual); }

TEST_F(TurnsTest, DrivesThatArePinnedToOneProcessorShareIt) {
  test.pinnedCpus = {allowedCpus().front()};
  EXPECT_EQ(sliceAmong(2), known ? 100'000 : usual);
}

TEST_F(TurnsTest, OneOfManyDrivesWaitsASecondForItsTurnAtMost) {
  test.pinnedCpus = {allowedCpus().front()};
  EXPECT_EQ(sliceAmong(40), known ? 12'500 : usual);
}

TEST_F(TurnsTest, ADriveHasItsTurnLongBeforeItWouldSeemToHang) {
  test.pinnedCpus = {allowedCpus().front()};
  test.watchdogMs = 800;
  EXPECT_EQ(sliceAmong(2), known ? 25'000 : usual);
}

TEST_F(TurnsTest, ADriveThatWorksByItselfIsNotKeptWaiting) {
  test.pinnedCpus = {allowedCpus().front()};
  test.driveAddresses = {"fake:memory", "fake:itself"};
  EXPECT_EQ(runIt().status, RunStatus::clean);
  EXPECT_EQ(slices["memory"], known ? 100'000 : usual);
  EXPECT_EQ(slices["itself"], usual);
}

}  // namespace
}  // namespace corvane::host
