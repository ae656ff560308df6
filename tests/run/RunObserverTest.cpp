#include "host/run/RunObserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "tests/run/TestRunFixture.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeAgent;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// Writes down what it is told.
struct NotingObserver final : RunObserver {
  void onAgentLine(uint32_t drive, int level, std::string_view text) override {
    note(drive, "line " + std::to_string(level) + " " + std::string(text));
  }
  void onReset(uint32_t drive) override { note(drive, "reset"); }
  void onPowerCycle(uint32_t drive) override { note(drive, "power cycle"); }
  void onFinding(uint32_t drive, const Finding& finding) override {
    note(drive, "finding " + std::to_string(finding.agentStatus) + " " + finding.text);
  }
  void onDriveEnd(uint32_t drive, const DriveResult& result) override {
    note(drive, std::string("end ") + runStatusName(result.status) + ", " +
                    std::to_string(result.totals.commandsIssued()) + " commands");
  }
  void note(uint32_t drive, const std::string& what) {
    const std::lock_guard lock(mutex);
    told.push_back(std::to_string(drive) + ": " + what);
  }

  std::mutex mutex;
  std::vector<std::string> told;
};

class RunObserverTest : public testing::TestRunFixture {
 protected:
  RunObserverTest() { test.commandLimit = 20; }

  RunResult run(RunObserver* told) { return TestRun(test, told, surroundings()).run(); }

  NotingObserver observer;
};

TEST_F(RunObserverTest, isToldOfEachResetAndOfTheEnd) {
  agent.onExecute = readEverything;
  test.resetEveryCommands = 8;
  run(&observer);
  EXPECT_THAT(observer.told, ElementsAre("0: reset", "0: reset", "0: end clean, 20 commands"));
}

TEST_F(RunObserverTest, isToldWhichDriveItIs) {
  agent.onExecute = readEverything;
  test.driveAddresses = {"fake:a", "fake:b"};
  test.resetEveryCommands = 12;
  run(&observer);
  EXPECT_THAT(observer.told,
              UnorderedElementsAre("0: reset", "0: end clean, 20 commands", "1: reset", "1: end clean, 20 commands"));
}

TEST_F(RunObserverTest, isToldOfAPowerCut) {
  test.powerToggle = PowerToggle::withoutSync;
  int steps = 0;
  agent.onExecute = [&steps](vdl::DriveThread& thread) {
    if (++steps == 5) {
      FakeAgent::takeTagsBack(thread);
      FakeAgent::apply(thread, ConditionSet::powerToggleBit);
      return 0;
    }
    return readEverything(thread);
  };
  run(&observer);
  EXPECT_THAT(observer.told, ElementsAre("0: power cycle", "0: end clean, 20 commands"));
}

TEST_F(RunObserverTest, isToldOfAFindingBeforeTheEnd) {
  agent.onExecute = [](vdl::DriveThread& thread) {
    thread.eventLog->logf(2, "Miscompare Detected at LBA 0x7");
    return -1046;
  };
  run(&observer);
  EXPECT_THAT(observer.told,
              ElementsAre("0: line 2 Miscompare Detected at LBA 0x7", "0: finding -1046 Miscompare Detected at LBA 0x7",
                          "0: end data failure, 0 commands"));
}

TEST_F(RunObserverTest, anotherFailureIsNoFinding) {
  agent.onExecute = [](vdl::DriveThread&) { return -1; };
  run(&observer);
  EXPECT_THAT(observer.told, ElementsAre("0: end internal error, 0 commands"));
}

TEST_F(RunObserverTest, nobodyNeedsToListen) {
  agent.onExecute = readEverything;
  test.resetEveryCommands = 8;
  EXPECT_EQ(run(nullptr).totals().resets, 2U);
  EXPECT_THAT(observer.told, IsEmpty());
}

TEST_F(RunObserverTest, progressSaysHowEachDriveEnded) {
  agent.onExecute = [](vdl::DriveThread& thread) { return thread.name == "b" ? -1046 : readEverything(thread); };
  test.driveAddresses = {"fake:a", "fake:b"};
  TestRun both(test, nullptr, surroundings());
  ASSERT_EQ(both.progress().drives.size(), 2U);
  EXPECT_FALSE(both.progress().drives[0].ended);
  both.run();
  const ProgressSnapshot end = both.progress();
  EXPECT_TRUE(end.drives[0].ended);
  EXPECT_EQ(end.drives[0].status, RunStatus::clean);
  EXPECT_EQ(end.drives[0].totals.commandsIssued(), 20U);
  EXPECT_EQ(end.drives[1].status, RunStatus::dataFailure);
  EXPECT_EQ(end.totals.commandsIssued(), 20U);
}

}  // namespace
}  // namespace corvane::host
