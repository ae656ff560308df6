#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "tests/cli/RunningProgram.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ShellCommand.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::LoopDevice;
using tests::TempFolder;

const std::string uuid = "01234567-89ab-cdef-0123-456789abcdef";

/// A loop device with an ext4.
class OverwriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = LoopDevice::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    loop.emplace(files / "loop.img", uint64_t{16} << 20, 512);
    const tests::ShellEnd made = tests::runShell("mke2fs -q -t ext4 -L data -U " + uuid + " " + loop->path());
    ASSERT_EQ(made.status, 0) << made.out;
  }

  ProgramEnd run(std::vector<std::string> words) const {
    words.insert(words.begin(), {"run", "--drive", loop->path(), "--commands", "2000", "--seed", "1"});
    return runCorvane(folder, words);
  }

  std::string refused() const {
    return "corvane: drive '" + loop->path() + "' holds ext4 'data' (UUID " + uuid +
           "); name another drive, or give --overwrite to destroy what it holds\n";
  }

  TempFolder files;
  TempFolder folder;
  std::optional<LoopDevice> loop;
};

TEST_F(OverwriteTest, isNeededForADriveThatHoldsSomething) {
  const std::string before = tests::readFile(loop->file());
  const ProgramEnd end = run({});
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.err, refused());
  EXPECT_EQ(tests::readFile(loop->file()), before);
  EXPECT_TRUE(folder.content().empty());
}

TEST_F(OverwriteTest, destroysWhatTheDriveHeldAndSaysSo) {
  const ProgramEnd end = run({"--overwrite"});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_THAT(end.out, HasSubstr("warning: drive '" + loop->path() + "' held ext4 'data' (UUID " + uuid +
                                 "), which is overwritten\n"));
}

TEST_F(OverwriteTest, isNotRepeatedByTheCommandThatRepeatsTheRun) {
  const ProgramEnd end = run({"--overwrite"});
  EXPECT_THAT(end.out, HasSubstr("corvane run --drive " + loop->path()));
  EXPECT_THAT(end.out, Not(HasSubstr("--overwrite")));
  EXPECT_THAT(tests::readFile(folder / "corvane-out/result.json"), Not(HasSubstr("overwrite\"")));
}

TEST_F(OverwriteTest, isNoKeyOfATestFile) {
  tests::writeFile(folder / "x.toml", "drive = \"" + loop->path() + "\"\noverwrite = true\n");
  const ProgramEnd end = runCorvane(folder, {"run", "x.toml"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.err,
            "corvane: x.toml:2: 'overwrite' is not a key of a test file, so that a file that is passed on destroys "
            "nobody's disk; give --overwrite on the command line\n");
}

TEST_F(OverwriteTest, overrulesNothingInATestFileButAllowsIt) {
  tests::writeFile(folder / "x.toml", "drive = \"" + loop->path() + "\"\ncommands = 2000\nseed = 1\n");
  EXPECT_EQ(runCorvane(folder, {"run", "x.toml"}).err, refused());
  EXPECT_EQ(runCorvane(folder, {"run", "x.toml", "--overwrite"}).status, 0);
}

TEST_F(OverwriteTest, isNeededForAReplayOfItsOwn) {
  ASSERT_EQ(runCorvane(folder, {"run", "--drive", loop->path(), "--commands", "20000", "--seed", "1", "--size", "1m",
                                "--fault", "lost-write:rate=0.05", "--overwrite"})
                .status,
            1);
  const tests::ShellEnd made = tests::runShell("mke2fs -q -t ext4 -L data -U " + uuid + " " + loop->path());
  ASSERT_EQ(made.status, 0) << made.out;
  const ProgramEnd end = runCorvane(folder, {"replay", "corvane-out/result.json"});
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.err, refused());
  EXPECT_THAT(runCorvane(folder, {"replay", "corvane-out/result.json", "--overwrite"}).out,
              HasSubstr("warning: drive '" + loop->path() + "' held ext4 'data'"));
}

TEST_F(OverwriteTest, isNotNeededToLookAtADrive) {
  const std::string before = tests::readFile(loop->file());
  const ProgramEnd end = runCorvane(folder, {"drives", loop->path()});
  EXPECT_EQ(end.status, 0) << end.err;
  EXPECT_THAT(end.out, HasSubstr("\n  holds                 ext4 'data' (UUID " + uuid + ")\n"));
  EXPECT_EQ(tests::readFile(loop->file()), before);
}

TEST_F(OverwriteTest, takesNoValue) {
  const ProgramEnd end = run({"--overwrite=yes"});
  EXPECT_EQ(end.status, 2);
  EXPECT_THAT(end.err, HasSubstr("--overwrite takes no value; give it alone"));
}

}  // namespace
}  // namespace corvane::host
