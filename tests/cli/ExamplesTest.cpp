#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::TempFolder;

const std::filesystem::path examples = CORVANE_EXAMPLES;

class ExampleTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ExampleTest, runsCleanOnASimulatedDriveAndReadsBack) {
  const TempFolder folder;
  const ProgramEnd end =
      runCorvane(folder, {"run", examples / GetParam(), "--commands", "8000", "--seed", "1", "--output", "out"});
  EXPECT_EQ(end.status, 0) << end.out << end.err;
  EXPECT_THAT(end.out, Not(HasSubstr("warning: ")));
  const nlohmann::json document = nlohmann::json::parse(tests::readFile(folder / "out/result.json"));
  EXPECT_GT(document["drives"][0]["blocks"]["compared"], 0);
}

INSTANTIATE_TEST_SUITE_P(Files, ExampleTest,
                         ::testing::Values("quick.toml", "soak.toml", "mixed.toml", "atomic.toml", "power-cut.toml",
                                           "zoned.toml", "verify-only.toml", "phases.toml"),
                         [](const auto& file) {
                           std::string name = file.param;
                           std::erase_if(name, [](char c) { return c == '-' || c == '.'; });
                           return name;
                         });

TEST(ExamplesTest, everyOneIsTried) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(examples)) {
    names.insert(entry.path().filename().string());
  }
  EXPECT_THAT(names, ElementsAre("atomic.toml", "mixed.toml", "phases.toml", "power-cut.toml", "quick.toml",
                                 "soak.toml", "verify-only.toml", "zoned.toml"));
}

TEST(ExamplesTest, theQuickOneFindsAFaultWhateverTheSeed) {
  for (int seed = 1; seed <= 5; ++seed) {
    const TempFolder folder;
    const ProgramEnd end = runCorvane(folder, {"run", examples / "quick.toml", "--seed", std::to_string(seed),
                                               "--fault", "lost-write:at=command:500"});
    EXPECT_EQ(end.status, 1) << seed << end.out << end.err;
  }
}

}  // namespace
}  // namespace corvane::host
