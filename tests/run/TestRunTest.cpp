#include "host/run/TestRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"
#include "tests/run/TestRunFixture.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeAgent;
using testing::FakeDrive;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using TestRunTest = testing::TestRunFixture;

TEST_F(TestRunTest, RunsToTheCommandLimitAndCallsEverythingInOrder) {
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::clean);
  ASSERT_EQ(result.drives.size(), 1U);
  EXPECT_EQ(result.drives[0].totals.commandsIssued(), 50U);
  EXPECT_EQ(result.drives[0].totals.commandsCompleted(), 50U);
  EXPECT_EQ(result.drives[0].name, "a");
  EXPECT_EQ(result.drives[0].error, "");
  EXPECT_THAT(result.findings, IsEmpty());
  EXPECT_THAT(agent.calls, ElementsAre("initConfigData", "initDriveData", "startTest", "stopTest", "freeDriveData",
                                       "freeConfigData"));
}

TEST_F(TestRunTest, TheAgentSeesTheTestsFactsBeforeItStarts) {
  adapt = [](FakeDrive& drive) {
    drive.shape = {.blocks = 5000, .blockSize = 4096, .protectionBytes = 8, .physicalExponent = 2};
  };
  test.firstLba = 100;
  test.endLba = 4000;
  test.maxBlocks = 16;
  std::string seen;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    int error = 0;
    seen = thread.name + " " + std::to_string(thread.blockSize) + " " + std::to_string(thread.protectionEnabled) + " " +
           std::to_string(thread.protectionBytes) + " " + std::to_string(thread.physicalExponent) + " " +
           std::to_string(thread.queueDepth) + " " + std::to_string(*thread.mapU64("MinLBA", 1, &error, 0)) + " " +
           std::to_string(*thread.mapU64("MaxLBA", 1, &error, 0)) + " " +
           std::to_string(*thread.mapU32("TestMaxXferLength", 1, &error, 0)) + " " +
           std::to_string(thread.timestampUs >= 1'700'000'000'000'000) + " " + std::to_string(thread.ostraDevice >= 0);
    return readEverything(thread);
  };
  EXPECT_EQ(runIt().status, RunStatus::clean);
  EXPECT_EQ(seen, "a 4096 1 8 2 4 100 3999 16 1 1");
}

TEST_F(TestRunTest, FaultsArePutInFrontOfTheDrivesAndBooked) {
  agent.onExecute = [](vdl::DriveThread& thread) {
    const bool free = thread.freeTags->peekNextFreeTag() != 0xFFFFFFFF;
    FakeAgent::apply(thread, free ? ConditionSet::readBit : 0);
    return 0;
  };
  test.faults = {parseFaultSpec("misdirected-read:rate=0.5")};
  TestRun run(test, nullptr, surroundings());
  EXPECT_THAT(run.drives().at(0).description, HasSubstr("with misdirected-read:rate=0.5"));
  const RunResult result = run.run();
  EXPECT_EQ(result.status, RunStatus::clean);
  EXPECT_THAT(result.drives[0].injections, IsEmpty()) << "nobody waits for blocks that were never written";
}

TEST_F(TestRunTest, AFaultThatCanNeverStrikeIsRefused) {
  test.faults = {parseFaultSpec("trim-ignored:at=command:5")};
  EXPECT_THAT(complaint(), HasSubstr("the test issues no trim"));
  test.faults = {parseFaultSpec("cross-talk:at=command:5")};
  EXPECT_THAT(complaint(), HasSubstr("name two"));
}

TEST_F(TestRunTest, AFindingEndsTheDriveAndNamesItsFiles) {
  agent.onExecute = [n = 0](vdl::DriveThread& thread) mutable {
    if (++n < 10) {
      return readEverything(thread);
    }
    thread.eventLog->logf(1, "a warning");
    thread.eventLog->logf(2, "Miscompare Detected at LBA %d", 5);
    thread.eventLog->logf(2, "execute(): text (-1046)");
    return -1046;
  };
  agent.onStop = [](vdl::DriveThread& thread) {
    thread.eventLog->logf(2, "Bucket compare command sequence saved to './t.txt'");
    thread.eventLog->logf(2, "Miscompare Data Written To './d.bin'");
    return 0;
  };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::dataFailure);
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].drive, "a");
  EXPECT_EQ(result.findings[0].agentStatus, -1046);
  EXPECT_EQ(result.findings[0].text, "Miscompare Detected at LBA 5");
  EXPECT_THAT(result.findings[0].files, ElementsAre("./t.txt", "./d.bin"));
  EXPECT_EQ(result.drives[0].messages.errors, 4U);
  EXPECT_EQ(result.drives[0].messages.warnings, 1U);
  EXPECT_EQ(observer.lines, 5);
}

