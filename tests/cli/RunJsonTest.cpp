#include "host/cli/RunJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/cli/Version.h"
#include "tests/cli/SampleRun.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::SampleRun;
using Json = nlohmann::ordered_json;

Json documentOf(const SampleRun& sample, const std::vector<std::string>& warnings = {}) {
  return Json::parse(runJson(sample.settings, sample.drives, warnings, sample.result));
}

std::vector<std::string> keysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object.items()) {
    keys.push_back(key);
  }
  return keys;
}

TEST(RunJsonTest, hasTheKeysThatProgramsRelyOn) {
  const Json document = documentOf(SampleRun());
  EXPECT_THAT(keysOf(document),
              ElementsAre("format", "version", "seed", "seedDrawn", "repeat", "test", "started", "status", "exitStatus",
                          "error", "stopped", "elapsedMs", "warnings", "drives", "findings"));
  const Json& drive = document["drives"][0];
  EXPECT_THAT(keysOf(drive), ElementsAre("name", "address", "description", "geometry", "range", "verdict", "status",
                                         "agentStatus", "error", "commands", "events", "blocks", "bytes", "checked",
                                         "elapsedMs", "unanswered", "injections", "messages", "latency", "files"));
  EXPECT_THAT(keysOf(drive["commands"]),
              ElementsAre("issued", "completed", "failed", "retried", "heldBack", "stray", "maxOutstanding"));
  EXPECT_THAT(keysOf(drive["commands"]["issued"]),
              ElementsAre("write", "atomic", "writesame", "trim", "read", "verify", "sync"));
  EXPECT_THAT(keysOf(drive["events"]),
              ElementsAre("resets", "powerCycles", "connectionsLost", "zoneResets", "invalidations"));
  EXPECT_THAT(keysOf(document["findings"][0]), ElementsAre("drive", "driveIndex", "agentStatus", "lba", "commandNumber",
                                                           "step", "elapsedMs", "text", "files"));
}

TEST(RunJsonTest, tellsAboutTheRun) {
  const Json document = documentOf(SampleRun(), {"careful"});
  EXPECT_EQ(document["format"], 1);
  EXPECT_EQ(document["started"], "2026-01-31T12:00:00Z");
  EXPECT_EQ(document["test"]["seed"], "42");
  EXPECT_EQ(document["version"], programVersion());
  EXPECT_EQ(document["seed"], 42);
  EXPECT_EQ(document["seedDrawn"], false);
  EXPECT_EQ(document["repeat"][3], "sim:1g");
  EXPECT_EQ(document["status"], "data failure");
  EXPECT_EQ(document["exitStatus"], 1);
  EXPECT_EQ(document["elapsedMs"], 2100);
  EXPECT_EQ(document["warnings"], Json::array({"careful"}));
}

TEST(RunJsonTest, tellsAboutEachDrive) {
  const Json document = documentOf(SampleRun());
  ASSERT_EQ(document["drives"].size(), 2U);
  const Json& good = document["drives"][0];
  EXPECT_EQ(good["name"], "sim0");
  EXPECT_EQ(good["verdict"], "clean");
  EXPECT_EQ(good["geometry"]["blocks"], 1000);
  EXPECT_EQ(good["geometry"]["blockSize"], 4096);
  EXPECT_EQ(good["geometry"]["protectionBytes"], 8);
  EXPECT_EQ(good["geometry"]["physicalBlockSize"], 8192);
  EXPECT_EQ(good["range"]["firstLba"], 5);
  EXPECT_EQ(good["range"]["endLba"], 900);
  EXPECT_EQ(good["commands"]["issued"]["write"], 60);
  EXPECT_EQ(good["commands"]["issued"]["trim"], 3);
  EXPECT_EQ(good["commands"]["completed"]["read"], 36);
  EXPECT_EQ(good["events"]["resets"], 2);
  EXPECT_EQ(good["events"]["zoneResets"], 5);
  EXPECT_EQ(good["events"]["invalidations"], 6);
  EXPECT_EQ(good["bytes"]["written"], 4'000'000);
  EXPECT_EQ(good["bytes"]["compared"], 3'000'000);
  EXPECT_EQ(good["elapsedMs"], 2000);
  const Json& bad = document["drives"][1];
  EXPECT_EQ(bad["verdict"], "DATA FAILURE: Miscompare Detected at LBA 0x1");
  EXPECT_EQ(bad["status"], "data failure");
  EXPECT_EQ(bad["agentStatus"], -1046);
  EXPECT_EQ(bad["messages"]["errors"], 1);
  EXPECT_EQ(bad["messages"]["lines"][0]["level"], 2);
  EXPECT_EQ(bad["files"]["reports"], Json::array({"out/trace.txt"}));
  EXPECT_EQ(bad["files"]["dumps"], Json::array({"out/drive.bin", "out/reference.bin"}));
}

