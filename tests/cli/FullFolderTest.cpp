// A folder for reports in which nothing, or not all, can be written. The verdict stands all the same.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/cli/RunningProgram.h"

namespace corvane::host::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

/// A small file system in memory.
class TinyFileSystem {
 public:
  explicit TinyFileSystem(const std::string& folder, const char* options) : folder_(folder) {
    std::filesystem::create_directory(folder);
    error_ = mount("none", folder.c_str(), "tmpfs", 0, options) == 0 ? 0 : errno;
  }
  ~TinyFileSystem() {
    if (error_ == 0) {
      umount2(folder_.c_str(), MNT_DETACH);
    }
  }
  TinyFileSystem(const TinyFileSystem&) = delete;
  TinyFileSystem& operator=(const TinyFileSystem&) = delete;

  /// Why there is none; empty when there is.
  std::string missing() const { return error_ == 0 ? "" : std::string("no tmpfs: ") + std::strerror(error_); }

 private:
  std::string folder_;
  int error_;
};

std::vector<std::string> withFault(const std::vector<std::string>& more) {
  std::vector<std::string> words{"run",
                                 "--drive",
                                 "sim:64m",
                                 "--commands",
                                 "3000",
                                 "--size",
                                 "1m",
                                 "--seed",
                                 "1",
                                 "--queue-depth",
                                 "16",
                                 "--xfer",
                                 "1..16",
                                 "--lba-agent",
                                 "sequential",
                                 "--set",
                                 "Min Queue Size=64",
                                 "--set",
                                 "Max Queue Size=128",
                                 "--fault",
                                 "lost-write:at=command:500"};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

class FullFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "a file system of one's own needs root";
    }
    if (!tiny_.missing().empty()) {
      GTEST_SKIP() << tiny_.missing();
    }
  }

  void leaveFree(uint64_t kib) const { std::ofstream(folder_ / "small/fill") << std::string((64 - kib) * 1024, 'x'); }

  ProgramEnd run(const std::vector<std::string>& more) const { return runCorvane(folder_, withFault(more)); }

  static void expectVerdict(const ProgramEnd& end) {
    EXPECT_EQ(end.status, 1) << end.out << end.err;
    EXPECT_THAT(end.out, AllOf(HasSubstr("DATA FAILURE"), HasSubstr("Miscompare Detected at LBA"),
                               HasSubstr("Result: data failure (exit status 1)")));
  }

  tests::TempFolder folder_;
  TinyFileSystem tiny_{folder_ / "small", "size=64k"};
};

TEST_F(FullFolder, KeepsTheVerdictAndNamesEveryFileThatIsMissingOrCut) {
  for (const uint64_t free : {8U, 24U, 64U}) {
    std::filesystem::remove_all(folder_ / "small/out");
    leaveFree(free);
    const ProgramEnd end = run({"--output", "small/out", "--junit", "small/j.xml", "--events", "small/e.ndjson"});
    expectVerdict(end);
    EXPECT_THAT(end.out, HasSubstr("_trace_sim0.txt' is not complete")) << free;
    EXPECT_THAT(end.out, HasSubstr("_drive_sim0.bin' is not complete: it has 0 of 512 bytes; the file system is full"));
    EXPECT_THAT(end.out, HasSubstr("_reference_sim0.bin' is not complete: it has 0 of 512 bytes"));
    EXPECT_THAT(end.err, AllOf(HasSubstr("result.json' cannot be written: No space left on device"),
                               HasSubstr("--junit 'small/j.xml' cannot be written: No space left on device")));
  }
}

TEST_F(FullFolder, WithRoomForEverythingIsNotComplainedOf) {
  const ProgramEnd end = runCorvane(folder_, withFault({"--output", "roomy", "--junit", "j.xml"}));
  expectVerdict(end);
  EXPECT_THAT(end.out, Not(HasSubstr("not complete")));
  EXPECT_EQ(end.err, "");
}

TEST_F(FullFolder, WithoutRoomForTheEventsSaysSoOnceAndTheTestGoesOn) {
  leaveFree(0);
  const ProgramEnd end = run({"--output", "roomy", "--events", "small/e.ndjson"});
  expectVerdict(end);
  EXPECT_THAT(end.out, HasSubstr("warning: --events 'small/e.ndjson' cannot be written: No space left on device"));
}

TEST_F(FullFolder, WithoutAnyRoomIsRefusedBeforeTheDriveIsTouched) {
  leaveFree(0);
  const ProgramEnd end = run({"--output", "small/out"});
  EXPECT_EQ(end.status, 2) << end.out;
  EXPECT_THAT(end.err, AllOf(HasSubstr("small/out"), HasSubstr("No space left on device")));
}

TEST_F(FullFolder, OfAReportLeavesNoHalfPage) {
  ASSERT_EQ(runCorvane(folder_, withFault({"--output", "roomy"})).status, 1);
  leaveFree(4);
  const ProgramEnd end = runCorvane(folder_, {"report", "roomy", "--output", "small/page.html"});
  EXPECT_NE(end.status, 0) << end.out;
  EXPECT_THAT(end.err, AllOf(HasSubstr("small/page.html"), HasSubstr("No space left on device")));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "small/page.html"));
}

TEST(FullDevice, IsNoPlaceForADocument) {
  const tests::TempFolder folder;
  for (const char* flag : {"--json", "--junit"}) {
    const ProgramEnd end = runCorvane(folder, withFault({flag, "/dev/full"}));
    EXPECT_EQ(end.status, 2);
    EXPECT_THAT(end.err, AllOf(HasSubstr(flag), HasSubstr("'/dev/full' is no regular file")));
  }
}

TEST(FullDevice, ForEventsIsSaidOnceAndKeepsTheVerdict) {
  const tests::TempFolder folder;
  const ProgramEnd end = runCorvane(folder, withFault({"--events", "/dev/full"}));
  EXPECT_EQ(end.status, 1) << end.err;
  EXPECT_THAT(end.out, AllOf(HasSubstr("warning: --events '/dev/full' cannot be written: No space left on device"),
                             HasSubstr("Result: data failure (exit status 1)")));
}

}  // namespace
}  // namespace corvane::host::testing
