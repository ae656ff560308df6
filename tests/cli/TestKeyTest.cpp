#include "host/cli/TestKey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "host/cli/UsageError.h"
#include "tests/cli/SampleTexts.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::sampleTexts;

TEST(TestKeyTest, everySettingHasANameOfItsOwnAndAHelp) {
  std::set<std::string> names;
  for (const TestKey& key : testKeys()) {
    EXPECT_TRUE(names.insert(key.name).second) << key.name;
    EXPECT_FALSE(key.help.empty()) << key.name;
    EXPECT_EQ(key.form == TestKeyForm::onOff, std::string(key.value).empty()) << key.name;
    EXPECT_EQ(key.form == TestKeyForm::table, key.table != nullptr) << key.name;
    EXPECT_EQ(testKeyNamed(key.name), &key);
  }
  EXPECT_EQ(testKeyNamed("queue-dept"), nullptr);
  EXPECT_EQ(names.size(), sampleTexts().size());
}

TEST(TestKeyTest, everySettingWritesTheTextsThatItTook) {
  for (const TestKey& key : testKeys()) {
    RunSettings settings;
    for (const std::string& text : sampleTexts().at(key.name)) {
      key.take(settings, "--x", text);
    }
    EXPECT_EQ(key.texts(settings), sampleTexts().at(key.name)) << key.name;
  }
}

TEST(TestKeyTest, onlyTheSeedIsWrittenWhenNothingWasChosen) {
  const RunSettings settings;
  for (const TestKey& key : testKeys()) {
    if (std::string(key.name) == "seed") {
      EXPECT_THAT(key.texts(settings), ElementsAre("1"));
    } else {
      EXPECT_THAT(key.texts(settings), IsEmpty()) << key.name;
    }
  }
}

TEST(TestKeyTest, aSettingDoesNotTouchTheOthers) {
  for (const TestKey& key : testKeys()) {
    RunSettings settings;
    key.take(settings, "--x", sampleTexts().at(key.name).front());
    for (const TestKey& other : testKeys()) {
      if (other.name != key.name) {
        EXPECT_EQ(other.texts(settings), other.texts(RunSettings())) << other.name << " after " << key.name;
      }
    }
  }
}

TEST(TestKeyTest, wrongTextsAreRefusedUnderTheNameOfTheirPlace) {
  RunSettings settings;
  try {
    testKeyNamed("queue-depth")->take(settings, "x.toml:3: queue-depth", "0");
    FAIL();
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "x.toml:3: queue-depth '0' is too small; the least is 1");
  }
}

}  // namespace
}  // namespace corvane::host
