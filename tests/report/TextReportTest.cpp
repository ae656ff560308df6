#include "host/report/TextReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

using host::testing::sampleReport;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string plain(const std::string& sample) { return textReport(sampleReport(sample), {.colours = false}); }

TEST(TextReportTest, tellsAFinding) {
  const std::string text = plain("explained.json");
  EXPECT_THAT(text, StartsWith("Result: data failure, 1 finding\n"));
  for (const char* part : {"Finding 1, old-data: sim0, LBA 148 (0x94)\n", "holds what command 75 wrote",
                           "Replay: corvane replay explained.json", "Suspects, likeliest first: lost-write, stale-read",
                           "    - what command 121 wrote\n", "<- met it", "<- expected", "<- found",
                           "499 of 512 bytes differ (*)", "=======o", "A later read of the block: same"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(TextReportTest, marksTheBytesThatDiffer) {
  EXPECT_THAT(plain("explained.json"), HasSubstr("    0000  00 dc*73*00 6a*a2*57*3c*00 00 00 00 00 00 00 94"));
  EXPECT_THAT(plain("several-drives.json"), HasSubstr("1 of 512 bytes differ (*); rows that are equal are left out\n"));
}

TEST(TextReportTest, tellsADrive) {
  const std::string text = plain("clean.json");
  EXPECT_THAT(text, StartsWith("Result: clean\n"));
  for (const char* part : {"Drive sim0: clean\n", "  write        202        199\n", "one legal content", "90.00 %",
                           "not checkable: the write over it failed", "latency in us", "histogram",
                           "Repeat with:\n  corvane run --drive sim:128k --commands 900 --seed 3\n"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(TextReportTest, readsFromTheFilesBesideTheResult) {
  EXPECT_THAT(plain("lost-write"), AllOf(HasSubstr("places in the sequence"), HasSubstr("<- met it"),
                                         HasSubstr("<- expected"), HasSubstr("lost-write")));
}

TEST(TextReportTest, hasColoursOnlyWhereTheyAreWanted) {
  EXPECT_THAT(plain("explained.json"), Not(HasSubstr("\x1b")));
  const std::string coloured = textReport(sampleReport("explained.json"), {.colours = true});
  EXPECT_THAT(coloured, HasSubstr("\x1b[1;31m"));
  EXPECT_THAT(coloured, Not(HasSubstr("dc*")));
}

TEST(TextReportTest, controlCharactersOfTextsDoNotReachTheTerminal) {
  RunReport report = sampleReport("explained.json");
  const std::string bad = "\x1b[2Jx\r\n";
  report.resultFile = report.result.version = report.result.status = report.result.error = report.result.started = bad;
  report.result.repeat = report.result.warnings = {bad};
  DriveOfResult& drive = report.result.drives[0];
  drive.name = drive.address = drive.description = drive.status = drive.verdict = bad;
  drive.issued[0].name = drive.events[0].name = drive.latency[0].kind = drive.injections[0].what = bad;
  drive.checked->notCheckable[0].name = bad;
  FindingView& view = report.findings[0];
  view.finding.drive = view.finding.text = bad;
  view.finding.files = view.notes = {bad};
  Explanation& explanation = *view.finding.explanation;
  explanation.kind = explanation.reread = explanation.replay = explanation.legal[0].text = bad;
  explanation.suspects = explanation.sentences = {bad};
  view.commands[0].command.kind = view.commands[0].command.trouble = bad;
  view.history[0].bucket = bad;
  EXPECT_THAT(textReport(report, {.colours = false}), AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\r"))));
}

TEST(TextReportTest, isThereForEverySample) {
  for (const char* sample : {"missing-keys.json", "hostile.json", "unfinished.json", "several-drives.json"}) {
    EXPECT_THAT(plain(sample), StartsWith("Result: ")) << sample;
  }
}

}  // namespace
}  // namespace corvane::host::report
