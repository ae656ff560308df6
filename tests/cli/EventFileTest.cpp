#include "host/cli/EventFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <string>

#include "host/cli/UsageError.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tests::readFile;

std::string refusalOf(const std::string& path) {
  try {
    const EventFile file("--events", path);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "taken";
}

TEST(EventFileTest, growsByLines) {
  const tests::TempFolder folder;
  EventFile file("--events", folder / "x");
  EXPECT_TRUE(file.append("one"));
  EXPECT_EQ(readFile(folder / "x"), "one\n");
  EXPECT_TRUE(file.append("two"));
  EXPECT_EQ(readFile(folder / "x"), "one\ntwo\n");
  file.empty();
  EXPECT_EQ(readFile(folder / "x"), "");
  EXPECT_TRUE(file.append("three"));
  EXPECT_EQ(readFile(folder / "x"), "three\n");
}

/// A limit of the process stands for a disk on which a line has room only in part.
TEST(EventFileTest, takesBackAPartOfALineAndGoesOnWhenThereIsRoomAgain) {
  const tests::TempFolder folder;
  EventFile file("--events", folder / "x");
  ASSERT_TRUE(file.append("one"));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  rlimit small = before;
  small.rlim_cur = 10;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool written = file.append("a longer line");
  const std::string left = readFile(folder / "x");
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, handler);
  EXPECT_FALSE(written);
  EXPECT_EQ(left, "one\n");
  EXPECT_NE(file.cause(), "Success");
  EXPECT_TRUE(file.append("a longer line"));
  EXPECT_EQ(readFile(folder / "x"), "one\na longer line\n");
}

TEST(EventFileTest, saysWhyALineCouldNotBeWritten) {
  EventFile file("--events", "/dev/full");
  EXPECT_FALSE(file.append("one"));
  EXPECT_EQ(file.cause(), "No space left on device");
}

TEST(EventFileTest, refusesWhatCannotBeWrittenOrWouldHoldTheTestUp) {
  const tests::TempFolder folder;
  EXPECT_THAT(refusalOf(folder / "none/x"), AllOf(StartsWith("--events '"), HasSubstr("cannot be written: No such")));
  EXPECT_THAT(refusalOf(folder.path()), HasSubstr("Is a directory; name a file"));
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(refusalOf(folder / "pipe"), HasSubstr("is no regular file; name a file"));
}

}  // namespace
}  // namespace corvane::host
