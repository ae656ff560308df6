#include "host/cli/NewPaths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tests::readFile;
using tests::TempFolder;
using tests::writeFile;

TEST(NewPathsTest, removesWhatWasMadeSince) {
  const TempFolder folder;
  {
    NewPaths made;
    made.watch(folder / "a/b");
    made.watch(folder / "file");
    std::filesystem::create_directories(folder / "a/b");
    writeFile(folder / "file", "x");
  }
  EXPECT_THAT(folder.content(), IsEmpty());
}

TEST(NewPathsTest, neverTouchesWhatWasThere) {
  const TempFolder folder;
  writeFile(folder / "file", "x");
  std::filesystem::create_directory(folder / "empty");
  {
    NewPaths made;
    made.watch(folder / "file");
    made.watch(folder / "empty/");
    made.watchDrive("file:" + (folder / "file") + ",size=1m");
  }
  EXPECT_EQ(readFile(folder / "file"), "x");
  EXPECT_THAT(folder.content(), ElementsAre("empty", "file"));
}

TEST(NewPathsTest, leavesAFolderThatHasSomethingInIt) {
  const TempFolder folder;
  {
    NewPaths made;
    made.watch(folder / "a");
    std::filesystem::create_directory(folder / "a");
    writeFile(folder / "a/report", "x");
  }
  EXPECT_THAT(folder.content(), ElementsAre("a", "a/report"));
}

TEST(NewPathsTest, leavesEverythingWhenKept) {
  const TempFolder folder;
  {
    NewPaths made;
    made.watch(folder / "file");
    writeFile(folder / "file", "x");
    made.keep();
  }
  EXPECT_THAT(folder.content(), ElementsAre("file"));
}

TEST(NewPathsTest, knowsTheFileBehindADriveAddress) {
  const TempFolder folder;
  {
    NewPaths made;
    made.watchDrive("file:" + (folder / "d.img") + ",size=1m");
    made.watchDrive("sim:1g");
    made.watchDrive("nonsense");
    writeFile(folder / "d.img", "x");
  }
  EXPECT_THAT(folder.content(), IsEmpty());
}

}  // namespace
}  // namespace corvane::host
