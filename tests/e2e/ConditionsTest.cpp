// What the built agent makes of a test's conditions, counted from the drive's view.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/cli/TestFile.h"
#include "host/run/ConfigurationError.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/RecordingDrive.h"

namespace corvane::host::e2e {
namespace {

using What = DriveEvent::What;

constexpr CommandMix everyKind{.write = 3, .writeAtomic = 1, .writeSame = 1, .trim = 2, .read = 2, .verify = 1};

class Conditions : public testing::Test {
 protected:
  Conditions() {
    test = prepared({}, workspace);
    test.driveAddresses = {"sim:4m"};
    test.commandLimit = 6000;
    test.seed = 17;
    // One command after the other, so that the drive sees them in the order of their numbers.
    test.queueDepth = 1;
    test.agentOptions = {{"Min Queue Size", "32"}, {"Max Queue Size", "128"}, {"Write Splice Detection", "false"}};
  }

  /// Runs the test, which must find nothing, and remembers what the drive saw of it.
  const DriveEvents& run() {
    events.clear();
    const RunResult result = runTest(test, [this](std::unique_ptr<Drive> drive) {
      return std::make_unique<RecordingDrive>(std::move(drive), events);
    });
    EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
    EXPECT_GT(result.totals().blocksCompared, 1000U);
    return events;
  }

  uint64_t count(CommandKind kind) const {
    return static_cast<uint64_t>(
        std::count_if(events.begin(), events.end(), [kind](const auto& e) { return e.is(kind); }));
  }
  uint64_t count(CommandKind kind, uint32_t trailerBytes) const {
    return static_cast<uint64_t>(std::count_if(events.begin(), events.end(), [&](const DriveEvent& event) {
      return event.is(kind) && event.trailerBytes == trailerBytes;
    }));
  }

  ConditionPlan& plan() { return test.conditions; }

