#include "host/cli/OutputFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/cli/UsageError.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using tests::readFile;
using tests::TempFolder;
using tests::writeFile;

template <typename Action>
std::string refusal(Action action) {
  try {
    action();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(OutputFilesTest, makesAFolderWithItsParentsAndLeavesNothingInIt) {
  const TempFolder folder;
  prepareOutputDirectory("--output", folder / "a/b");
  EXPECT_THAT(folder.content(), ElementsAre("a", "a/b"));
  prepareOutputDirectory("--output", folder / "a/b");
  EXPECT_THAT(folder.content(), ElementsAre("a", "a/b"));
}

TEST(OutputFilesTest, refusesAFolderThatIsAFile) {
  const TempFolder folder;
  const std::string file = folder / "file";
  writeFile(file, "x");
  for (const std::string& path : {file, file + "/below"}) {
    EXPECT_THAT(refusal([&] { prepareOutputDirectory("--output", path); }),
                AllOf(StartsWith("--output '" + path + "' cannot be created"), HasSubstr("name a folder")));
  }
  EXPECT_EQ(readFile(file), "x");
}

TEST(OutputFilesTest, checkingLeavesTheFileAsItIs) {
  const TempFolder folder;
  checkReplaceable("--json", folder / "new");
  EXPECT_THAT(folder.content(), IsEmpty());
  writeFile(folder / "old", "text");
  checkReplaceable("--json", folder / "old");
  EXPECT_EQ(readFile(folder / "old"), "text");
}

TEST(OutputFilesTest, refusesAFileThatCannotBeWritten) {
  const TempFolder folder;
  EXPECT_THAT(refusal([&] { checkReplaceable("--json", folder.path()); }), HasSubstr("is a folder; name a file"));
  EXPECT_THAT(refusal([&] { checkReplaceable("--json", folder / "none/x"); }),
              AllOf(StartsWith("--json '"), HasSubstr("cannot be written"), HasSubstr("a folder that exists")));
}

TEST(OutputFilesTest, replacesAFileAsAWhole) {
  const TempFolder folder;
  const std::string path = folder / "result.json";
  replaceFile("--json", path, "a longer text");
  replaceFile("--json", path, "short");
  EXPECT_EQ(readFile(path), "short");
  EXPECT_THAT(folder.content(), ElementsAre("result.json"));
}

TEST(OutputFilesTest, aFailedReplacementLeavesNoTemporaryFile) {
  const TempFolder folder;
  std::filesystem::create_directory(folder / "taken");
  writeFile(folder / "taken/file", "x");
  EXPECT_THAT(refusal([&] { replaceFile("--json", folder / "taken", "text"); }), HasSubstr("cannot be written"));
  EXPECT_THAT(folder.content(), ElementsAre("taken", "taken/file"));
}

TEST(OutputFilesTest, outputsAreDistinctWhateverTheyAreCalled) {
  const TempFolder folder;
  writeFile(folder / "drive", "x");
  std::filesystem::create_symlink(folder / "drive", folder / "link");
  const auto refusalOf = [&folder](const std::string& drive, const std::string& json, const std::string& events) {
    return refusal([&] { checkDistinct({drive}, {{"--json", json}, {"--events", events}}); });
  };
  EXPECT_EQ(refusalOf("", folder / "a", folder / "b"), "accepted");
  EXPECT_EQ(refusalOf(folder / "drive", folder / "a", ""), "accepted");
  EXPECT_THAT(refusalOf("", folder / "a", folder / "./a"), HasSubstr("a' is the file of --json too; give each"));
  EXPECT_THAT(refusalOf(folder / "drive", folder / "link", ""), HasSubstr("link' is the file of --drive too"));
  EXPECT_THAT(refusalOf(folder / "drive", "", folder / "drive"), StartsWith("--events '"));
}

TEST(OutputFilesTest, replacesNothingButRegularFiles) {
  EXPECT_THAT(refusal([] { checkReplaceable("--json", "/dev/null"); }),
              AllOf(StartsWith("--json '/dev/null' is no regular file"), HasSubstr("name a file")));
}

}  // namespace
}  // namespace corvane::host
