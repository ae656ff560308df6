#include "host/explain/Explainer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/explain/SampleEvidence.h"

namespace corvane::host {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::SampleEvidence;

/// A write over LBAs 10 to 13 in the place of an older one, read back; block 11 is the one that will be wrong.
class ExplainerTest : public ::testing::Test {
 protected:
  ExplainerTest() {
    older = sample.write(10, 4, 20);
    before = sample.medium;
    newer = sample.write(10, 4, 60);
    read = sample.read(10, 4);
  }

  /// The read returned `drive` for block 11; `stays`: the medium holds it.
  Explanation explainAs(const std::vector<uint8_t>& drive, bool stays = true) {
    const std::vector<uint8_t> reference = sample.contentOf(newer, 11);
    if (stays) {
      sample.medium[11] = drive;
    }
    return explain(sample.found(11, drive, reference), others);
  }

  static std::string textOf(const Explanation& e) {
    std::string text;
    for (const std::string& sentence : e.sentences) {
      text += sentence + "\n";
    }
    return text;
  }

  SampleEvidence sample;
  JournalEntry older;
  JournalEntry newer;
  JournalEntry read;
  std::vector<std::vector<uint8_t>> before;
  std::vector<OtherDrive> others;
};

TEST_F(ExplainerTest, OldDataOfAWholeLostWrite) {
  sample.medium = before;
  const Explanation e = explainAs(before[11]);
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.read->number, read.number);
  EXPECT_EQ(e.expectedWrite->number, newer.number);
  EXPECT_EQ(e.observedWrite->number, older.number);
  EXPECT_EQ(e.reread, Reread::same);
  EXPECT_EQ(e.suspects.front(), FaultClass::lostWrite);
  const std::string text = textOf(e);
  EXPECT_THAT(text, HasSubstr("The read with command id 3 over LBAs 10 to 13 found LBA 11 wrong: " +
                              std::to_string(e.difference->bytes) + " of 512 bytes differ, the first is byte " +
                              std::to_string(e.difference->first) + "."));
  EXPECT_THAT(text, HasSubstr("The block says of itself: LBA 11, command id 1, sector 21 of the pool."));
  EXPECT_THAT(text, HasSubstr("It is old data of this LBA, written by the write with command id 1, 2 commands and "
                              "2.000 ms before that read."));
  EXPECT_THAT(text, HasSubstr("What decides the content is the write with command id 2 over LBAs 10 to 13, 1 command "
                              "and 1.000 ms before that read; it was acknowledged as good."));
  EXPECT_THAT(text, HasSubstr("Only one outcome was legal: the data of the write with command id 2."));
  EXPECT_THAT(text, HasSubstr("Of the 4 blocks of that command whose content is known, 0 are right after the test, 4 "
                              "hold old data, 0 zeros, 0 something else."));
  EXPECT_THAT(text, HasSubstr("Read again after the test, the block is still the same: it is so on the medium."));
  EXPECT_THAT(text, HasSubstr("What fits best is lost-write; it would look alike with "));
}

TEST_F(ExplainerTest, OldDataBehindAWritesBeginningIsATornWrite) {
  sample.medium[11] = before[11];
  sample.medium[12] = before[12];
  sample.medium[13] = before[13];
  const Explanation e = explainAs(before[11]);
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.suspects.front(), FaultClass::tornWrite);
}

TEST_F(ExplainerTest, OldDataThatIsGoneOnTheNextReadIsTheReadsFault) {
  const Explanation e = explainAs(before[11], false);
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.reread, Reread::asExpected);
  EXPECT_THAT(e.suspects, Contains(FaultClass::staleRead));
  EXPECT_THAT(e.suspects, Not(Contains(FaultClass::lostWrite)));
  EXPECT_THAT(textOf(e),
              HasSubstr("Read again after the test, the block is right: only that one look at it was wrong."));
}

TEST_F(ExplainerTest, OldDataAfterAPowerCutAccusesTheFlush) {
  sample.journal->happened(Incident::What::powerCut);
  EXPECT_EQ(explainAs(before[11]).suspects.front(), FaultClass::lyingFlush);
}