  Workspace workspace;
  TestDefinition test;
  DriveEvents events;
};

bool inPhase(uint64_t commandsBefore, uint64_t every, uint64_t length) {
  return commandsBefore >= every && commandsBefore % every < length;
}

TEST_F(Conditions, WrittenOutTheyGiveTheSameCommandsAsUnsaid) {
  test.mix = everyKind;
  test.queueDepth = 32;
  test.e2ePercent = 30;
  test.resetEveryCommands = 501;
  test.powerToggle = PowerToggle::withSync;
  test.agentOptions = {{"Min Queue Size", "64"},
                       {"Max Queue Size", "256"},
                       {"Write Splice Detection", "true"},
                       {"PowerToggle Freq", "2"}};
  const DriveEvents unsaid = run();

  test.mix = {};
  for (const ConditionedStep step : allConditionedSteps()) {
    if (isAgentStep(step)) {
      setStepCondition(plan(), stepName(step), stepName(step));
    }
  }
  addRandomCondition(plan(), {{"write", 3}, {"atomic", 1}, {"writesame", 1}, {"trim", 2}});
  addRandomCondition(plan(), {{"read", 2}, {"verify", 1}});
  run();
  EXPECT_GE(unsaid.size(), 6000U);
  EXPECT_TRUE(unsaid == events);
  for (const What what : {What::reset, What::powerCycle}) {
    EXPECT_TRUE(std::any_of(unsaid.begin(), unsaid.end(), [what](const auto& event) { return event.what == what; }));
  }
}

TEST_F(Conditions, AQuietPhaseHasNoTrims) {
  test.mix = {.write = 1, .trim = 1, .read = 1};
  addConditionName(plan(), "quiet");
  setStepCondition(plan(), "trim", "trim & !quiet");
  addConditionPhase(plan(), "quiet", 1000, 300);
  run();
  uint64_t writes = 0;
  uint64_t trims = 0;
  for (size_t i = 0; i < events.size(); ++i) {
    const bool quiet = inPhase(i, 1000, 300);
    trims += events[i].is(CommandKind::trim) ? 1U : 0U;
    writes += quiet && events[i].is(CommandKind::write) ? 1U : 0U;
    EXPECT_FALSE(quiet && events[i].is(CommandKind::trim)) << "command " << i;
  }
  EXPECT_GT(writes, 500U) << "the phases are written";
  EXPECT_GT(trims, 800U) << "the rest is trimmed too";
}

TEST_F(Conditions, APhaseOfAtomicWritesHasNoOthers) {
  addRandomCondition(plan(), {{"write", 1}});
  addConditionPhase(plan(), "atomic", 1000, 400);
  run();
  for (size_t i = 0; i < events.size(); ++i) {
    EXPECT_FALSE(events[i].is(inPhase(i, 1000, 400) ? CommandKind::write : CommandKind::writeAtomic)) << i;
  }
  EXPECT_GT(count(CommandKind::write), 1000U);
  EXPECT_GT(count(CommandKind::writeAtomic), 500U);
}

TEST_F(Conditions, ResetsWaitUntilThePhaseIsOver) {
  test.resetEveryCommands = 50;
  addConditionName(plan(), "hold");
  setStepCondition(plan(), "reset", "!hold");
  addConditionPhase(plan(), "hold", 1000, 200);
  run();
  uint64_t commands = 0;
  uint64_t resets = 0;
  uint64_t longest = 0;
  uint64_t last = 0;
  for (const DriveEvent& event : events) {
    commands += event.what == What::command ? 1 : 0;
    if (event.what == What::reset) {
      EXPECT_FALSE(inPhase(commands - 1, 1000, 200)) << "after command " << commands - 1;
      ++resets;
      longest = std::max(longest, commands - last);
      last = commands;
    }
  }
  EXPECT_GT(resets, 80U);
  EXPECT_GE(longest, 200U) << "as long as a phase";
  EXPECT_LE(longest, 251U) << "and no longer than to its end";
}

TEST_F(Conditions, AResetGatedByTrimsComesRightBehindOne) {
  test.mix = {.write = 3, .trim = 1, .read = 1};
  test.resetEveryCommands = 20;
  setStepCondition(plan(), "reset", "trim");
  run();
  uint64_t resets = 0;
  for (size_t i = 1; i < events.size(); ++i) {
    if (events[i].what == What::reset) {
      ++resets;
      EXPECT_TRUE(events[i - 1].is(CommandKind::trim)) << i;
    }
  }
  EXPECT_GT(resets, 100U);
}

TEST_F(Conditions, AReplaceFlagClearsTheEndToEndBytesOfWhatIsLookedAtAfterIt) {
  test.mix = everyKind;
  test.e2ePercent = 100;
  for (const char* step : {"write", "atomic", "writesame", "verify"}) {
    setStepCondition(plan(), step, std::string("=") + step);
  }
  run();
  EXPECT_GT(count(CommandKind::writeAtomic), 100U);
  EXPECT_GT(count(CommandKind::verify), 500U);
  EXPECT_EQ(count(CommandKind::writeAtomic, 0), count(CommandKind::writeAtomic));
  EXPECT_EQ(count(CommandKind::verify, 0), count(CommandKind::verify));
  EXPECT_GT(count(CommandKind::write), 500U);
  EXPECT_EQ(count(CommandKind::write, 8), count(CommandKind::write));
  EXPECT_EQ(count(CommandKind::writeSame, 8), count(CommandKind::writeSame));
}

TEST_F(Conditions, WithoutAReplaceFlagAllOfThemCarryEndToEndBytes) {
  test.mix = everyKind;
  test.e2ePercent = 100;
  run();
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::verify}) {
    EXPECT_GT(count(kind), 100U) << commandKindName(kind);
    EXPECT_EQ(count(kind, 8), count(kind)) << commandKindName(kind);
  }
}

TEST_F(Conditions, ANoneMaskIsTheAgentsToo) {
  test.mix = {.write = 1, .writeAtomic = 1, .read = 1};
  setStepCondition(plan(), "e2e", "!atomic");
  run();
  EXPECT_GT(count(CommandKind::write), 500U);
  EXPECT_GT(count(CommandKind::writeAtomic), 200U);
  EXPECT_EQ(count(CommandKind::write, 8), count(CommandKind::write));
  EXPECT_EQ(count(CommandKind::writeAtomic, 0), count(CommandKind::writeAtomic));
}