TEST_F(TestRunTest, AFindingKnowsItsDriveAndItsMoment) {
  test.driveAddresses = {"fake:a", "fake:b"};
  clock.pause(5000);
  std::mutex mutex;
  std::map<std::string, int> steps;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    const std::lock_guard lock(mutex);
    // Three steps issue nothing, so steps and commands differ.
    const int step = ++steps[thread.name];
    if (step <= 3) {
      FakeAgent::apply(thread, 0);
      return 0;
    }
    return step == 10 && thread.name == "b" ? -1046 : readEverything(thread);
  };
  const RunResult result = runIt();
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].driveIndex, 1U);
  EXPECT_EQ(result.findings[0].moment.step, 10U);
  EXPECT_EQ(result.findings[0].moment.commandNumber, 6U);
  EXPECT_EQ(result.drives[1].moment.step, 10U);
  EXPECT_EQ(result.drives[0].moment.step, 0U);
}

TEST_F(TestRunTest, TheStepLimitEndsTheTest) {
  test.commandLimit = 0;
  test.stepLimit = 77;
  EXPECT_EQ(runIt().drives[0].totals.commandsIssued(), 77U);
}

TEST_F(TestRunTest, AFindingAfterTheLastStepHasItsNumber) {
  test.commandLimit = 0;
  test.stepLimit = 20;
  agent.onExecute = [n = 0](vdl::DriveThread& thread) mutable { return ++n > 20 ? -1046 : readEverything(thread); };
  const RunResult result = runIt();
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].moment.step, 20U);
}

TEST_F(TestRunTest, OtherAgentStatusesAreNoFindings) {
  agent.onExecute = [](vdl::DriveThread&) { return -1200; };
  RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::internal);
  EXPECT_EQ(result.drives[0].error, "the agent's execute returned -1200");
  EXPECT_THAT(result.findings, IsEmpty());
}

TEST_F(TestRunTest, AFailedStartIsNotStoppedButFreed) {
  agent.startStatus = -1050;
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::configuration);
  EXPECT_EQ(result.drives[0].error, "the agent's startTest returned -1050");
  EXPECT_THAT(agent.calls,
              ElementsAre("initConfigData", "initDriveData", "startTest", "freeDriveData", "freeConfigData"));
}

TEST_F(TestRunTest, AFailedDriveInitialisationEndsTheDrive) {
  agent.initDriveStatus = -12;
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::internal);
  EXPECT_EQ(result.drives[0].agentStatus, -12);
  EXPECT_THAT(agent.calls, ElementsAre("initConfigData", "initDriveData", "freeDriveData", "freeConfigData"));
}

TEST_F(TestRunTest, ADriveErrorEndsTheDriveAndTheAgentIsStillStopped) {
  adapt = [](FakeDrive& drive) {
    drive.onPoll = [n = 0]() mutable {
      if (++n == 20) {
        throw DriveError("the cable fell out; plug it in");
      }
    };
  };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::drive);
  EXPECT_EQ(result.drives[0].error, "the cable fell out; plug it in");
  EXPECT_THAT(agent.calls, ElementsAre("initConfigData", "initDriveData", "startTest", "stopTest", "freeDriveData",
                                       "freeConfigData"));
}

TEST_F(TestRunTest, AnAgentThatBreaksTheRulesIsAnInternalError) {
  agent.onExecute = [](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, ConditionSet::readBit | ConditionSet::trimBit);
    return 0;
  };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::internal);
  EXPECT_THAT(result.drives[0].error, HasSubstr("more than one condition"));
}

TEST_F(TestRunTest, StopEndsATestWithoutLimits) {
  test.commandLimit = 0;
  TestRun* running = nullptr;
  agent.onExecute = [&, n = 0](vdl::DriveThread& thread) mutable {
    if (++n == 500) {
      running->requestStop();
    }
    return readEverything(thread);
  };
  TestRun run(test, nullptr, surroundings());
  running = &run;
  const RunResult result = run.run();
  EXPECT_TRUE(result.stopped);
  EXPECT_EQ(result.status, RunStatus::clean);
  EXPECT_EQ(result.totals().commandsIssued(), 500U);
  EXPECT_EQ(result.totals().outstanding, 0U);
}

TEST_F(TestRunTest, TheTimeLimitEndsTheTest) {
  test.commandLimit = 0;
  test.timeLimitMs = 300;
  agent.onExecute = [this](vdl::DriveThread& thread) {
    clock.pause(1000);
    return readEverything(thread);
  };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::clean);
  EXPECT_FALSE(result.stopped);
  EXPECT_EQ(result.totals().commandsIssued(), 300U);
  EXPECT_GE(result.elapsedMs, 300U);
}

TEST_F(TestRunTest, TheRateLimitSpacesTheCommands) {
  test.commandLimit = 0;
  test.timeLimitMs = 2000;
  test.commandsPerSecond = 100;
  const RunResult result = runIt();
  EXPECT_GE(result.totals().commandsIssued(), 199U);
  EXPECT_LE(result.totals().commandsIssued(), 201U);
}