TEST_F(ExplainerTest, WhatTookAwayAWriteIsNamed) {
  using What = Incident::What;
  for (const auto& [what, lost] :
       {std::pair{What::connectionLost, "it was lost with the connection to the drive."},
        std::pair{What::reset, "it was lost in a reset."}, std::pair{What::powerCut, "it was lost in a power cut."}}) {
    SampleEvidence interrupted;
    const JournalEntry write = interrupted.issue(CommandKind::write, 10, 4, 5);
    interrupted.journal->happened(what);
    interrupted.journal->lostAll();
    interrupted.read(10, 4);
    std::vector<uint8_t> wrong = interrupted.contentOf(write, 11);
    wrong[100] ^= 1;
    interrupted.medium[11] = wrong;
    EXPECT_THAT(textOf(explain(interrupted.found(11, wrong, interrupted.contentOf(write, 11)), {})), HasSubstr(lost));
  }
}

TEST_F(ExplainerTest, WhatHappenedToTheDriveBetweenTheWriteAndTheReadIsTold) {
  EXPECT_THAT(textOf(explainAs(before[11])), Not(HasSubstr("Between the two")));
  const JournalEntry write = sample.write(10, 4, 9);
  sample.journal->happened(Incident::What::connectionLost);
  sample.journal->happened(Incident::What::reset);
  sample.journal->happened(Incident::What::reset);
  sample.read(10, 4);
  sample.journal->happened(Incident::What::powerCut);
  sample.medium[11].assign(SampleEvidence::sector, 0);
  EXPECT_THAT(textOf(explain(sample.found(11, sample.medium[11], sample.contentOf(write, 11)), {})),
              HasSubstr("\nBetween the two the connection to the drive was lost once, the drive was reset 2 times.\n"));
}

TEST_F(ExplainerTest, DataOfAnotherLba) {
  const Explanation e = explainAs(sample.contentOf(newer, 12));
  EXPECT_EQ(e.kind, FindingKind::otherLba);
  EXPECT_EQ(e.observedLba, 12U);
  EXPECT_EQ(e.suspects.front(), FaultClass::swappedBlock);
  EXPECT_THAT(textOf(e), HasSubstr("It is data that belongs on LBA 12, written by the write with command id 2"));
}

TEST_F(ExplainerTest, DataOfAnotherDrive) {
  SampleEvidence other;
  for (int i = 0; i < 6; ++i) {
    other.read(0, 1);
  }
  const JournalEntry& foreign = other.write(40, 2, 100);
  others = {{.name = "sim1", .journal = other.journal.get()}};
  std::vector<uint8_t> block = other.contentOf(foreign, 41);
  block[400] ^= 0xFF;  // not of this drive's pool
  const Explanation e = explainAs(block);
  EXPECT_EQ(e.kind, FindingKind::otherDrive);
  EXPECT_EQ(e.observedDrive, "sim1");
  EXPECT_EQ(e.suspects.front(), FaultClass::crossTalk);
  EXPECT_THAT(
      textOf(e),
      HasSubstr("It is data of another drive, sim1: LBA 41 of that drive, written by the write with command id 7."));
}

TEST_F(ExplainerTest, Zeros) {
  const Explanation e = explainAs(std::vector<uint8_t>(SampleEvidence::sector));
  EXPECT_EQ(e.kind, FindingKind::zeros);
  EXPECT_EQ(e.suspects.front(), FaultClass::zeroedBlock);
  EXPECT_THAT(textOf(e), HasSubstr("The block is all zeros and says nothing of itself.\nIt is a block of zeros.\n"));
}

TEST_F(ExplainerTest, TornBetweenTwoWrites) {
  std::vector<uint8_t> torn = sample.contentOf(newer, 11);
  std::copy(before[11].begin() + 256, before[11].end(), torn.begin() + 256);
  const Explanation e = explainAs(torn);
  EXPECT_EQ(e.kind, FindingKind::torn);
  EXPECT_EQ(e.observedWrite->number, newer.number);
  EXPECT_EQ(e.tailId, older.commandId);
  EXPECT_THAT(textOf(e), HasSubstr("It is torn at byte " + std::to_string(e.difference->first) +
                                   ": up to there it is of the write with command id 2, from there on of the command "
                                   "with id 1."));
}

TEST_F(ExplainerTest, TornTheOtherWayRound) {
  std::vector<uint8_t> torn = sample.contentOf(newer, 11);
  std::copy(before[11].begin(), before[11].begin() + 256, torn.begin());
  const Explanation e = explainAs(torn);
  EXPECT_EQ(e.kind, FindingKind::torn);
  EXPECT_EQ(e.observedWrite->number, older.number);
  EXPECT_EQ(e.tailId, newer.commandId);
}

