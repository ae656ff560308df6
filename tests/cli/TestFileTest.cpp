#include "host/cli/TestFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/cli/UsageError.h"
#include "tests/cli/RunningProgram.h"
#include "tests/cli/SampleTexts.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::TempFolder;

std::vector<std::string> textsOf(const GivenTest& given, const char* key) {
  std::vector<std::string> texts;
  for (const GivenTest::Text& text : given.of(key)) {
    texts.push_back(text.text);
  }
  return texts;
}

TEST(TestFileTest, takesTextsNumbersListsAndSwitches) {
  const GivenTest given = testFileFrom(R"(
drive = ["sim:1g", "sim:2g"]
time = "30s"
commands = 1e6
seed = 0x1F
queue-depth = 1_024
fua = true
quiet = false
fault = "lost-write:rate=0.5"
)",
                                       "x.toml");
  EXPECT_THAT(textsOf(given, "drive"), ElementsAre("sim:1g", "sim:2g"));
  EXPECT_THAT(textsOf(given, "time"), ElementsAre("30s"));
  EXPECT_THAT(textsOf(given, "commands"), ElementsAre("1000000"));
  EXPECT_THAT(textsOf(given, "seed"), ElementsAre("31"));
  EXPECT_THAT(textsOf(given, "queue-depth"), ElementsAre("1024"));
  EXPECT_THAT(textsOf(given, "fault"), ElementsAre("lost-write:rate=0.5"));
  const RunSettings settings = given.settings();
  EXPECT_TRUE(settings.test.forceUnitAccess);
  EXPECT_FALSE(settings.quiet);
}

TEST(TestFileTest, takesTheAgentsOptionsInTheirOrder) {
  const GivenTest given = testFileFrom("[options]\n\"Slide Reads\" = true\nB = 12\nA = \"x\"\nR = 0.25\n", "x.toml");
  EXPECT_THAT(textsOf(given, "set"), ElementsAre("Slide Reads=true", "B=12", "A=x", "R=0.25"));
}

TEST(TestFileTest, knowsTheLineOfEverything) {
  const GivenTest given = testFileFrom("seed = 1\ndrive = [\n  'a',\n  'b']\n\n[options]\nA = 1\n", "dir/x.toml");
  EXPECT_EQ(given.of("seed")[0].where, "dir/x.toml:1: seed");
  EXPECT_EQ(given.of("drive")[1].where, "dir/x.toml:4: drive");
  EXPECT_EQ(given.of("set")[0].where, "dir/x.toml:7: option");
}

TEST(TestFileTest, takesConditionsInAnyOrder) {
  const RunSettings settings = testFileFrom(R"(
phase = "hold,every=1e4,for=500"
random = ["trim,write=3", "verify"]
drive = "sim:"
condition = "hold"

[step]
trim = "!hold & trim"
)",
                                            "x.toml")
                                   .settings();
  ConditionPlan plan;
  addConditionName(plan, "hold");
  setStepCondition(plan, "trim", "trim & !hold");
  addRandomCondition(plan, {{"write", 3}, {"trim", 1}});
  addRandomCondition(plan, {{"verify", 1}});
  addConditionPhase(plan, "hold", 10'000, 500);
  EXPECT_EQ(settings.test.conditions, plan);
  EXPECT_EQ(testFileFrom(testFileText(settings), "y.toml").settings().test.conditions, plan);
}

TEST(TestFileTextTest, everySettingComesBack) {
  const RunSettings settings = testing::everythingGiven().settings();
  const std::string text = testFileText(settings);
  const RunSettings back = testFileFrom(text, "x.toml").settings();
  for (const TestKey& key : testKeys()) {
    EXPECT_EQ(key.texts(back), testing::sampleTexts().at(key.name)) << key.name;
  }
  EXPECT_EQ(testFileText(back), text);
  EXPECT_EQ(repeatCommand(back), repeatCommand(settings));
}

TEST(TestFileTextTest, readsLikeAHandWrittenFile) {
  GivenTest given;
  given.give(*testKeyNamed("drive"), "sim:1g", "");
  given.give(*testKeyNamed("seed"), "7", "");
  given.give(*testKeyNamed("fua"), "true", "");
  given.give(*testKeyNamed("set"), "Slide Reads=true", "");
  given.give(*testKeyNamed("set"), "Min Queue Size=1", "");
  given.give(*testKeyNamed("set"), "Min Queue Size=2", "");
  EXPECT_EQ(testFileText(given.settings()),
            "drive = [\"sim:1g\"]\n"
            "time = \"10s\"\n"
            "seed = 7\n"
            "fua = true\n"
            "\n"
            "[options]\n"
            "\"Slide Reads\" = \"true\"\n"
            "\"Min Queue Size\" = 2\n");
}

TEST(TestFileTextTest, refusesWhatAFileCannotHold) {
  GivenTest given;
  given.give(*testKeyNamed("drive"), "file:\xff", "--drive");
  EXPECT_THROW(testFileText(given.settings()), UsageError);
}

TEST(DryRunTest, printsTheTestAndTouchesNothing) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, {"run", "--drive", "file:new.img,size=1m", "--seed", "3", "--output", "out",
                                             "--json", "x.json", "--dry-run"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_EQ(end.err, "");
  EXPECT_EQ(end.out,
            "drive = [\"file:new.img,size=1m\"]\n"
            "time = \"10s\"\n"
            "seed = 3\n"
            "output = \"out\"\n"
            "json = \"x.json\"\n");
  EXPECT_THAT(folder.content(), IsEmpty());
}

TEST(DryRunTest, runTakesItsTextBackAndFlagsOverruleIt) {
  const TempFolder folder;
  const ProgramEnd first = runCorvane(folder, {"run", "--drive", "sim:64m", "--commands", "100", "--queue-depth", "9",
                                               "--set", "Min Queue Size=64", "--dry-run"});
  ASSERT_EQ(first.status, 0) << first.err;
  tests::writeFile(folder / "x.toml", first.out);
  EXPECT_EQ(runCorvane(folder, {"run", "x.toml", "--dry-run"}).out, first.out);
  const ProgramEnd end = runCorvane(folder, {"run", "x.toml", "--queue-depth", "5", "--drive", "sim:32m"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_THAT(end.out, ::testing::HasSubstr("queue depth 5, LBA agent mixed, 100 commands"));
  EXPECT_THAT(end.out, ::testing::HasSubstr("LBAs 0..65536 of 65536"));
}

TEST(DryRunTest, aSizeIsOfEachDrive) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(
      folder, {"run", "--drive", "sim:64m", "--drive", "sim:64m,block=4096", "--size", "25%", "--commands", "10"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_THAT(end.out, ::testing::HasSubstr("LBAs 0..32768 of 131072\n"));
  EXPECT_THAT(end.out, ::testing::HasSubstr("LBAs 0..4096 of 16384\n"));
}

}  // namespace
}  // namespace corvane::host
