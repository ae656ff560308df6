#include "host/cli/GivenTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/cli/UsageError.h"
#include "tests/cli/SampleTexts.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

GivenTest given(std::initializer_list<std::pair<const char*, const char*>> texts, const std::string& where = "--") {
  GivenTest test;
  for (const auto& [key, text] : texts) {
    test.give(*testKeyNamed(key), text, where + key);
  }
  return test;
}

std::string refusalOf(const GivenTest& test) {
  try {
    test.settings();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(GivenTestTest, fillsInWhatWasNotSaid) {
  const RunSettings settings = given({{"drive", "sim:"}}).settings();
  EXPECT_EQ(settings.test.timeLimitMs, usualTimeLimitMs);
  EXPECT_EQ(settings.test.outputDirectory, usualOutputDirectory);
  EXPECT_EQ(settings.jsonPath, "corvane-out/result.json");
  EXPECT_FALSE(settings.test.pluginPath.empty());
  EXPECT_TRUE(settings.seedDrawn);
  EXPECT_GT(settings.startedUs, 1'600'000'000'000'000U);
}

TEST(GivenTestTest, anyLimitReplacesTheUsualTime) {
  for (const char* limit : {"commands", "steps"}) {
    EXPECT_EQ(given({{"drive", "sim:"}, {limit, "9"}}).settings().test.timeLimitMs, 0U) << limit;
  }
}

TEST(GivenTestTest, theStrongerOneReplacesListsAsAWhole) {
  GivenTest file = given({{"drive", "sim:1g"}, {"drive", "sim:2g"}, {"queue-depth", "4"}}, "file ");
  file.overruleBy(given({{"drive", "sim:3g"}, {"seed", "5"}}));
  const RunSettings settings = file.settings();
  EXPECT_THAT(settings.test.driveAddresses, ElementsAre("sim:3g"));
  EXPECT_EQ(settings.test.queueDepth, 4U);
  EXPECT_EQ(settings.test.seed, 5U);
  EXPECT_EQ(nameOf(settings, "drive"), "--drive");
  EXPECT_EQ(nameOf(settings, "queue-depth"), "file queue-depth");
}

TEST(GivenTestTest, ofATableOnlyTheSameEntriesAreReplaced) {
  GivenTest file = given({{"set", "A=1"}, {"set", "B=2"}}, "file ");
  file.overruleBy(given({{"drive", "sim:"}, {"set", " A = 3"}}));
  const RunSettings settings = file.settings();
  EXPECT_THAT(settings.test.agentOptions, ElementsAre(Pair("B", "2"), Pair("A", "3")));
  EXPECT_EQ(nameOfEntry(settings, "set", "A"), "--set");
  EXPECT_EQ(nameOfEntry(settings, "set", "B"), "file set");
}

TEST(GivenTestTest, aStepThatIsSaidAgainReplacesItsCondition) {
  GivenTest file = given({{"step", "trim=trim & !e2e"}, {"step", "read=read"}}, "file ");
  file.overruleBy(given({{"drive", "sim:"}, {"step", "trim = =trim"}}));
  const RunSettings settings = file.settings();
  EXPECT_EQ(settings.test.conditions.expression(ConditionedStep::trim), "=trim");
  EXPECT_EQ(nameOfEntry(settings, "step", "trim"), "--step");
  EXPECT_EQ(nameOfEntry(settings, "step", "read"), "file step");
}

TEST(GivenTestTest, aRangeWithAnEndReplacesAWeakerSize) {
  GivenTest file = given({{"size", "10%"}});
  file.overruleBy(given({{"drive", "sim:"}, {"range", "5..9"}}));
  const TestDefinition test = file.settings().test;
  EXPECT_FALSE(test.size.any());
  EXPECT_EQ(test.endLba, 9U);
}

TEST(GivenTestTest, anOpenRangeKeepsAWeakerSize) {
  GivenTest file = given({{"size", "10%"}});
  file.overruleBy(given({{"drive", "sim:"}, {"range", "5.."}}));
  const TestDefinition test = file.settings().test;
  EXPECT_TRUE(test.size.any());
  EXPECT_EQ(test.firstLba, 5U);
}

TEST(GivenTestTest, aSizeReplacesTheEndOfAWeakerRange) {
  GivenTest file = given({{"range", "5..9"}});
  file.overruleBy(given({{"drive", "sim:"}, {"size", "1m"}}));
  const TestDefinition test = file.settings().test;
  EXPECT_EQ(test.size.bytes, 1U << 20);
  EXPECT_EQ(test.firstLba, 5U);
  EXPECT_EQ(test.endLba, 0U);
}

TEST(GivenTestTest, aSizeAndAnEndFromOnePlaceAreRefused) {
  EXPECT_EQ(refusalOf(given({{"drive", "sim:"}, {"range", "5..9"}, {"size", "1m"}})),
            "--size '1m' and the end of --range both say where the test ends; leave one out, or give 5.. as the range");
}

TEST(GivenTestTest, aTestWithoutADriveIsRefused) {
  EXPECT_THAT(refusalOf(GivenTest()), HasSubstr("--drive is missing"));
}

TEST(GivenTestTest, whatWasTakenBackWasNeverSaid) {
  GivenTest test = given({{"seed", "7"}});
  test.drop("seed");
  test.drop("time");
  EXPECT_THAT(test.of("seed"), IsEmpty());
}

TEST(GivenByTest, saysWhatGivesTheSameSettings) {
  const RunSettings settings = testing::everythingGiven().settings();
  const GivenTest back = givenBy(settings);
  for (const TestKey& key : testKeys()) {
    EXPECT_EQ(key.texts(back.settings()), testing::sampleTexts().at(key.name)) << key.name;
  }
}

}  // namespace
}  // namespace corvane::host