TEST_F(ExplainerTest, TornWithZerosBehind) {
  std::vector<uint8_t> torn = sample.contentOf(newer, 11);
  std::fill(torn.begin() + 256, torn.end(), uint8_t{0});
  const Explanation e = explainAs(torn);
  EXPECT_EQ(e.kind, FindingKind::torn);
  EXPECT_FALSE(e.tailId);
  EXPECT_THAT(textOf(e), HasSubstr("from there on zeros."));
}

TEST_F(ExplainerTest, AFlippedBitOnTheMediumOrOnTheWay) {
  std::vector<uint8_t> flipped = sample.contentOf(newer, 11);
  flipped[100] ^= 0x10;
  EXPECT_EQ(explainAs(flipped, false).suspects.front(), FaultClass::bitFlipRead);
  const Explanation e = explainAs(flipped);
  EXPECT_EQ(e.kind, FindingKind::bitFlips);
  EXPECT_EQ(e.difference->first, 100U);
  EXPECT_EQ(e.suspects.front(), FaultClass::bitFlipRest);
  EXPECT_THAT(e.suspects, Not(Contains(FaultClass::bitFlipRead)));
  EXPECT_THAT(textOf(e), HasSubstr("It is the right data but for 1 flipped bit."));
}

TEST_F(ExplainerTest, TheSameSectorOfThePoolWithAnotherIdIsOldDataNotAFlippedBit) {
  const JournalEntry again = sample.write(10, 4, 60);
  sample.read(10, 4);
  const std::vector<uint8_t> reference = sample.contentOf(again, 11);
  const std::vector<uint8_t> old = sample.contentOf(newer, 11);
  ASSERT_TRUE(differenceOf(old, reference)->isFewBits());
  EXPECT_EQ(explain(sample.found(11, old, reference), {}).kind, FindingKind::oldData);
}

TEST_F(ExplainerTest, NothingThatTheTestWrote) {
  const Explanation e = explainAs(std::vector<uint8_t>(SampleEvidence::sector, 0x5A));
  EXPECT_EQ(e.kind, FindingKind::noise);
  EXPECT_THAT(textOf(e), HasSubstr("It is nothing that this test ever wrote."));
}

TEST_F(ExplainerTest, WhatWasThereBeforeTheTest) {
  const JournalEntry& first = sample.write(30, 1, 90);
  sample.read(30, 1);
  const std::vector<uint8_t> reference = sample.contentOf(first, 30);
  sample.medium[30].assign(SampleEvidence::sector, 0x5A);
  const Explanation e = explain(sample.found(30, sample.medium[30], reference), {});
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.suspects.front(), FaultClass::lostWrite);
  EXPECT_THAT(textOf(e),
              HasSubstr("It is nothing that this test wrote, so what was there before it, or what a zone reset "
                        "or an invalidation left."));
}

TEST_F(ExplainerTest, WhatAnInvalidationLeft) {
  sample.journal->happened(Incident::What::invalidation, 10, 14);
  const JournalEntry last = sample.write(10, 4, 90);
  sample.read(10, 4);
  const std::vector<uint8_t> reference = sample.contentOf(last, 11);
  sample.medium[11].assign(SampleEvidence::sector, 0x5A);
  const Explanation e = explain(sample.found(11, sample.medium[11], reference), {});
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.suspects.front(), FaultClass::lostWrite);
}

TEST_F(ExplainerTest, DataOfAnotherDriveWithTheSamePool) {
  SampleEvidence other;
  for (int i = 0; i < 6; ++i) {
    other.read(0, 1);
  }
  const JournalEntry& foreign = other.write(40, 2, 100);
  others = {{.name = "sim1", .journal = other.journal.get()}};
  EXPECT_EQ(explainAs(other.contentOf(foreign, 41)).kind, FindingKind::otherDrive);
}

TEST_F(ExplainerTest, DataUnderATrim) {
  const std::vector<uint8_t> written = sample.medium[11];
  sample.command(CommandKind::trim, 10, 4);
  sample.read(10, 4);
  sample.medium[11] = written;
  const Explanation e = explain(sample.found(11, written, std::vector<uint8_t>(SampleEvidence::sector)), {});
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.expectedWrite->kind, CommandKind::trim);
  EXPECT_EQ(e.suspects.front(), FaultClass::trimIgnored);
}

