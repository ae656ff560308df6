#include "host/run/FindingEvidence.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/run/ManualClock.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::ManualClock;

class RereadRangeTest : public ::testing::Test {
 protected:
  void issue(CommandKind kind, uint64_t lba, uint32_t blocks, bool preRead = false) {
    DriveCommand command;
    command.kind = kind;
    command.lba = lba;
    command.blocks = blocks;
    journal.issued(command, 0, preRead);
  }
  ManualClock clock;
  CommandJournal journal{64, 1, clock};
};

TEST_F(RereadRangeTest, IsTheNewestChangeAndLookAndSomeBlocksMore) {
  issue(CommandKind::write, 100, 300);
  issue(CommandKind::write, 195, 10);
  issue(CommandKind::read, 190, 8);
  issue(CommandKind::read, 150, 100, true);
  issue(CommandKind::trim, 500, 8);
  const RereadRange range = rereadRange(journal, 196, 0, 10'000);
  EXPECT_EQ(range.firstLba, 190U - 16);
  EXPECT_EQ(range.endLba, 205U + 16);
}

TEST_F(RereadRangeTest, StaysWithinTheTestAndWithinReason) {
  issue(CommandKind::write, 5000, 4000);
  issue(CommandKind::read, 5000, 4000);
  EXPECT_EQ(rereadRange(journal, 7000, 0, 10'000).firstLba, 7000U - 1024);
  EXPECT_EQ(rereadRange(journal, 7000, 0, 10'000).endLba, 7000U + 1024);
  EXPECT_EQ(rereadRange(journal, 3, 2, 8).firstLba, 2U);
  EXPECT_EQ(rereadRange(journal, 3, 2, 8).endLba, 8U);
}

TEST(FindingEvidenceTest, ReadsTheAgentsFiles) {
  const tests::TempFolder folder;
  const std::string report = folder.path() + "/trace.txt";
  std::ofstream(report) << "Dump of all commands\n\n"
                           "    12  8           0x07  Write_Issued        0x01\n"
                           "    25  42                Miscompare          0x00000000000001F4   drive  0x000001\n"
                           "                               reference  0x000002\n"
                           "\nContext History for lba 0x1f4:\n"
                           "EventType   CmdID\n"
                           "write       8\n"
                           "\nDump of the full command sequence:\n\n"
                           "    12  8           0x07  Write_Issued        0x01\n";
  const std::string drive = folder.path() + "/drive.bin";
  const std::string reference = folder.path() + "/reference.bin";
  std::ofstream(drive) << "ab";
  std::ofstream(reference) << "cd";
  FindingEvidence evidence;
  readAgentFiles(evidence, {report}, {drive, reference});
  EXPECT_EQ(evidence.readId, 42U);
  EXPECT_EQ(evidence.history, "Context History for lba 0x1f4:\nEventType   CmdID\nwrite       8\n");
  EXPECT_EQ(evidence.driveBlock, (std::vector<uint8_t>{'a', 'b'}));
  EXPECT_EQ(evidence.referenceBlock, (std::vector<uint8_t>{'c', 'd'}));
}

TEST(FindingEvidenceTest, DoesWithoutFilesThatAreNotThere) {
  FindingEvidence evidence;
  readAgentFiles(evidence, {"/nowhere/trace.txt"}, {"/nowhere/drive.bin"});
  EXPECT_FALSE(evidence.readId);
  EXPECT_TRUE(evidence.history.empty());
  EXPECT_TRUE(evidence.driveBlock.empty());
}

TEST(FindingEvidenceTest, KnowsWhichBlocksWereReadAgain) {
  FindingEvidence evidence;
  evidence.rereadFirst = 10;
  evidence.reread = {{1}, {}};
  EXPECT_EQ(evidence.rereadOf(9), nullptr);
  EXPECT_EQ(evidence.rereadOf(10)->size(), 1U);
  EXPECT_TRUE(evidence.rereadOf(11)->empty());
  EXPECT_EQ(evidence.rereadOf(12), nullptr);
}

}  // namespace
}  // namespace corvane::host
