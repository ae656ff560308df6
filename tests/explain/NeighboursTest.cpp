#include "host/explain/Neighbours.h"

#include <gtest/gtest.h>

#include "tests/explain/SampleEvidence.h"

namespace corvane::host {
namespace {

using testing::SampleEvidence;
using State = NeighbourBlock::State;

NeighbourBlock neighbourAt(SampleEvidence& sample, uint64_t lba) {
  sample.found(0, {}, {});
  return neighbours(sample.evidence, WrittenData(sample.evidence)).at(lba);
}

TEST(NeighboursTest, KnowsWhatIsAsExpected) {
  SampleEvidence sample;
  const uint64_t id = sample.write(4, 2, 9).commandId;
  sample.read(4, 2);
  EXPECT_EQ(neighbourAt(sample, 5).state, State::expected);
  EXPECT_EQ(neighbourAt(sample, 5).commandId, id);
  EXPECT_EQ(neighbourAt(sample, 6).state, State::unknown) << "never written";
}

TEST(NeighboursTest, KnowsOldDataZerosAndOtherData) {
  SampleEvidence sample;
  const uint64_t old = sample.write(4, 3, 9).commandId;
  const std::vector<std::vector<uint8_t>> before = sample.medium;
  const JournalEntry& other = sample.write(20, 1, 50);
  sample.write(4, 3, 30);
  sample.medium[4] = before[4];
  sample.medium[5] = std::vector<uint8_t>(SampleEvidence::sector);
  sample.medium[6] = sample.medium[20];
  sample.read(4, 3);
  EXPECT_EQ(neighbourAt(sample, 4).state, State::old);
  EXPECT_EQ(neighbourAt(sample, 4).commandId, old);
  EXPECT_EQ(neighbourAt(sample, 5).state, State::zeros);
  EXPECT_EQ(neighbourAt(sample, 6).state, State::other);
  EXPECT_EQ(neighbourAt(sample, 6).commandId, other.commandId);
}

TEST(NeighboursTest, JudgesNothingWhoseLastCommandDidNotEndWell) {
  SampleEvidence sample;
  sample.write(4, 1, 9);
  sample.command(CommandKind::write, 4, 1, 30, scsi_status::aborted);
  sample.read(4, 1);
  EXPECT_EQ(neighbourAt(sample, 4).state, State::unknown);
}

TEST(NeighboursTest, JudgesNothingWhoseContentWasResetOrDeclaredInvalid) {
  SampleEvidence sample;
  sample.write(4, 1, 9);
  sample.journal->happened(Incident::What::zoneReset, 4, 8);
  sample.read(4, 1);
  EXPECT_EQ(neighbourAt(sample, 4).state, State::unknown);
}

TEST(NeighboursTest, KnowsAnUnreadableBlock) {
  SampleEvidence sample;
  sample.write(4, 1, 9);
  sample.medium[4].clear();
  sample.read(4, 1);
  EXPECT_EQ(neighbourAt(sample, 4).state, State::unreadable);
}

}  // namespace
}  // namespace corvane::host