TEST_F(ExplainerTest, ZerosBehindATrimAccuseTheTrim) {
  sample.command(CommandKind::trim, 8, 2);
  sample.read(10, 4);
  const Explanation e = explainAs(std::vector<uint8_t>(SampleEvidence::sector));
  EXPECT_EQ(e.suspects.front(), FaultClass::trimTooFar);
}

TEST_F(ExplainerTest, ALaterWriteMakesReadingAgainWorthless) {
  const std::vector<uint8_t> reference = sample.contentOf(newer, 11);
  sample.found(11, before[11], reference);
  sample.write(11, 1, 99);
  sample.evidence.reread = sample.medium;
  const Explanation e = explain(sample.evidence, {});
  EXPECT_EQ(e.reread, Reread::overwritten);
  EXPECT_THAT(e.suspects, Contains(FaultClass::lostWrite));
  EXPECT_THAT(e.suspects, Contains(FaultClass::staleRead));
}

TEST_F(ExplainerTest, AWriterOlderThanTheJournalIsKnownByItsStamp) {
  for (int i = 0; i < 300; ++i) {
    sample.read(0, 1);
  }
  const JournalEntry last = sample.write(10, 4, 100);
  sample.read(10, 4);
  const std::vector<uint8_t> reference = sample.contentOf(last, 11);
  sample.medium[11] = before[11];
  const Explanation e = explain(sample.found(11, before[11], reference), {});
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_FALSE(e.observedWrite);
  EXPECT_THAT(textOf(e),
              HasSubstr("written by command id 1, which is older than the first command that is remembered."));
}

TEST_F(ExplainerTest, AVerifyNamesTheBlockThatDiffersWhenItIsRead) {
  sample.command(CommandKind::verify, 10, 4, 0, scsi_status::checkCondition);
  for (uint64_t lba = 10; lba < 14; ++lba) {
    const std::vector<uint8_t> block = sample.contentOf(newer, lba);
    sample.evidence.verifyData.insert(sample.evidence.verifyData.end(), block.begin(), block.end());
  }
  sample.evidence.verifyLba = 10;
  const Explanation alarm = explain(sample.found(10, {}, {}), {});
  EXPECT_EQ(alarm.kind, FindingKind::verifyAlarm);
  EXPECT_EQ(alarm.suspects.front(), FaultClass::verifyFalseAlarm);
  sample.medium[12][7] ^= 1;
  const Explanation e = explain(sample.found(10, {}, {}), {});
  EXPECT_EQ(e.kind, FindingKind::bitFlips);
  EXPECT_EQ(e.lba, 12U);
  EXPECT_EQ(e.difference->first, 7U);
}

TEST_F(ExplainerTest, AVerifyWhoseBlocksCannotAllBeSeenProvesNothing) {
  sample.command(CommandKind::verify, 10, 1, 0, scsi_status::checkCondition);
  sample.evidence.verifyData = sample.contentOf(newer, 10);
  sample.evidence.verifyLba = 10;
  sample.found(10, {}, {});
  sample.write(10, 1, 99);
  sample.evidence.reread = sample.medium;
  const Explanation e = explain(sample.evidence, {});
  EXPECT_EQ(e.kind, FindingKind::unknown);
  EXPECT_THAT(e.suspects, Contains(FaultClass::verifyFalseAlarm));
  EXPECT_THAT(e.suspects, Contains(FaultClass::bitFlipRest));
}

TEST_F(ExplainerTest, ASpliceNamesTheBlockThatCannotBeRead) {
  const JournalEntry spliced = sample.command(CommandKind::write, 10, 4, 90, scsi_status::aborted);
  sample.read(10, 4);
  sample.medium[12].clear();
  sample.evidence.agentStatus = vdl::status::writeSplice;
  const Explanation e = explain(sample.found(10, {}, {}), {});
  EXPECT_EQ(e.kind, FindingKind::writeSplice);
  EXPECT_EQ(e.lba, 12U);
  EXPECT_EQ(e.expectedWrite->number, spliced.number);
  ASSERT_EQ(e.legal.size(), 2U);
  EXPECT_EQ(e.legal[0].commandId, spliced.commandId);
  EXPECT_EQ(e.legal[1].commandId, newer.commandId);
  EXPECT_THAT(textOf(e), HasSubstr("it ended with status 0x40."));
}

