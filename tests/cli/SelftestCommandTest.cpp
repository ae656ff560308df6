#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::TempFolder;

TEST(SelftestCommand, PrintsTheTableAndWritesTheDocumentTheSameTwice) {
  const TempFolder folder;
  const std::vector<std::string> words{"selftest", "--class", "lost-write", "--class",    "trim-ignored",
                                       "--seeds",  "2",       "--json",     "result.json"};
  const ProgramEnd first = runCorvane(folder, words);
  const std::string document = tests::readFile(folder / "result.json");
  EXPECT_EQ(first.status, 0) << first.out << first.err;
  EXPECT_THAT(first.out, HasSubstr("| lost-write "));
  EXPECT_THAT(first.out, HasSubstr("| trim-ignored "));
  EXPECT_THAT(first.out, HasSubstr("were missed with the compare switched off"));
  EXPECT_THAT(first.out, HasSubstr("Result: passed"));
  EXPECT_EQ(first.out.find("re-queuing"), std::string::npos) << "the agent's own lines are kept away";
  EXPECT_EQ(first.err, "");

  const ProgramEnd second = runCorvane(folder, words);
  EXPECT_EQ(second.out, first.out);
  EXPECT_EQ(tests::readFile(folder / "result.json"), document);

  const auto json = nlohmann::json::parse(document);
  EXPECT_EQ(json["passed"], true);
  ASSERT_EQ(json["classes"].size(), 2U);
  EXPECT_EQ(json["classes"][0]["class"], "lost-write");
  EXPECT_GT(json["classes"][0]["visible"].get<int>(), 0);
  EXPECT_GT(json["canary"]["verdicts"]["missed"].get<int>(), 0);
  EXPECT_THAT(json["canary"]["examples"][0]["command"].get<std::string>(), HasSubstr("corvane run --drive sim:1m"));
}

TEST(RunCommandWithFaults, FindsAnInjectedFaultAndTellsWhatWasDone) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(
      folder, {"run", "--drive", "sim:1m", "--commands", "20000", "--seed", "3", "--set", "Min Queue Size=64", "--set",
               "Max Queue Size=128", "--xfer", "1..16", "--fault", "lost-write:at=command:1000", "--output", "out"});
  EXPECT_EQ(end.status, 1) << end.out;
  EXPECT_THAT(end.out, HasSubstr("lost-write at command 1000, a write of"));
  EXPECT_THAT(end.out, HasSubstr("--fault lost-write:at=command:1000"));
  const auto json = nlohmann::json::parse(tests::readFile(folder / "out/result.json"));
  const auto& injections = json["drives"][0]["injections"];
  ASSERT_EQ(injections.size(), 1U);
  EXPECT_EQ(injections[0]["class"], "lost-write");
  EXPECT_GE(json["findings"][0]["lba"].get<uint64_t>(), injections[0]["lba"].get<uint64_t>());
  EXPECT_GT(injections[0]["visible"].get<uint64_t>(), 0U);
  EXPECT_EQ(injections[0]["altered"][0]["was"].get<std::string>().size(), 64U);
}

TEST(FaultsCommand, ListsEveryClass) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, {"faults"});
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.out, HasSubstr("lost-write "));
  EXPECT_THAT(end.out, HasSubstr("mixed-commands "));
}

}  // namespace
}  // namespace corvane::host
