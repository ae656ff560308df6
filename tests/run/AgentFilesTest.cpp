#include "host/run/AgentFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/FailingFileSystem.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using tests::TempFolder;
using tests::writeFile;

constexpr uint64_t block = 512;

TEST(AgentFilesTest, hasNothingToSayOfCompleteFiles) {
  const TempFolder folder;
  writeFile(folder / "dump", std::string(block, '\0'));
  writeFile(folder / "report", "a line\nanother\n");
  EXPECT_EQ(whatIsMissingOfDump(folder / "dump", block), "");
  EXPECT_EQ(whatIsMissingOfReport(folder / "report"), "");
}

TEST(AgentFilesTest, namesWhatIsCutAndWhatIsGone) {
  const TempFolder folder;
  writeFile(folder / "dump", std::string(block - 1, '\0'));
  writeFile(folder / "report", "a line\nano");
  writeFile(folder / "empty", "");
  EXPECT_EQ(whatIsMissingOfDump(folder / "dump", block),
            "is not complete: it has 511 of 512 bytes; look at the file system, or name another folder");
  EXPECT_THAT(whatIsMissingOfReport(folder / "report"), HasSubstr("breaks off in the middle of a line"));
  EXPECT_THAT(whatIsMissingOfReport(folder / "empty"), HasSubstr("it has 0 of 1 bytes"));
  EXPECT_THAT(whatIsMissingOfDump(folder / "none", block),
              HasSubstr("cannot be found again (No such file or directory)"));
}

class AgentFilesOnABadDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = tests::FailingFileSystem::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    disk_.emplace(folder_ / "disk", folder_ / "image");
    writeFile(folder_ / "disk/report", "a line\n");
    ASSERT_EQ(tests::readFile(folder_ / "disk/report"), "a line\n");
  }

  TempFolder folder_;
  std::optional<tests::FailingFileSystem> disk_;
};

TEST_F(AgentFilesOnABadDisk, areNotKeptAlthoughTheyCanBeReadAgain) {
  disk_->loseDisk();
  EXPECT_EQ(tests::readFile(folder_ / "disk/report"), "a line\n");
  EXPECT_EQ(whatIsMissingOfReport(folder_ / "disk/report"),
            "cannot be kept: Input/output error; look at the file system, or name another folder");
}

TEST_F(AgentFilesOnABadDisk, areNotKeptWhenNothingCanBeOpened) {
  disk_->failAll();
  EXPECT_THAT(whatIsMissingOfReport(folder_ / "disk/report"), HasSubstr("Input/output error"));
}

}  // namespace
}  // namespace corvane::host
