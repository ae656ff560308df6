#include "host/report/RunFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/report/ReportError.h"
#include "tests/support/TempFolder.h"

namespace corvane::host::report {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using tests::TempFolder;
using tests::writeFile;

constexpr const char* result = R"({"version": "1", "drives": []})";

TEST(RunFolderTest, takesTheFileItself) {
  const TempFolder folder;
  writeFile(folder / "any.name", result);
  const RunFolder run(folder / "any.name");
  EXPECT_EQ(run.resultFile(), folder / "any.name");
  EXPECT_EQ(run.resultText(), result);
  EXPECT_EQ(run.folder(), folder.path());
}

TEST(RunFolderTest, prefersResultJson) {
  const TempFolder folder;
  writeFile(folder / "result.json", result);
  writeFile(folder / "other.json", result);
  EXPECT_EQ(RunFolder(folder.path()).resultFile(), folder / "result.json");
}

TEST(RunFolderTest, findsTheOneOtherResult) {
  const TempFolder folder;
  writeFile(folder / "good.json", result);
  writeFile(folder / "settings.json", "{}");
  writeFile(folder / "broken.json", "{");
  EXPECT_EQ(RunFolder(folder.path()).resultFile(), folder / "good.json");
}

TEST(RunFolderTest, asksWhichOfSeveral) {
  const TempFolder folder;
  writeFile(folder / "b.json", result);
  writeFile(folder / "a.json", result);
  EXPECT_THAT(
      [&] { RunFolder(folder.path()); },
      ThrowsMessage<ReportError>(AllOf(HasSubstr("several results: a.json, b.json"), HasSubstr("Give its path"))));
}

TEST(RunFolderTest, saysWhatIsNotThere) {
  const TempFolder folder;
  EXPECT_THAT([&] { RunFolder(folder.path()); }, ThrowsMessage<ReportError>(HasSubstr("holds no result of a run")));
  EXPECT_THAT([&] { RunFolder(folder / "none"); }, ThrowsMessage<ReportError>(HasSubstr("none' is not there")));
  EXPECT_THAT([&] { RunFolder("/dev/null"); }, ThrowsMessage<ReportError>(HasSubstr("cannot be read as a file")));
}

TEST(RunFolderTest, findsFilesBesideTheResultFirst) {
  const TempFolder folder;
  std::filesystem::create_directory(folder / "out");
  writeFile(folder / "result.json", result);
  writeFile(folder / "moved.bin", "here");
  writeFile(folder / "out/below.bin", "below");
  const RunFolder run(folder.path());
  std::string problem;
  EXPECT_EQ(run.read("elsewhere/moved.bin", 10, problem), "here");
  EXPECT_EQ(run.read("out/below.bin", 10, problem), "below");
  EXPECT_EQ(problem, "");
  EXPECT_FALSE(run.read("gone.bin", 10, problem));
  EXPECT_EQ(problem, "'gone.bin' is not there any more");
}

TEST(RunFolderTest, readsNoMoreThanItIsAsked) {
  const TempFolder folder;
  writeFile(folder / "result.json", result);
  writeFile(folder / "long.bin", "12345");
  std::string problem;
  EXPECT_TRUE(RunFolder(folder.path()).read("long.bin", 5, problem));
  EXPECT_FALSE(RunFolder(folder.path()).read("long.bin", 4, problem));
  EXPECT_THAT(problem, HasSubstr("longer than 4 bytes"));
}

TEST(EvidenceFilesTest, areSortedByEnding) {
  const EvidenceFiles files = evidenceFiles({"a_drive_x.bin.001", "a_trace_x.txt.000", "a_reference_x.bin"});
  EXPECT_EQ(files.trace, "a_trace_x.txt.000");
  EXPECT_EQ(files.drive, "a_drive_x.bin.001");
  EXPECT_EQ(files.reference, "a_reference_x.bin");
}

TEST(EvidenceFilesTest, foreignFilesAreLeftOut) {
  const EvidenceFiles files = evidenceFiles({"x.log", "bin", "a.txt.", "a.txt.0x"});
  EXPECT_EQ(files.trace + files.drive + files.reference, "");
}

}  // namespace
}  // namespace corvane::host::report