TEST_F(Conditions, ARandomConditionGatesWhatComesAfterIt) {
  test.mix = {.write = 1, .trim = 1, .read = 1, .verify = 1};
  addConditionName(plan(), "marked");
  addConditionName(plan(), "plain");
  setStepCondition(plan(), "e2e", "marked");
  setStepCondition(plan(), "verify", "verify & !marked");
  addRandomCondition(plan(), {{"marked", 1}, {"plain", 3}});
  run();
  EXPECT_GT(count(CommandKind::verify), 500U);
  EXPECT_EQ(count(CommandKind::verify, 8), 0U) << "none while it was marked";
  const auto writes = static_cast<double>(count(CommandKind::write));
  EXPECT_NEAR(static_cast<double>(count(CommandKind::write, 8)), writes / 4, writes * 0.06);
  // Half of the unmarked read-backs are verifies: three of eight.
  const auto readBacks = static_cast<double>(count(CommandKind::verify) + count(CommandKind::read));
  EXPECT_NEAR(static_cast<double>(count(CommandKind::verify)), readBacks * 3 / 8, readBacks * 0.05);
}

TEST_F(Conditions, RandomConditionsOfTheTestsOwnChooseByWeight) {
  addConditionName(plan(), "early");
  addConditionName(plan(), "late");
  setStepCondition(plan(), "write", "early | late");
  addRandomCondition(plan(), {{"early", 1}, {"late", 2}, {"trim", 2}, {"writesame", 1}});
  run();
  const auto all =
      static_cast<double>(count(CommandKind::write) + count(CommandKind::trim) + count(CommandKind::writeSame));
  EXPECT_NEAR(static_cast<double>(count(CommandKind::write)) / all, 3.0 / 6, 0.05);
  EXPECT_NEAR(static_cast<double>(count(CommandKind::trim)) / all, 2.0 / 6, 0.05);
  EXPECT_NEAR(static_cast<double>(count(CommandKind::writeSame)) / all, 1.0 / 6, 0.05);
}

/// The test file below a heading of the conditions' own page.
TestDefinition documented(const std::string& heading) {
  const std::string page = contentOf(CORVANE_SOURCE_FOLDER "/docs/conditions.md");
  const std::string fence = "```\n";
  const size_t begin = page.find(fence, page.find("### " + heading + "\n")) + fence.size();
  return testFileFrom(page.substr(begin, page.find(fence, begin) - begin), "conditions.md").settings().test;
}

TEST_F(Conditions, TheDocumentedQuietHoursAreQuiet) {
  test = prepared(documented("Quiet hours"), workspace);
  run();
  uint64_t commands = 0;
  uint64_t inPhases[3]{};  // writes, trims, resets
  uint64_t outside[3]{};
  for (const DriveEvent& event : events) {
    const bool reset = event.what == What::reset;
    commands += reset ? 0U : 1U;
    uint64_t* const counts = inPhase(commands - 1, 2000, 500) ? inPhases : outside;
    counts[0] += event.is(CommandKind::write) ? 1U : 0U;
    counts[1] += event.is(CommandKind::trim) ? 1U : 0U;
    counts[2] += reset ? 1U : 0U;
  }
  EXPECT_GT(inPhases[0], 1000U);
  EXPECT_EQ(inPhases[1], 0U);
  EXPECT_EQ(inPhases[2], 0U);
  EXPECT_NEAR(static_cast<double>(outside[1]) / static_cast<double>(outside[0]), 1.0 / 3, 0.04);
  EXPECT_GT(outside[2], 60U);
}

TEST_F(Conditions, TheDocumentedMarksGateVerifiesAndResets) {
  test = prepared(documented("Marked steps"), workspace);
  run();
  uint64_t resets = 0;
  for (size_t i = 1; i < events.size(); ++i) {
    if (events[i].what == What::reset) {
      ++resets;
      EXPECT_TRUE(events[i - 1].is(CommandKind::writeAtomic)) << i;
    }
  }
  EXPECT_GT(resets, 30U);
  EXPECT_EQ(count(CommandKind::writeAtomic, 8), 0U);
  EXPECT_EQ(count(CommandKind::verify, 8), 0U);
  const auto writes = static_cast<double>(count(CommandKind::write));
  EXPECT_NEAR(static_cast<double>(count(CommandKind::write, 8)), writes / 4, writes * 0.04);
}

TEST_F(Conditions, APlanThatCannotWorkIsRefusedBeforeTheDriveIsOpened) {
  setStepCondition(plan(), "read", "read | write");
  bool opened = false;
  EXPECT_THROW(runTest(test,
                       [&opened](std::unique_ptr<Drive> drive) {
                         opened = true;
                         return drive;
                       }),
               ConfigurationError);
  EXPECT_FALSE(opened);
}

}  // namespace
}  // namespace corvane::host::e2e