TEST_F(TestRunTest, NothingLiesQueuedWhileTheRateLimitPauses) {
  std::vector<uint64_t> unsent;
  std::vector<uint64_t> unsentInPauses;
  clock.onPause = [&] { unsentInPauses.insert(unsentInPauses.end(), unsent.begin(), unsent.end()); };
  adapt = [&](FakeDrive& drive) {
    drive.onSubmit = [&, answer = drive.onSubmit](const DriveCommand& command) {
      unsent.push_back(command.id);
      answer(command);
    };
    drive.onSendQueued = [&] { unsent.clear(); };
  };
  test.commandsPerSecond = 100;
  const RunResult result = runIt();
  EXPECT_EQ(result.totals().commandsIssued(), 50U);
  EXPECT_GT(clock.pauses, 40);
  EXPECT_THAT(unsentInPauses, IsEmpty());
}

TEST_F(TestRunTest, ASeedRepeatsEveryCommand) {
  test.mix = {.write = 1, .writeAtomic = 1, .read = 1, .verify = 1};
  test.e2ePercent = 30;
  test.driveAddresses = {"fake:a", "fake:b"};
  const auto trace = [this](uint64_t seed) {
    test.seed = seed;
    std::mutex mutex;
    std::map<std::string, std::string> text;
    agent.onExecute = [&](vdl::DriveThread& thread) {
      int error = 0;
      const std::string step = std::to_string(*thread.mapU64("LBA", 3, &error, 0)) + "+" +
                               std::to_string(*thread.mapU32("XferLength", 3, &error, 0)) + "/" +
                               std::to_string(*thread.mapU32("AtomicBound", 3, &error, 0)) + ":" +
                               std::to_string(thread.conditions) + " ";
      {
        const std::lock_guard lock(mutex);
        text[thread.name] += step;
      }
      return readEverything(thread);
    };
    EXPECT_EQ(runIt().status, RunStatus::clean);
    return text;
  };
  const auto first = trace(9);
  EXPECT_EQ(first, trace(9));
  EXPECT_NE(first, trace(10));
  EXPECT_NE(first.at("a"), first.at("b"));
}

TEST_F(TestRunTest, EachDriveGetsASeedOfItsOwnFromTheTests) {
  test.driveAddresses = {"sim:64m", "sim:32m"};
  const TestRun run(test, nullptr, surroundings());
  EXPECT_THAT(opened, ::testing::ElementsAre("sim:64m", "sim:32m"));
  ASSERT_EQ(seeds.size(), 2U);
  EXPECT_NE(seeds[0], seeds[1]);

  const std::vector<uint64_t> before = seeds;
  test.seed += 1;
  const TestRun other(test, nullptr, surroundings());
  EXPECT_NE(seeds[2], before[0]);
}

TEST_F(TestRunTest, WhatCannotRunIsRefusedBeforeADriveIsOpened) {
  test.queueDepth = 1025;
  EXPECT_THAT(complaint(), HasSubstr("queue depth 1025"));
  test.queueDepth = 4;
  test.lbaAgent = "zigzag";
  EXPECT_THAT(complaint(), HasSubstr("LBA agent 'zigzag'"));
  test.lbaAgent = "mixed";
  test.agentOptions = {{"Nonsense", "1"}};
  EXPECT_THAT(complaint(), HasSubstr("Nonsense"));
  test.agentOptions = {{"Bucket Count", "8"}};
  EXPECT_THAT(complaint(), HasSubstr("Bucket Count"));
  EXPECT_THAT(opened, IsEmpty());
  EXPECT_EQ(std::count(agent.calls.begin(), agent.calls.end(), "initConfigData"),
            std::count(agent.calls.begin(), agent.calls.end(), "freeConfigData"));
}

TEST_F(TestRunTest, AMissingPlugInIsNamed) {
  test.pluginPath = "/nowhere/agent.so";
  EXPECT_THROW(TestRun(test, nullptr, {}), ConfigurationError);
}

TEST_F(TestRunTest, ADriveThatLacksACommandIsADriveError) {
  test.mix.trim = 1;
  adapt = [](FakeDrive& drive) { drive.offers.trim = false; };
  EXPECT_THROW(TestRun(test, nullptr, surroundings()), DriveError);
  EXPECT_THAT(complaint(), HasSubstr("does not offer trim"));
}

TEST_F(TestRunTest, ADriveWithAShorterQueueIsRefused) {
  adapt = [](FakeDrive& drive) { drive.most = 3; };
  EXPECT_THAT(complaint(), HasSubstr("takes 3 commands at once, not 4"));
}

TEST_F(TestRunTest, WarningsAreKeptOncePerSentence) {
  test.driveAddresses = {"fake:a", "fake:b"};
  test.resetEveryCommands = 10;
  const TestRun run(test, nullptr, surroundings());
  EXPECT_THAT(run.warnings(), ElementsAre(HasSubstr("Write Splice Detection")));
}

TEST_F(TestRunTest, ResetsAndToggleStatisticsReachTheResult) {
  test.resetEveryCommands = 10;
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::clean);
  EXPECT_EQ(result.totals().resets, 5U);
}

}  // namespace
}  // namespace corvane::host
