#include "host/report/PageData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

using host::testing::sampleReport;
using testing::Json;

TEST(PageDataTest, holdsWhatThePageShows) {
  const Json data = Json::parse(pageData(sampleReport("explained.json")));
  EXPECT_EQ(data["status"], "data failure");
  EXPECT_EQ(data["seed"], "3");
  const Json& finding = data["findings"][0];
  EXPECT_EQ(finding["lba"], "148");
  EXPECT_EQ(finding["commands"].size(), 21U);
  EXPECT_EQ(finding["differing"].size(), 499U);
  EXPECT_EQ(finding["fields"].size(), 4U);
  EXPECT_EQ(finding["expected"]["commandId"], "121");
  EXPECT_EQ(finding["history"][0]["cells"].size(), 7U);
  EXPECT_EQ(finding["neighbours"].size(), 25U);
  EXPECT_EQ(data["drives"][0]["latency"][0]["buckets"][0].size(), 2U);
}

TEST(PageDataTest, largeNumbersKeepEveryDigit) {
  const std::string data = pageData(sampleReport("hostile.json"));
  EXPECT_THAT(data, ::testing::HasSubstr("\"lba\":\"18446744073709551615\""));
  EXPECT_EQ(Json::parse(pageData(sampleReport("unfinished.json")))["seed"], "18446744073709551615");
}

TEST(PageDataTest, holdsNothingThatMarkupCouldTakeForItsOwn) {
  const std::string data = pageData(sampleReport("hostile.json"));
  EXPECT_EQ(data.find_first_of("<>&"), std::string::npos);
  EXPECT_TRUE(std::all_of(data.begin(), data.end(), [](char c) { return c >= ' ' && c < 0x7F; }));
  const std::string name = Json::parse(data)["drives"][0]["name"];
  EXPECT_THAT(name, ::testing::StartsWith("</script><script>window.broken=1</script>\"'><img"));
}

TEST(PageDataTest, whatIsMissingIsNull) {
  const Json data = Json::parse(pageData(sampleReport("missing-keys.json")));
  EXPECT_TRUE(data["findings"][0]["lba"].is_null());
  EXPECT_FALSE(data["findings"][0]["explained"]);
  EXPECT_TRUE(data["findings"][1]["explained"]);
  EXPECT_TRUE(data["drives"][0]["checked"].is_null());
}

}  // namespace
}  // namespace corvane::host::report