TEST(RunJsonTest, saysWhatTheComparedBlocksWereWorth) {
  const Json document = documentOf(SampleRun());
  const Json expected{
      {"oneOutcome", 1690},
      {"severalOutcomes", {{"2", 20}, {"4", 5}}},
      {"notCheckable", {{"its zone was reset", 7}, {"read only to see whether a failed write left it readable", 2}}}};
  EXPECT_EQ(document["drives"][0]["checked"], expected);
  const Json nothing{{"oneOutcome", 0}, {"severalOutcomes", Json::object()}, {"notCheckable", Json::object()}};
  EXPECT_EQ(document["drives"][1]["checked"], nothing);
}

TEST(RunJsonTest, listsEveryCommandThatADriveWhichHangsHasNotAnswered) {
  SampleRun run;
  run.result.drives[1].unanswered = {{.kind = CommandKind::trim, .tag = 3, .lba = 70, .blocks = 8, .ageUs = 61'000'000},
                                     {.kind = CommandKind::syncCache, .tag = 1, .ageUs = 60'000'000}};
  const Json document = documentOf(run);
  EXPECT_EQ(document["drives"][0]["unanswered"], Json::array());
  const Json expected{{{"kind", "trim"}, {"lba", 70}, {"blocks", 8}, {"tag", 3}, {"ageUs", 61'000'000}},
                      {{"kind", "sync"}, {"lba", 0}, {"blocks", 0}, {"tag", 1}, {"ageUs", 60'000'000}}};
  EXPECT_EQ(document["drives"][1]["unanswered"], expected);
}

TEST(RunJsonTest, listsTheFindings) {
  const Json document = documentOf(SampleRun());
  ASSERT_EQ(document["findings"].size(), 1U);
  EXPECT_EQ(document["findings"][0]["drive"], "b.img");
  EXPECT_EQ(document["findings"][0]["agentStatus"], -1046);
  EXPECT_EQ(document["findings"][0]["driveIndex"], 1);
  EXPECT_EQ(document["findings"][0]["commandNumber"], 1042);
  EXPECT_EQ(document["findings"][0]["step"], 1100);
  EXPECT_EQ(document["findings"][0]["elapsedMs"], 70);
  EXPECT_EQ(document["findings"][0]["files"].size(), 3U);
}

TEST(RunJsonTest, keepsSeedsOf64Bits) {
  SampleRun sample;
  sample.settings.test.seed = 18446744073709551615U;
  EXPECT_EQ(documentOf(sample)["seed"].get<uint64_t>(), 18446744073709551615U);
}

TEST(RunJsonTest, replacesBytesThatAreNoText) {
  SampleRun sample;
  sample.result.drives[1].error = "bad \xff byte";
  EXPECT_EQ(documentOf(sample)["drives"][1]["error"], "bad \xef\xbf\xbd byte");
}

TEST(RunJsonTest, aTestThatCouldNotBeginHasTheSameKeys) {
  const SampleRun sample;
  const Json document = Json::parse(failedRunJson(sample.settings, RunStatus::drive, "it is gone"));
  EXPECT_EQ(keysOf(document), keysOf(documentOf(sample)));
  EXPECT_EQ(document["status"], "drive error");
  EXPECT_EQ(document["exitStatus"], 3);
  EXPECT_EQ(document["error"], "it is gone");
  EXPECT_TRUE(document["drives"].empty());
}

}  // namespace
}  // namespace corvane::host
