#include "host/run/CommandJournal.h"

#include <gtest/gtest.h>

#include "tests/run/ManualClock.h"

namespace corvane::host {
namespace {

using testing::ManualClock;

class CommandJournalTest : public ::testing::Test {
 protected:
  void issue(CommandKind kind, uint32_t tag, uint64_t lba = 0, uint32_t blocks = 1) {
    DriveCommand command;
    command.kind = kind;
    command.tag = tag;
    command.lba = lba;
    command.blocks = blocks;
    journal.issued(command, 7, false);
    clock.pause(10);
  }

  ManualClock clock;
  CommandJournal journal{4, 8, clock};
};

TEST_F(CommandJournalTest, NumbersCommandsAndCountsTheAgentsIdsWithoutFlushes) {
  issue(CommandKind::write, 0, 5, 3);
  issue(CommandKind::syncCache, 1);
  issue(CommandKind::read, 2, 5, 3);
  EXPECT_EQ(journal.issuedCount(), 3U);
  EXPECT_EQ(journal.byNumber(1)->commandId, 1U);
  EXPECT_EQ(journal.byNumber(1)->bucket, 7U);
  EXPECT_EQ(journal.byNumber(2)->commandId, 0U);
  EXPECT_EQ(journal.byNumber(3)->commandId, 2U);
  EXPECT_EQ(journal.byCommandId(2)->number, 3U);
  EXPECT_EQ(journal.byCommandId(3), nullptr);
  EXPECT_EQ(journal.byCommandId(0), nullptr);
  EXPECT_EQ(journal.byNumber(0), nullptr);
  EXPECT_EQ(journal.byNumber(4), nullptr);
}

TEST_F(CommandJournalTest, TakesTheTimeOfAnIssueForAnEndThatCameRightAfterIt) {
  issue(CommandKind::write, 0);
  issue(CommandKind::write, 1);
  EXPECT_EQ(journal.looks(), 2U);
  journal.finished(0, scsi_status::good, true);
  EXPECT_EQ(journal.looks(), 2U);
  EXPECT_EQ(journal.byNumber(1)->finishedUs, 10U);
  journal.finished(1, scsi_status::good);
  EXPECT_EQ(journal.looks(), 3U);
  EXPECT_EQ(journal.byNumber(2)->finishedUs, 20U);
  EXPECT_EQ(journal.latestUs(), 20U);
}

TEST_F(CommandJournalTest, SparesNoLookAtAClockThatRunsByTheLook) {
  struct CountedClock final : HostClock {
    uint64_t steadyUs() override { return ++us; }
    bool runsByItself() const override { return false; }
    uint64_t us = 0;
  } counted;
  CommandJournal other(4, 8, counted);
  DriveCommand command;
  other.issued(command, 0, false);
  other.finished(0, scsi_status::good, true);
  EXPECT_EQ(other.looks(), 2U);
  EXPECT_EQ(other.byNumber(1)->finishedUs, 2U);
}

TEST_F(CommandJournalTest, KeepsTimesAndEndings) {
  issue(CommandKind::write, 0);
  issue(CommandKind::read, 1);
  journal.finished(0, scsi_status::good);
  EXPECT_EQ(journal.byNumber(1)->issuedUs, 0U);
  EXPECT_EQ(journal.byNumber(1)->finishedUs, 20U);
  EXPECT_TRUE(journal.byNumber(1)->endedWell());
  EXPECT_EQ(journal.byNumber(2)->end, JournalEntry::End::outstanding);
  journal.lostAll();
  EXPECT_EQ(journal.byNumber(2)->end, JournalEntry::End::lost);
  EXPECT_FALSE(journal.byNumber(2)->endedWell());
  journal.finished(1, scsi_status::good);
  EXPECT_EQ(journal.byNumber(2)->end, JournalEntry::End::lost) << "nobody waits for it any more";
}

TEST_F(CommandJournalTest, ForgetsTheOldestCommands) {
  for (uint32_t i = 0; i < 6; ++i) {
    issue(CommandKind::write, i);
  }
  EXPECT_EQ(journal.oldestNumber(), 3U);
  EXPECT_EQ(journal.byNumber(2), nullptr);
  EXPECT_EQ(journal.byCommandId(2), nullptr);
  EXPECT_EQ(journal.byNumber(6)->commandId, 6U);
  journal.finished(0, scsi_status::good);
  EXPECT_EQ(journal.latencies()[static_cast<size_t>(CommandKind::write)].count(), 1U) << "its time still counts";
  EXPECT_EQ(journal.byNumber(5)->end, JournalEntry::End::outstanding) << "the place is another command's by now";
}

TEST_F(CommandJournalTest, MeasuresEachKind) {
  issue(CommandKind::write, 0);
  issue(CommandKind::trim, 1);
  journal.finished(0, scsi_status::good);
  journal.finished(1, scsi_status::good);
  EXPECT_EQ(journal.latencies()[static_cast<size_t>(CommandKind::write)].maxUs(), 20U);
  EXPECT_EQ(journal.latencies()[static_cast<size_t>(CommandKind::trim)].maxUs(), 10U);
  EXPECT_EQ(journal.latencies()[static_cast<size_t>(CommandKind::read)].count(), 0U);
}

TEST_F(CommandJournalTest, KeepsTheLatestIncidentsOldestFirst) {
  EXPECT_TRUE(journal.incidents().empty());
  issue(CommandKind::write, 0);
  for (uint64_t i = 0; i < 300; ++i) {
    journal.happened(Incident::What::zoneReset, i, i + 1);
  }
  journal.happened(Incident::What::powerCut);
  const std::vector<Incident> incidents = journal.incidents();
  ASSERT_EQ(incidents.size(), 256U);
  EXPECT_EQ(incidents.front().firstLba, 45U);
  EXPECT_EQ(incidents.back().what, Incident::What::powerCut);
  EXPECT_EQ(incidents.back().afterCommand, 1U);
}

TEST(JournalEntryTest, CoversEveryOtherBlockWithAStepOfTwo) {
  JournalEntry entry;
  entry.lba = 10;
  entry.blocks = 3;
  entry.lbaStep = 2;
  EXPECT_EQ(entry.endLba(), 15U);
  EXPECT_TRUE(entry.covers(14));
  EXPECT_FALSE(entry.covers(13));
  EXPECT_FALSE(entry.covers(16));
  EXPECT_FALSE(entry.covers(9));
}

}  // namespace
}  // namespace corvane::host
