#include "host/cli/RunSummary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/SampleRun.h"

namespace corvane::host {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::SampleRun;

TEST(RunSummaryTest, givesEachDriveItsVerdict) {
  const SampleRun sample;
  const std::string text = summaryText(sample.settings, sample.result);
  EXPECT_THAT(text, HasSubstr("Drive sim0: clean\n"));
  EXPECT_THAT(text, HasSubstr("Drive b.img: DATA FAILURE: Miscompare Detected at LBA 0x1\n"));
}

TEST(RunSummaryTest, countsCommandsByKindAndGivesRates) {
  const SampleRun sample;
  const std::string text = summaryText(sample.settings, sample.result);
  EXPECT_THAT(text, HasSubstr("commands    100 (write 60, trim 3, read 37)\n"));
  EXPECT_THAT(text, HasSubstr("written     4.00 MB, 2.0 MB/s\n"));
  EXPECT_THAT(text, HasSubstr("compared    3.00 MB, 1.5 MB/s\n"));
  EXPECT_THAT(text, HasSubstr("trimmed     24 blocks\n"));
  EXPECT_THAT(text, HasSubstr("events      resets 2, zone resets 5, invalidations 6\n"));
}

TEST(RunSummaryTest, saysWhatTheComparedBlocksWereWorth) {
  SampleRun sample;
  const std::string text = summaryText(sample.settings, sample.result);
  EXPECT_THAT(text, HasSubstr("checked     1,690 blocks against one content, 25 against one of 2 to 4\n"));
  EXPECT_THAT(text, HasSubstr("not checked 9 blocks, 7 of them: its zone was reset\n"));
  CheckedBlocks& checked = sample.result.drives[0].totals.checked;
  checked.severalOutcomes[4] = 0;
  checked.notCheckable[static_cast<size_t>(Uncheckable::probe)] = 0;
  const std::string plainer = summaryText(sample.settings, sample.result);
  EXPECT_THAT(plainer, HasSubstr("1,690 blocks against one content, 20 against one of 2\n"));
  EXPECT_THAT(plainer, HasSubstr("not checked 7 blocks, its zone was reset\n"));
}

TEST(RunSummaryTest, saysNothingOfBlocksThatWereNotLookedAt) {
  SampleRun sample;
  sample.result.drives[0].totals.checked = {.oneOutcome = 3};
  const std::string text = summaryText(sample.settings, sample.result);
  EXPECT_THAT(text, HasSubstr("checked     3 blocks against one content\n"));
  EXPECT_THAT(text, Not(HasSubstr("not checked")));
  sample.result.drives[0].totals.checked = {};
  EXPECT_THAT(summaryText(sample.settings, sample.result), Not(HasSubstr("against one content")));
}

TEST(RunSummaryTest, listsTheFilesOfAFailure) {
  const SampleRun sample;
  EXPECT_THAT(summaryText(sample.settings, sample.result),
              HasSubstr("files left\n    out/trace.txt\n    out/drive.bin\n    out/reference.bin\n"));
}

TEST(RunSummaryTest, endsWithTheRepeatingCommandAndTheResult) {
  const SampleRun sample;
  EXPECT_THAT(
      summaryText(sample.settings, sample.result),
      EndsWith("Repeat with:\n  corvane run --drive sim:1g --drive file:b.img --commands 100 --seed 42 --output "
               "out\nRun it to the finding again with:\n  corvane replay out/result.json\nResult: data failure (exit "
               "status 1)\n"));
}

TEST(RunSummaryTest, saysWhenNothingWasChecked) {
  SampleRun sample;
  sample.result.drives.resize(1);
  EXPECT_THAT(summaryText(sample.settings, sample.result), Not(HasSubstr("nothing was read back")));
  sample.result.drives[0].totals.blocksCompared = 0;
  EXPECT_THAT(summaryText(sample.settings, sample.result), HasSubstr("nothing was read back yet"));
}

TEST(RunSummaryTest, saysWhenATestWasStopped) {
  SampleRun sample;
  EXPECT_THAT(summaryText(sample.settings, sample.result), Not(HasSubstr("Stopped before its end")));
  sample.result.stopped = true;
  EXPECT_THAT(summaryText(sample.settings, sample.result), HasSubstr("Stopped before its end"));
}

TEST(RunSummaryTest, namesEachResultWithItsExitStatus) {
  EXPECT_EQ(resultLine(RunStatus::clean), "Result: clean, nothing found");
  EXPECT_EQ(resultLine(RunStatus::dataFailure), "Result: data failure (exit status 1)");
  EXPECT_EQ(resultLine(RunStatus::configuration), "Result: configuration error (exit status 2)");
  EXPECT_EQ(resultLine(RunStatus::drive), "Result: drive error (exit status 3)");
  EXPECT_EQ(resultLine(RunStatus::internal), "Result: internal error (exit status 4)");
}

TEST(RunSummaryTest, aVerdictStaysOnOneLine) {
  DriveResult drive;
  drive.status = RunStatus::drive;
  EXPECT_EQ(verdictText(drive), "DRIVE ERROR");
  drive.error = "gone\nfor good";
  EXPECT_EQ(verdictText(drive), "DRIVE ERROR: gone?for good");
}

}  // namespace
}  // namespace corvane::host
