#include "host/report/ResultDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "host/report/ReportError.h"
#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

using host::testing::sampleJson;
using host::testing::sampleText;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::Json;
using ::testing::ThrowsMessage;

ResultDocument parsed(const Json& document) { return parseResult(document.dump(), "r.json"); }

TEST(ResultDocumentTest, readsWhatARunLeaves) {
  const ResultDocument result = parseResult(sampleText("lost-write/result.json"), "r.json");
  EXPECT_EQ(result.version, "0.1.0");
  EXPECT_EQ(result.seed, 3U);
  EXPECT_EQ(result.status, "data failure");
  EXPECT_EQ(result.exitStatus, 1);
  ASSERT_EQ(result.drives.size(), 1U);
  const DriveOfResult& drive = result.drives[0];
  EXPECT_EQ(drive.name, "sim0");
  EXPECT_EQ(drive.blocks, 256U);
  EXPECT_EQ(drive.blockSize, 512U);
  ASSERT_EQ(drive.issued.size(), 7U);
  EXPECT_EQ(drive.issued[0].name, "write");
  EXPECT_EQ(drive.issued[0].count, 202U);
  ASSERT_EQ(drive.injections.size(), 1U);
  EXPECT_EQ(drive.injections[0].what, "lost-write");
  EXPECT_EQ(drive.injections[0].alteredBlocks, 1U);
  EXPECT_EQ(drive.messages.size(), 8U);
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].agentStatus, -1046);
  EXPECT_EQ(result.findings[0].lba, 148U);
  EXPECT_EQ(result.findings[0].files.size(), 3U);
  EXPECT_FALSE(result.findings[0].explanation);
}

TEST(ResultDocumentTest, readsExplanationsLatenciesAndCoverage) {
  const ResultDocument result = parseResult(sampleText("explained.json"), "r.json");
  EXPECT_EQ(result.started, "2026-01-31T12:00:00Z");
  EXPECT_EQ(result.test.front(), (std::pair<std::string, std::string>{"drive", "sim:128k"}));
  const DriveOfResult& drive = result.drives.at(0);
  ASSERT_EQ(drive.latency.size(), 2U);
  EXPECT_EQ(drive.latency[0].kind, "write");
  EXPECT_EQ(drive.latency[0].count, 199U);
  EXPECT_FALSE(drive.latency[0].buckets.empty());
  ASSERT_TRUE(drive.checked);
  EXPECT_EQ(drive.checked->oneOutcome, 279U);
  EXPECT_EQ(drive.checked->severalOutcomes.size(), 2U);
  EXPECT_EQ(drive.checked->notCheckable.at(0).name, "the write over it failed");
  const FindingOfResult& finding = result.findings.at(0);
  EXPECT_EQ(finding.step, 277U);
  ASSERT_TRUE(finding.explanation);
  const Explanation& explanation = *finding.explanation;
  EXPECT_EQ(explanation.kind, "old-data");
  EXPECT_EQ(explanation.sentences.size(), 3U);
  EXPECT_EQ(explanation.commands.size(), 21U);
  EXPECT_EQ(explanation.read->id, 268U);
  EXPECT_EQ(explanation.expected->commandId, 121U);
  EXPECT_EQ(explanation.observed->commandId, 75U);
  EXPECT_EQ(explanation.driveData.size(), 512U);
  EXPECT_EQ(explanation.neighbours.size(), 25U);
  EXPECT_EQ(explanation.reread, "same");
}

TEST(ResultDocumentTest, keysThatMayBeMissingMayBeMissing) {
  const ResultDocument result = parseResult(sampleText("missing-keys.json"), "r.json");
  EXPECT_EQ(result.drives.at(0).blocks, 0U);
  EXPECT_THAT(result.drives.at(0).latency, IsEmpty());
  EXPECT_FALSE(result.drives.at(0).checked);
  EXPECT_FALSE(result.findings.at(1).explanation->read);
}

