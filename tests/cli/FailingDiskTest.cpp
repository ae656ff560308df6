// The disk under the folder for reports fails in the middle of a test. The verdict stands all the same.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/cli/RunningProgram.h"
#include "tests/support/FailingFileSystem.h"

namespace corvane::host::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::Not;

// What the kernel says of a lost disk: that a block did not reach it, or, when it cannot read the map of free blocks
// any more either, that there are none.
constexpr const char* lostBlocks = "Input/output error";
constexpr const char* lostMap = "No space left on device";

class FailingDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = tests::FailingFileSystem::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    disk_.emplace(folder_ / "disk", files_ / "image");
  }

  /// Runs a test that finds something a second after its beginning, and lets the disk fail between the two.
  template <typename Fail>
  ProgramEnd run(const std::vector<std::string>& more, Fail fail) {
    std::vector<std::string> words{"run",
                                   "--drive",
                                   "sim:64m",
                                   "--size",
                                   "1m",
                                   "--commands",
                                   "3000",
                                   "--rate",
                                   "500",
                                   "--seed",
                                   "1",
                                   "--queue-depth",
                                   "16",
                                   "--xfer",
                                   "1..16",
                                   "--set",
                                   "Min Queue Size=64",
                                   "--set",
                                   "Max Queue Size=128",
                                   "--lba-agent",
                                   "sequential",
                                   "--fault",
                                   "lost-write:at=command:500"};
    words.insert(words.end(), more.begin(), more.end());
    RunningProgram program(folder_, words);
    const auto end = std::chrono::steady_clock::now() + 30s;
    const std::string events = folder_ / "disk/e.ndjson";
    while (!program.ended() && std::chrono::steady_clock::now() < end &&
           (!std::filesystem::exists(events) || std::filesystem::file_size(events) == 0)) {
      std::this_thread::sleep_for(5ms);
    }
    EXPECT_FALSE(program.ended());
    fail();
    const ProgramEnd ended = program.wait();
    EXPECT_EQ(ended.status, 1) << ended.out << ended.err;
    EXPECT_THAT(ended.out, AllOf(HasSubstr("DATA FAILURE"), HasSubstr("Miscompare Detected at LBA"),
                                 HasSubstr("Result: data failure (exit status 1)")));
    return ended;
  }

  tests::TempFolder files_;
  tests::TempFolder folder_;
  std::optional<tests::FailingFileSystem> disk_;
};

TEST_F(FailingDisk, ThatOpensNothingAnyMoreKeepsTheVerdictAndEveryFileIsNamed) {
  const ProgramEnd end =
      run({"--output", "disk/out", "--junit", "disk/j.xml", "--events", "disk/e.ndjson"}, [&] { disk_->failAll(); });
  EXPECT_THAT(end.err, AllOf(HasSubstr("disk/out/result.json' cannot be written: Input/output error"),
                             HasSubstr("--junit 'disk/j.xml' cannot be written: Input/output error")));
  EXPECT_THAT(end.out, HasSubstr("warning: --events 'disk/e.ndjson' cannot be written: Input/output error"));
  // The agent puts its own files where the program was started.
  EXPECT_THAT(end.out, Not(HasSubstr("saved to 'disk/out")));
  EXPECT_GT(std::filesystem::file_size(folder_ / "datacompare_trace_sim0.txt"), 0U);
  EXPECT_EQ(std::filesystem::file_size(folder_ / "datacompare_drive_sim0.bin"), 512U);
}

TEST_F(FailingDisk, ThatLosesWhatItTookKeepsTheVerdictAndSaysSo) {
  const ProgramEnd end = run({"--output", "roomy", "--events", "disk/e.ndjson"}, [&] { disk_->loseDisk(); });
  const std::string warning = "warning: --events 'disk/e.ndjson' cannot be written: ";
  EXPECT_THAT(end.out, AnyOf(HasSubstr(warning + lostBlocks), HasSubstr(warning + lostMap)));
  EXPECT_EQ(end.err, "");
}

TEST_F(FailingDisk, FromTheBeginningIsRefusedBeforeTheDriveIsTouched) {
  disk_->failAll();
  const ProgramEnd end =
      runCorvane(folder_, {"run", "--drive", "file:d.img,size=1m", "--commands", "10", "--output", "disk/out"});
  EXPECT_EQ(end.status, 2) << end.out;
  EXPECT_THAT(end.err, AllOf(HasSubstr("--output 'disk/out' cannot be created: Input/output error"),
                             HasSubstr("name a folder that can be written to")));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "d.img"));
}

TEST_F(FailingDisk, OfAReportLeavesNoHalfPage) {
  const ProgramEnd run = runCorvane(folder_, {"run", "--drive", "sim:64m", "--commands", "1000"});
  ASSERT_EQ(run.status, 0) << run.err;
  disk_->loseDisk();
  const ProgramEnd end = runCorvane(folder_, {"report", "corvane-out", "--output", "disk/page.html"});
  EXPECT_NE(end.status, 0) << end.out;
  EXPECT_THAT(end.err,
              AllOf(HasSubstr("disk/page.html' cannot be written"), AnyOf(HasSubstr(lostBlocks), HasSubstr(lostMap))));
  std::error_code fault;
  EXPECT_FALSE(std::filesystem::exists(folder_ / "disk/page.html", fault));
}

}  // namespace
}  // namespace corvane::host::testing
