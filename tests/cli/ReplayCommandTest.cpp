#include "host/cli/ReplayCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/cli/UsageError.h"
#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::TempFolder;

/// A run that finds a lost write soon, and its replay.
class ReplayTest : public ::testing::Test {
 protected:
  ProgramEnd runWithFault(const std::string& seed, std::vector<std::string> more) const {
    std::vector<std::string> arguments{"run",
                                       "--seed",
                                       seed,
                                       "--lba-agent",
                                       "sequential",
                                       "--fault",
                                       "lost-write:at=command:500",
                                       "--set",
                                       "Min Queue Size=128",
                                       "--set",
                                       "Max Queue Size=256",
                                       "--output",
                                       "first"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runCorvane(folder_, arguments);
  }

  void expectTenOfTen(const std::vector<std::string>& limits) const {
    for (int seed = 1; seed <= 10; ++seed) {
      std::vector<std::string> arguments{"--drive", "sim:64m"};
      arguments.insert(arguments.end(), limits.begin(), limits.end());
      ASSERT_EQ(runWithFault(std::to_string(seed), arguments).status, 1) << seed;
      const nlohmann::json finding = documentOf("first")["findings"][0];
      const ProgramEnd again = runCorvane(folder_, {"replay", "first/result.json"});
      EXPECT_EQ(again.status, 1) << seed << again.err;
      EXPECT_THAT(again.out, EndsWith("\nReplay: the same finding at command " + finding["commandNumber"].dump() +
                                      ", LBA " + finding["lba"].dump() + "\n"))
          << seed;
      EXPECT_THAT(again.out, Not(HasSubstr("note: ")));
      const nlohmann::json second = documentOf("corvane-replay")["findings"][0];
      EXPECT_EQ(second["step"], finding["step"]);
      EXPECT_EQ(second["text"], finding["text"]);
    }
  }

  nlohmann::json documentOf(const std::string& output) const {
    return nlohmann::json::parse(tests::readFile(folder_ / (output + "/result.json")));
  }

  TempFolder folder_;
};

TEST_F(ReplayTest, tenOfTenOfRunsThatEndByCommands) { expectTenOfTen({"--commands", "20000"}); }

TEST_F(ReplayTest, tenOfTenOfRunsThatEndByTime) { expectTenOfTen({"--time", "1h"}); }

TEST_F(ReplayTest, tenOfTenOfRunsWithConditions) {
  expectTenOfTen({"--commands", "20000", "--condition", "hold", "--step", "trim=trim & !hold", "--random",
                  "write=3,trim", "--phase", "hold,every=300,for=100"});
  EXPECT_EQ(documentOf("corvane-replay")["test"]["step"]["trim"], "trim & !hold");
}

TEST_F(ReplayTest, aFindingAfterTheLastStepComesAgain) {
  // So few commands that the reads which meet the fault are only delivered when the test winds up.
  ASSERT_EQ(runWithFault("1", {"--drive", "sim:64m", "--commands", "20000"}).status, 1);
  const uint64_t found = documentOf("first")["findings"][0]["commandNumber"];
  ASSERT_EQ(runWithFault("1", {"--drive", "sim:64m", "--commands", std::to_string(found - 5)}).status, 1);
  const ProgramEnd again = runCorvane(folder_, {"replay", "first/result.json"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.out, HasSubstr("\nReplay: the same finding at command " + std::to_string(found - 5) + ", LBA "));
}

TEST_F(ReplayTest, ofSeveralDrivesTheOneWithTheFindingCounts) {
  ASSERT_EQ(runWithFault("4", {"--drive", "sim:64m", "--drive", "sim:32m", "--commands", "3000", "--fault",
                               "bit-flip-write:at=command:100,drive=2"})
                .status,
            1);
  ASSERT_EQ(documentOf("first")["findings"].size(), 2U);
  for (const char* number : {"1", "2"}) {
    const ProgramEnd again = runCorvane(folder_, {"replay", "first/result.json", "--finding", number});
    EXPECT_EQ(again.status, 1) << again.err;
    EXPECT_THAT(again.out, HasSubstr("Replay: the same finding at command ")) << number;
  }
  EXPECT_THAT(runCorvane(folder_, {"replay", "first/result.json", "--finding", "3"}).err,
              HasSubstr("--finding '3' is too large; document 'first/result.json' holds 2"));
}

TEST_F(ReplayTest, aDriveThatHasBeenMendedIsFoundClean) {
  ASSERT_EQ(runWithFault("5", {"--drive", "sim:64m", "--commands", "20000"}).status, 1);
  nlohmann::ordered_json document = nlohmann::ordered_json::parse(tests::readFile(folder_ / "first/result.json"));
  document["test"].erase("fault");
  tests::writeFile(folder_ / "first/mended.json", document.dump());
  const ProgramEnd again = runCorvane(folder_, {"replay", "first/mended.json", "--output", "second"});
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_THAT(again.out, HasSubstr("Replay: nothing was found on drive sim0 up to step "));
  EXPECT_EQ(documentOf("second")["status"], "clean");
}

TEST_F(ReplayTest, theFilesOfTheRunStay) {
  ASSERT_EQ(runWithFault("6", {"--drive", "sim:64m", "--commands", "20000"}).status, 1);
  const std::string before = tests::readFile(folder_ / "first/result.json");
  const ProgramEnd again = runCorvane(folder_, {"replay", "first/result.json", "--output", "first/"});
  EXPECT_EQ(again.status, 2);
  EXPECT_THAT(again.err, HasSubstr("--output 'first/' is the folder of the run itself"));
  EXPECT_EQ(tests::readFile(folder_ / "first/result.json"), before);
}

TEST_F(ReplayTest, aCleanRunHasNothingToReplay) {
  ASSERT_EQ(runCorvane(folder_, {"run", "--drive", "sim:64m", "--commands", "10", "--output", "first"}).status, 0);
  const ProgramEnd again = runCorvane(folder_, {"replay", "first/result.json"});
  EXPECT_EQ(again.status, 2);
  EXPECT_THAT(again.err, HasSubstr("document 'first/result.json' holds no finding"));
}

RecordedRun documentWithFinding() {
  RecordedRun document;
  document.test.give(*testKeyNamed("drive"), "sim:1g", "");
  document.test.give(*testKeyNamed("time"), "2h", "");
  document.test.give(*testKeyNamed("commands"), "5000", "");
  document.test.give(*testKeyNamed("seed"), "9", "");
  document.findings.push_back(
      {.drive = "sim0", .driveIndex = 0, .agentStatus = -1046, .lba = 500, .commandNumber = 1042, .step = 1100});
  return document;
}

TEST(ReplaySettingsTest, onlyTheStepEndsTheTest) {
  const RunSettings settings =
      replaySettings(documentWithFinding(), {.document = "none/x.json", .output = "again", .plugin = "./my.so"});
  EXPECT_EQ(settings.test.stepLimit, 1100U);
  EXPECT_EQ(settings.test.timeLimitMs, 0U);
  EXPECT_EQ(settings.test.commandLimit, 0U);
  EXPECT_EQ(settings.test.seed, 9U);
  EXPECT_FALSE(settings.seedDrawn);
  EXPECT_EQ(settings.test.outputDirectory, "again");
  EXPECT_EQ(settings.jsonPath, "again/result.json");
  EXPECT_TRUE(settings.pluginGiven);
}

TEST(ReplaySettingsTest, aFindingWithoutItsStepIsRefused) {
  RecordedRun document = documentWithFinding();
  document.findings[0].step = 0;
  ReplayRequest request;
  request.document = "x.json";
  EXPECT_THROW(replaySettings(document, request), UsageError);
}

TEST(UnrepeatableTest, namesWhatFollowsTheClockOrTheMachine) {
  TestDefinition test;
  test.driveAddresses = {"sim:1g"};
  EXPECT_THAT(unrepeatable(test), IsEmpty());
  test.powerToggle = PowerToggle::withSync;
  test.driveAddresses = {"sim:1g", "file:x.img"};
  test.faults = {parseFaultSpec("cross-talk:at=command:5")};
  EXPECT_THAT(unrepeatable(test), ElementsAre(HasSubstr("the power is cut by the clock"), HasSubstr("'file:x.img'"),
                                              HasSubstr("cross-talk")));
}

class ReplayVerdictTest : public ::testing::Test {
 protected:
  ReplayVerdictTest() {
    result.findings.resize(2);
    result.findings[0].driveIndex = 1;
    Finding& ofTheDrive = result.findings[1];
    ofTheDrive.agentStatus = -1046;
    ofTheDrive.lba = 500;
    ofTheDrive.moment = {.commandNumber = 1042, .step = 1100};
  }
  std::string verdict() const { return replayVerdict(documentWithFinding().findings[0], result); }

  RunResult result;
};

TEST_F(ReplayVerdictTest, theSameFinding) { EXPECT_EQ(verdict(), "Replay: the same finding at command 1042, LBA 500"); }

TEST_F(ReplayVerdictTest, anotherFindingAndWhatDiffers) {
  result.findings[1].lba = 501;
  EXPECT_EQ(verdict(), "Replay: another finding, at LBA 501 instead of 500");
  result.findings[1].moment.commandNumber = 1000;
  result.findings[1].lba.reset();
  result.findings[1].agentStatus = -1062;
  EXPECT_EQ(
      verdict(),
      "Replay: another finding, at command 1000 instead of 1042, LBA unknown instead of 500, status -1062 instead "
      "of -1046");
}

TEST_F(ReplayVerdictTest, nothingOnTheDriveInQuestion) {
  result.findings.pop_back();
  EXPECT_EQ(verdict(), "Replay: nothing was found on drive sim0 up to step 1100");
}

TEST_F(ReplayTest, powerCutsAreNotPromised) {
  ASSERT_EQ(runWithFault("7", {"--drive", "sim:64m,cache=volatile", "--commands", "20000", "--power-toggle", "sync",
                               "--set", "PowerToggle Freq=3600", "--set", "Write Splice Detection=true"})
                .status,
            1);
  EXPECT_THAT(runCorvane(folder_, {"replay", "first/result.json"}).out,
              HasSubstr("\nnote: the power is cut by the clock (\"PowerToggle Freq\" counts seconds)"));
}

}  // namespace
}  // namespace corvane::host
