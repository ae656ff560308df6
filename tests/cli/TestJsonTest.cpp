#include "host/cli/TestJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/cli/UsageError.h"
#include "tests/cli/SampleTexts.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using Json = nlohmann::ordered_json;

TEST(TestJsonTest, hasTheKeysOfTestFilesAndTheTextsOfFlags) {
  const Json test = testJson(testing::everythingGiven().settings());
  EXPECT_EQ(test["drive"][0], "sim:1g");
  EXPECT_EQ(test["queue-depth"], "7");
  EXPECT_EQ(test["fua"], true);
  EXPECT_EQ(test["options"]["Data File"], "a=b");
  EXPECT_FALSE(test.contains("set"));
  EXPECT_FALSE(test.contains("json")) << "decides nothing of the test";
}

TEST(TestJsonTest, everySettingOfTheTestComesBack) {
  const RunSettings settings = testing::everythingGiven().settings();
  const RunSettings back = testFromJson(Json::parse(testJson(settings).dump()), "x.json").settings();
  for (const TestKey& key : testKeys()) {
    if (key.ofTest) {
      EXPECT_EQ(key.texts(back), testing::sampleTexts().at(key.name)) << key.name;
    }
  }
}

std::string refusalOf(const char* test) {
  try {
    testFromJson(Json::parse(test), "x.json");
  } catch (const UsageError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(TestJsonTest, refusesWhatNoRunWrote) {
  EXPECT_THAT(refusalOf(R"({"colour": "blue"})"), HasSubstr("x.json: test.colour is no setting that this program"));
  for (const char* test :
       {R"({"seed": 7})", R"({"fua": "yes"})", R"({"drive": [1]})", R"({"options": {"A": 1}})", R"({"drive": 5})",
        R"({"options": "A"})", R"({"output": "here\u0000there"})", R"({"options": {"A": "b\u0000"}})"}) {
    EXPECT_THAT(refusalOf(test), HasSubstr("is not what a run writes")) << test;
  }
}

}  // namespace
}  // namespace corvane::host
