// Memory that runs out anywhere in a command line.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/ExitStatus.h"
#include "host/cli/Program.h"
#include "tests/support/EachAllocation.h"
#include "tests/support/TempFolder.h"

namespace corvane::host::e2e {
namespace {

using tests::Allocations;
using tests::Ending;
using tests::failEachAllocation;
using Workspace = tests::TempFolder;

// Each of them takes a minute; the documents, of which each must hold, have tests of their own.
constexpr Allocations some{.everyOneUpTo = 50, .stride = 13};

/// @return work that allocates nothing of its own
std::function<int()> commandLine(const std::vector<std::string>& words) {
  struct Line {
    std::vector<std::string> words;
    std::vector<const char*> argv;
  };
  const auto line = std::make_shared<Line>(Line{.words = words, .argv = {}});
  for (const std::string& word : line->words) {
    line->argv.push_back(word.c_str());
  }
  return [line] { return runProgram(static_cast<int>(line->argv.size()), line->argv.data()); };
}

std::function<int()> shortRun(const Workspace& workspace, const std::vector<std::string>& more) {
  std::vector<std::string> words{"corvane",       "run",
                                 "--drive",       "sim:1m",
                                 "--seed",        "1",
                                 "--queue-depth", "4",
                                 "--plugin",      CORVANE_AGENT_PATH,
                                 "--output",      workspace / "out",
                                 "--set",         "Bucket Count=64",
                                 "--set",         "Trace Depth=20",
                                 "--set",         "Max Queue Size=8",
                                 "--set",         "Min Queue Size=4"};
  words.insert(words.end(), more.begin(), more.end());
  return commandLine(words);
}

std::function<int()> failingRun(const Workspace& workspace) {
  return shortRun(workspace, {"--commands", "60", "--fault", "bit-flip-write:at=command:40", "--quiet"});
}

TEST(CommandMemory, ARunThatRunsOutOfItSaysSoAndEndsWithTheStatusOfAnInternalError) {
  const Workspace workspace;
  const auto run =
      shortRun(workspace, {"--commands", "30", "--events", workspace / "events", "--junit", workspace / "junit.xml"});
  EXPECT_GT(failEachAllocation(run, exit_status::clean, exit_status::internal, some), 100U);
}

TEST(CommandMemory, ATestFileThatRunsOutOfItIsNotSaidToBeWrong) {
  const Workspace workspace;
  tests::writeFile(workspace / "test.toml", R"(# a line
drive = ["sim:1m"]
time = "5m"
condition = ["quiet"]
phase = ["quiet,every=20,for=5"]
random = ["write=3,trim=1"]

[step]
trim = "trim & !quiet"

[options]
"Bucket Count" = 64
)");
  const auto resolved = commandLine({"corvane", "run", workspace / "test.toml", "--dry-run", "--plugin",
                                     CORVANE_AGENT_PATH, "--output", workspace / "out"});
  EXPECT_GT(failEachAllocation(resolved, exit_status::clean, exit_status::internal, some), 100U);
}

TEST(CommandMemory, ARunThatRunsOutOfItNeverHidesWhatItFound) {
  const Workspace workspace;
  // Reports of many runs would take ever longer to name.
  const auto withoutReports = [&] { std::filesystem::remove_all(workspace / "out"); };
  EXPECT_GT(
      failEachAllocation(failingRun(workspace), exit_status::dataFailure, exit_status::internal, some, withoutReports),
      100U);
}

TEST(CommandMemory, AReportThatRunsOutOfItSaysSoAndEndsWithTheStatusOfAnInternalError) {
  const Workspace workspace;
  const Ending run = tests::endingWithout(0, failingRun(workspace), workspace);
  ASSERT_EQ(run.status, exit_status::dataFailure) << run.said;
  const auto page = commandLine({"corvane", "report", workspace / "out", "--output", workspace / "page.html"});
  EXPECT_GT(failEachAllocation(page, exit_status::clean, exit_status::internal, some), 100U);
}

}  // namespace
}  // namespace corvane::host::e2e
