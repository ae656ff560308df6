#include "host/report/FindingView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

using host::testing::sampleJson;
using host::testing::samplePath;
using host::testing::sampleReport;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::Json;
using tests::TempFolder;

std::vector<uint64_t> idsOf(const FindingView& view, bool ShownCommand::*mark) {
  std::vector<uint64_t> ids;
  for (const ShownCommand& shown : view.commands) {
    if (shown.*mark) {
      ids.push_back(shown.command.id.value_or(0));
    }
  }
  return ids;
}

TEST(FindingViewTest, showsWhatTheRunRecorded) {
  const RunReport report = sampleReport("explained.json");
  const FindingView& view = report.findings.at(0);
  EXPECT_EQ(view.lba, 148U);
  EXPECT_TRUE(view.timed);
  EXPECT_FALSE(view.readIsGuessed);
  EXPECT_EQ(view.commands.size(), 21U);
  EXPECT_THAT(idsOf(view, &ShownCommand::failingRead), ElementsAre(268));
  EXPECT_THAT(idsOf(view, &ShownCommand::expectedWrite), ElementsAre(121));
  EXPECT_THAT(idsOf(view, &ShownCommand::observedWrite), ElementsAre(75));
  EXPECT_EQ(view.differing.size(), 499U);
  EXPECT_EQ(view.history.size(), 2U);
  EXPECT_THAT(view.notes, IsEmpty());
}

TEST(FindingViewTest, showsTheSameFromTheFilesBesideTheResult) {
  const RunReport report = sampleReport("lost-write");
  const FindingView& view = report.findings.at(0);
  EXPECT_EQ(view.lba, 148U);
  EXPECT_FALSE(view.timed);
  EXPECT_FALSE(view.readIsGuessed);
  EXPECT_THAT(idsOf(view, &ShownCommand::failingRead), ElementsAre(268));
  EXPECT_THAT(idsOf(view, &ShownCommand::expectedWrite), ElementsAre(121));
  EXPECT_THAT(idsOf(view, &ShownCommand::observedWrite), ElementsAre(75));
  EXPECT_EQ(view.observed.commandId, 75U);
  EXPECT_EQ(view.expected.commandId, 121U);
  EXPECT_EQ(view.differing.size(), 499U);
  EXPECT_EQ(view.history.size(), 2U);
  EXPECT_THAT(view.notes, IsEmpty());
}

TEST(FindingViewTest, commandsThatTheRecordLacksArePutInTheirPlace) {
  const TempFolder folder;
  Json document = sampleJson("explained.json");
  Json& explanation = document["findings"][0]["explanation"];
  const auto number = explanation["expectedWrite"]["number"];
  Json& commands = explanation["commands"];
  for (size_t i = 0; i < commands.size(); ++i) {
    if (commands[i]["number"] == number) {
      commands.erase(i);
    }
  }
  ASSERT_EQ(commands.size(), 20U);
  tests::writeFile(folder / "result.json", document.dump());
  const RunReport report = readRun(RunFolder(folder.path()));
  const FindingView& view = report.findings.at(0);
  ASSERT_EQ(view.commands.size(), 21U);
  EXPECT_THAT(idsOf(view, &ShownCommand::expectedWrite), ElementsAre(121));
  EXPECT_TRUE(std::is_sorted(view.commands.begin(), view.commands.end(),
                             [](const auto& a, const auto& b) { return a.command.issued < b.command.issued; }));
}

TEST(FindingViewTest, missingFilesAreNoted) {
  const TempFolder folder;
  std::filesystem::copy(samplePath("lost-write/result.json"), folder / "result.json");
  const RunReport report = readRun(RunFolder(folder.path()));
  const FindingView& view = report.findings.at(0);
  EXPECT_THAT(view.commands, IsEmpty());
  EXPECT_THAT(view.driveData, IsEmpty());
  EXPECT_THAT(view.notes, ElementsAre(HasSubstr("datacompare_drive_sim0.bin' is not there any more"),
                                      HasSubstr("datacompare_reference_sim0.bin' is not there any more"),
                                      HasSubstr("No command sequence: 'lost-write/datacompare_trace_sim0.txt'")));
}

TEST(FindingViewTest, linesThatCannotBeReadAreNoted) {
  const TempFolder folder;
  std::filesystem::copy(samplePath("lost-write"), folder.path());
  tests::writeFile(folder / "datacompare_trace_sim0.txt",
                   tests::readFile(folder / "datacompare_trace_sim0.txt") + "rubbish\n");
  const RunReport report = readRun(RunFolder(folder.path()));
  EXPECT_THAT(report.findings.at(0).notes, ElementsAre(HasSubstr("1 line could not be read: 565")));
}

TEST(FindingViewTest, withoutAMiscompareInTheSequenceTheLastReadIsMarked) {
  const TempFolder folder;
  std::filesystem::copy(samplePath("lost-write"), folder.path());
  std::string text = tests::readFile(folder / "datacompare_trace_sim0.txt");
  for (size_t at = 0; (at = text.find("268               Miscompare")) != std::string::npos;) {
    text.replace(at, 3, "999");
  }
  tests::writeFile(folder / "datacompare_trace_sim0.txt", text);
  const RunReport report = readRun(RunFolder(folder.path()));
  const FindingView& view = report.findings.at(0);
  EXPECT_TRUE(view.readIsGuessed);
  EXPECT_THAT(idsOf(view, &ShownCommand::failingRead), ElementsAre(268));
}

TEST(FindingViewTest, emptyDumpsAreNoBytes) {
  const TempFolder folder;
  std::filesystem::copy(samplePath("lost-write"), folder.path());
  tests::writeFile(folder / "datacompare_drive_sim0.bin", "");
  const RunReport report = readRun(RunFolder(folder.path()));
  EXPECT_THAT(report.findings.at(0).driveData, IsEmpty());
  EXPECT_EQ(report.findings.at(0).referenceData.size(), 512U);
  EXPECT_THAT(report.findings.at(0).differing, IsEmpty());
}

}  // namespace
}  // namespace corvane::host::report
