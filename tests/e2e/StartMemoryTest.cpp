// Memory that runs out somewhere between the making of a test and its first commands: each allocation fails once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <optional>
#include <string>

#include "host/run/TestRun.h"
#include "tests/support/Shortage.h"
#include "tests/support/TempFolder.h"

namespace corvane::host::e2e {
namespace {

using tests::livingAllocations;
using tests::saysOutOfMemory;
using tests::Shortage;
using Workspace = tests::TempFolder;

TestDefinition shortTest(const Workspace& workspace) {
  TestDefinition test;
  test.pluginPath = CORVANE_AGENT_PATH;
  test.outputDirectory = workspace / "output";
  test.driveAddresses = {"sim:1m"};
  test.queueDepth = 4;
  test.commandLimit = 30;
  test.journalDepth = 256;
  test.agentOptions = {
      {"Bucket Count", "64"}, {"Trace Depth", "100"}, {"Min Queue Size", "4"}, {"Max Queue Size", "8"}};
  return test;
}

/// How a test ended: the text of what was thrown or of the drive's error, and the status of a test that ran.
struct End {
  std::string text;
  std::optional<RunStatus> status;
};

End runWithout(const TestDefinition& test, uint64_t allocation, bool& failed) {
  End end;
  const Shortage shortage(allocation);
  try {
    TestRun run(test);
    const RunResult result = run.run();
    failed = Shortage::end();
    end.status = result.status;
    end.text = result.drives.at(0).error;
  } catch (const std::bad_alloc&) {
    failed = Shortage::end();
    end.text = "out of memory";
  } catch (const std::exception& error) {
    failed = Shortage::end();
    end.text = error.what();
  }
  return end;
}

TEST(StartMemory, EveryAllocationOfATestThatBeginsMayFail) {
  const Workspace workspace;
  const TestDefinition test = shortTest(workspace);
  constexpr uint64_t more = 100'000;
  bool failed = false;
  ASSERT_EQ(runWithout(test, 0, failed).status, RunStatus::clean);
  uint64_t refused = 0;
  uint64_t number = 0;
  do {
    ++number;
    const int64_t before = livingAllocations();
    ::testing::internal::CaptureStderr();
    const int64_t withCapture = livingAllocations();
    const End end = runWithout(test, number, failed);
    const int64_t after = livingAllocations() - (end.text.capacity() > 15 ? 1 : 0);
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(after, withCapture) << "allocation " << number << " leaks: " << end.text << " " << before;
    if (!failed) {
      EXPECT_EQ(end.status, RunStatus::clean) << end.text;
    } else if (end.status != RunStatus::clean) {
      EXPECT_THAT(end.text, saysOutOfMemory()) << "allocation " << number;
      EXPECT_EQ(end.status.value_or(RunStatus::internal), RunStatus::internal) << "allocation " << number;
      ++refused;
    }
  } while (failed && number < more);
  EXPECT_FALSE(failed);
  EXPECT_GT(refused, 100U);
  RecordProperty("allocations", static_cast<int>(number - 1));
}

}  // namespace
}  // namespace corvane::host::e2e
