// Conditions as settings: whatever way they are said, the same plan comes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/cli/GivenTest.h"
#include "host/cli/TestFile.h"
#include "host/cli/TestJson.h"
#include "host/cli/UsageError.h"
#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::TempFolder;

RunSettings settingsWith(const std::vector<std::pair<const char*, const char*>>& texts) {
  GivenTest given;
  given.give(*testKeyNamed("drive"), "sim:1g", "--drive");
  for (const auto& [key, text] : texts) {
    given.give(*testKeyNamed(key), text, std::string("--") + key);
  }
  return given.settings();
}

RunSettings sampleSettings() {
  return settingsWith({{"phase", " hold , for=1k, every = 1e4"},
                       {"random", "calm,busy=3"},
                       {"random", "trim=2,write"},
                       {"step", "trim=!hold & trim & calm"},
                       {"step", "write==write"},
                       {"step", "e2e ="},
                       {"condition", "hold"},
                       {"condition", "calm"},
                       {"condition", "busy"}});
}

ConditionPlan samplePlan() {
  ConditionPlan plan;
  for (const char* name : {"hold", "calm", "busy"}) {
    addConditionName(plan, name);
  }
  setStepCondition(plan, "trim", "trim & calm & !hold");
  setStepCondition(plan, "write", "=write");
  setStepCondition(plan, "e2e", "");
  addRandomCondition(plan, {{"calm", 1}, {"busy", 3}});
  addRandomCondition(plan, {{"write", 1}, {"trim", 2}});
  addConditionPhase(plan, "hold", 10'000, 1000);
  return plan;
}

TEST(ConditionKeysTest, theirTextsMakeAPlanWhateverTheOrderOfSettings) {
  EXPECT_EQ(sampleSettings().test.conditions, samplePlan());
}

TEST(ConditionKeysTest, thePlanComesBackFromEveryFormOfATest) {
  const RunSettings settings = sampleSettings();
  EXPECT_EQ(givenBy(settings).settings().test.conditions, samplePlan());
  EXPECT_EQ(testFileFrom(testFileText(settings), "x.toml").settings().test.conditions, samplePlan());
  EXPECT_EQ(testFromJson(testJson(settings), "x.json").settings().test.conditions, samplePlan());
  std::vector<std::string> words = repeatCommand(settings);
  words.erase(words.begin());
  words.emplace_back("--dry-run");
  EXPECT_EQ(runCorvane(TempFolder(), words).out, testFileText(settings));
}

TEST(ConditionKeysTest, aTestFileShowsThemAsTheyAreRead) {
  EXPECT_THAT(testFileText(sampleSettings()), HasSubstr("condition = [\"hold\", \"calm\", \"busy\"]\n"
                                                        "random = [\"calm=1,busy=3\", \"write=1,trim=2\"]\n"
                                                        "phase = [\"hold,every=10000,for=1000\"]\n"
                                                        "\n"
                                                        "[step]\n"
                                                        "write = \"=write\"\n"
                                                        "trim = \"trim & calm & !hold\"\n"
                                                        "e2e = \"\"\n"));
}

TEST(ConditionKeysTest, aRunNamesTheCommandsThatTheyLeave) {
  const TempFolder folder;
  const ProgramEnd end =
      runCorvane(folder, {"run", "--drive", "sim:64m", "--commands", "100", "--commands-of", "write,writesame,verify",
                          "--random", "write=3,trim", "--phase", "atomic,every=50,for=5", "--random", "read"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_THAT(end.out, HasSubstr("\nTest: write=3,atomic,trim,read; "));
}

TEST(ConditionKeysTest, whatThePlanRefusesIsNamedByItsPlace) {
  try {
    settingsWith({{"step", "reset=!hold"}});
    FAIL();
  } catch (const UsageError& error) {
    EXPECT_THAT(error.what(), ::testing::StartsWith("--step: 'hold' in '!hold' is no condition; add it to"));
  }
}

}  // namespace
}  // namespace corvane::host