TEST_F(ExplainerTest, ASpliceThatWasOverwrittenNamesNoBlock) {
  sample.command(CommandKind::write, 10, 4, 90, scsi_status::aborted);
  sample.read(10, 4);
  sample.evidence.agentStatus = vdl::status::writeSplice;
  sample.found(10, {}, {});
  sample.write(10, 4, 99);
  sample.evidence.reread = sample.medium;
  EXPECT_THAT(textOf(explain(sample.evidence, {})),
              HasSubstr("The read with command id 5 over LBAs 10 to 13 met a block that could not be read."));
}

TEST_F(ExplainerTest, AVerifyThatHadToFindADifferenceAndFoundNone) {
  sample.evidence.agentError =
      "Miscompare was expected from Verify command at LBA 0x000000000000000A Transfer Length 0x004";
  sample.command(CommandKind::verify, 10, 4);
  sample.evidence.verifyData.assign(4 * SampleEvidence::sector, 0);
  sample.evidence.verifyLba = 10;
  EXPECT_EQ(explain(sample.found(10, {}, {}), {}).kind, FindingKind::unknown);
  sample.medium[12].clear();
  const Explanation unreadable = explain(sample.found(10, {}, {}), {});
  EXPECT_EQ(unreadable.kind, FindingKind::unreadable);
  EXPECT_EQ(unreadable.lba, 12U);
  EXPECT_EQ(unreadable.suspects.front(), FaultClass::writeSplice);
  sample.journal->happened(Incident::What::invalidation, 10, 14);
  EXPECT_EQ(explain(sample.found(10, {}, {}), {}).kind, FindingKind::oldDataExpectedGone);
}

TEST_F(ExplainerTest, AnAtomicOrderFailure) {
  sample.evidence.agentStatus = vdl::status::atomicOrder;
  const Explanation e = explain(sample.found(11, {}, {}), {});
  EXPECT_EQ(e.kind, FindingKind::atomicOrder);
  EXPECT_EQ(e.suspects.front(), FaultClass::atomicTear);
}

TEST_F(ExplainerTest, OldDataOfAnInvalidatedBlock) {
  sample.evidence.agentError = "Data match on invalidated block at LBA 0x000000000000000B";
  const std::vector<uint8_t> same = sample.medium[11];
  const Explanation e = explain(sample.found(11, same, same), {});
  EXPECT_EQ(e.kind, FindingKind::oldDataExpectedGone);
  EXPECT_EQ(e.suspects, std::vector<FaultClass>{FaultClass::invalidateIgnored});
  EXPECT_THAT(textOf(e), HasSubstr("The range had been declared invalid, and its old data is still there."));
}

TEST_F(ExplainerTest, ATestWithoutStampsIsExplainedByItsSectors) {
  SampleEvidence plain;
  plain.evidence.embedded = false;
  const JournalEntry first = plain.write(10, 2, 20);
  const std::vector<std::vector<uint8_t>> old = plain.medium;
  const JournalEntry second = plain.write(10, 2, 60);
  plain.read(10, 2);
  const std::vector<uint8_t> reference = plain.contentOf(second, 11);
  plain.medium[11] = old[11];
  const Explanation e = explain(plain.found(11, old[11], reference), {});
  EXPECT_EQ(e.kind, FindingKind::oldData);
  EXPECT_EQ(e.observedWrite->number, first.number);
  EXPECT_THAT(textOf(e), HasSubstr("this test stamps no LBA and no command id into its data."));
}

TEST_F(ExplainerTest, ProtectionBytesAlone) {
  SampleEvidence withProtection(8);
  const JournalEntry write = withProtection.write(10, 2, 20);
  withProtection.read(10, 2);
  const std::vector<uint8_t> reference = withProtection.contentOf(write, 11);
  std::vector<uint8_t> drive = reference;
  drive[514] ^= 0x40;
  withProtection.medium[11] = drive;
  const Explanation e = explain(withProtection.found(11, drive, reference), {});
  EXPECT_EQ(e.kind, FindingKind::protectionBytes);
  EXPECT_EQ(e.suspects.front(), FaultClass::protectionDamage);
  EXPECT_THAT(textOf(e), HasSubstr("The data is right; 1 of its protection bytes are not."));
}

TEST_F(ExplainerTest, CollectsTheCommandsOfTheNeighbourhoodOldestFirst) {
  const Explanation e = explainAs(before[11]);
  ASSERT_EQ(e.commands.size(), 3U);
  EXPECT_EQ(e.commands.front().number, older.number);
  EXPECT_EQ(e.commands.back().number, read.number);
}

}  // namespace
}  // namespace corvane::host
