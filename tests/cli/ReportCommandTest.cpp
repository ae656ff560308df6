#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using testing::ProgramEnd;
using testing::runCorvane;
using ::testing::StartsWith;
using tests::readFile;
using tests::TempFolder;
using tests::writeFile;

constexpr const char* document =
    R"({"version": "1", "status": "clean", "drives": [{"name": "sim0", "status": "clean"}], "findings": []})";

TEST(ReportCommandTest, makesAPageOfARunWithAFinding) {
  const TempFolder folder;
  const ProgramEnd run = runCorvane(folder, {"run", "--drive", "sim:16m", "--commands", "20000", "--seed", "3",
                                             "--fault", "lost-write:at=command:1000", "--output", "out"});
  ASSERT_EQ(run.status, 1);
  const ProgramEnd end = runCorvane(folder, {"report", "out"});
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.err, "");
  EXPECT_EQ(end.out, "Report: out/report.html\n");
  EXPECT_THAT(readFile(folder / "out/report.html"), StartsWith("<!DOCTYPE html>"));
}

TEST(ReportCommandTest, printsATextWithoutColours) {
  const TempFolder folder;
  writeFile(folder / "result.json", document);
  const ProgramEnd end = runCorvane(folder, {"report", "result.json", "--text"});
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.out, StartsWith("Result: clean\n"));
  EXPECT_EQ(end.out.find('\x1b'), std::string::npos);
  EXPECT_EQ(folder.content().size(), 1U);
}

TEST(ReportCommandTest, writesThePageWhereItIsAsked) {
  const TempFolder folder;
  writeFile(folder / "result.json", document);
  const ProgramEnd end = runCorvane(folder, {"report", ".", "--output", "page.html"});
  EXPECT_EQ(end.out, "Report: page.html\n");
  EXPECT_TRUE(std::filesystem::exists(folder / "page.html"));
}

TEST(ReportCommandTest, refusesToReplaceWhatItIsMadeOf) {
  const TempFolder folder;
  writeFile(folder / "result.json", document);
  const ProgramEnd end = runCorvane(folder, {"report", ".", "--output", "./result.json"});
  EXPECT_EQ(end.status, 2);
  EXPECT_THAT(end.err, HasSubstr("--output './result.json' is what the report is made of"));
  EXPECT_EQ(readFile(folder / "result.json"), document);
}

TEST(ReportCommandTest, aWrongResultIsRefusedInOneLine) {
  const TempFolder folder;
  writeFile(folder / "result.json", R"({"version": "1", "status": "clean", "drives": [7], "findings": []})");
  const ProgramEnd end = runCorvane(folder, {"report", "result.json"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.err, "corvane: 'result.json': key 'drives[0]' is 7; an object was expected there\n");
  EXPECT_EQ(folder.content().size(), 1U);
}

}  // namespace
}  // namespace corvane::host