TEST(ResultDocumentTest, keysThatMustBeThereAreNamed) {
  for (const char* key : {"version", "status", "drives", "findings"}) {
    Json document = sampleJson("explained.json");
    document.erase(key);
    EXPECT_THAT([&] { parsed(document); },
                ThrowsMessage<ReportError>(HasSubstr("'r.json' has no key '" + std::string(key) + "'")));
  }
  Json document = sampleJson("explained.json");
  document["drives"][0].erase("name");
  EXPECT_THAT([&] { parsed(document); }, ThrowsMessage<ReportError>(HasSubstr("no key 'drives[0].name'")));
  document = sampleJson("explained.json");
  document["findings"][0]["explanation"]["commands"][2].erase("lba");
  EXPECT_THAT([&] { parsed(document); },
              ThrowsMessage<ReportError>(HasSubstr("no key 'findings[0].explanation.commands[2].lba'")));
}

/// Puts another type in the place of every value, one after the other.
void replaceEach(Json& whole, Json& value, const std::function<void()>& check) {
  if (value.is_structured()) {
    for (Json& member : value) {
      replaceEach(whole, member, check);
    }
  }
  for (const Json& other : {Json("x"), Json(-1), Json(1.5), Json(true), Json::array({Json()}), Json{{"x", Json()}}}) {
    const Json before = value;
    value = other;
    check();
    value = before;
  }
}

TEST(ResultDocumentTest, noWrongValueAnywhereDoesMoreThanItsOneLine) {
  Json document = sampleJson("explained.json");
  // One of each is enough, and quick.
  for (const char* list : {"commands", "neighbours"}) {
    Json& items = document["findings"][0]["explanation"][list];
    const Json first = items[0];
    items = Json::array({first});
  }
  size_t refused = 0;
  size_t accepted = 0;
  replaceEach(document, document, [&] {
    try {
      parsed(document);
      ++accepted;
    } catch (const ReportError& error) {
      ++refused;
      const std::string line = error.what();
      EXPECT_THAT(line, HasSubstr("r.json"));
      EXPECT_EQ(line.find('\n'), std::string::npos);
      EXPECT_LT(line.size(), 300U);
    }
  });
  EXPECT_GT(refused, 1000U);
  EXPECT_GT(accepted, 100U);
}

TEST(ResultDocumentTest, whatIsNoJsonIsSaidToBeNone) {
  EXPECT_THAT([] { parseResult("", "r.json"); }, ThrowsMessage<ReportError>(HasSubstr("'r.json' is not JSON")));
  const std::string text = sampleText("explained.json");
  for (size_t length = 0; length < text.size() - 2; length += 97) {
    EXPECT_THROW(parseResult(text.substr(0, length), "r.json"), ReportError) << length;
  }
  EXPECT_THAT([] { parseResult("[1e999]", "r.json"); }, ThrowsMessage<ReportError>(HasSubstr("number")));
  EXPECT_THAT([] { parseResult("[]", "r.json"); },
              ThrowsMessage<ReportError>(HasSubstr("the document is []; an object was expected")));
}

TEST(ResultDocumentTest, valuesThatNestWithoutEndAreRefused) {
  const size_t deep = 200'000;
  const std::string nest = std::string(deep, '[') + std::string(deep, ']');
  for (const char* key : {"test", "status", "version"}) {
    const std::string text = R"({"drives": [], ")" + std::string(key) + R"(": )" + nest + "}";
    EXPECT_THAT([&] { parseResult(text, "r.json"); },
                ThrowsMessage<ReportError>(HasSubstr("'r.json' nests values more than 64 deep")))
        << key;
    EXPECT_FALSE(looksLikeResult(text));
  }
}

TEST(ResultDocumentTest, laterFormatsAreRefused) {
  Json document = sampleJson("explained.json");
  document["format"] = 2;
  EXPECT_THAT([&] { parsed(document); }, ThrowsMessage<ReportError>(HasSubstr("key 'format' is 2")));
}

TEST(LooksLikeResultTest, knowsResultsByTheirKeys) {
  EXPECT_TRUE(looksLikeResult(sampleText("explained.json")));
  EXPECT_TRUE(looksLikeResult(R"({"version": 1, "drives": 2})"));
  EXPECT_FALSE(looksLikeResult(R"({"drives": []})"));
  EXPECT_FALSE(looksLikeResult(R"({"format": 1, "version": ""})"));
  EXPECT_FALSE(looksLikeResult("[]"));
  EXPECT_FALSE(looksLikeResult("{"));
}

}  // namespace
}  // namespace corvane::host::report
