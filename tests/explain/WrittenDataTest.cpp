#include "host/explain/WrittenData.h"

#include <gtest/gtest.h>

#include "host/explain/BlockStamp.h"
#include "tests/explain/SampleEvidence.h"

namespace corvane::host {
namespace {

using testing::SampleEvidence;

TEST(WrittenDataTest, RebuildsAWrittenBlock) {
  SampleEvidence sample;
  const JournalEntry& write = sample.write(10, 4, 20);
  const std::vector<uint8_t> content = sample.contentOf(write, 12);
  EXPECT_EQ(*stampOf(content), (BlockStamp{.bucket = 22, .lba = 12, .commandId = 1}));
  const auto begin = sample.evidence.pool.begin() + 22 * SampleEvidence::sector;
  EXPECT_TRUE(std::equal(content.begin() + stampBytes, content.end(), begin + stampBytes));
}

TEST(WrittenDataTest, GivesEveryBlockOfAWriteSameTheFirstAddress) {
  SampleEvidence sample;
  const JournalEntry& same = sample.command(CommandKind::writeSame, 10, 4, 20);
  EXPECT_EQ(sample.contentOf(same, 13), sample.contentOf(same, 10));
  EXPECT_EQ(stampOf(sample.contentOf(same, 13))->lba, 10U);
}

TEST(WrittenDataTest, RebuildsATrimAsZeros) {
  SampleEvidence sample;
  EXPECT_TRUE(stampOf(sample.contentOf(sample.command(CommandKind::trim, 3, 1), 3))->zeros);
}

TEST(WrittenDataTest, LeavesDataUnstampedWhereTheTestDoes) {
  SampleEvidence sample;
  sample.evidence.embedded = false;
  const std::vector<uint8_t> plain = sample.contentOf(sample.write(10, 1, 20), 10);
  EXPECT_TRUE(std::equal(plain.begin(), plain.end(), sample.evidence.pool.begin() + 20 * SampleEvidence::sector));
  EXPECT_EQ(stampOf(sample.contentOf(sample.command(CommandKind::writeAtomic, 10, 1, 20), 10))->lba, 10U)
      << "atomic writes are always stamped";
}

TEST(WrittenDataTest, StampsSkippedBlocksAsIfNothingWereSkipped) {
  SampleEvidence sample;
  JournalEntry write = sample.write(10, 4, 20);
  write.lbaStep = 2;
  EXPECT_EQ(stampOf(sample.contentOf(write, 14))->lba, 12U);
  EXPECT_FALSE(WrittenData(sample.evidence).contentOf(write, 13));
}

TEST(WrittenDataTest, CannotRebuildWhatACommandDidNotWriteOrThePoolDoesNotHold) {
  SampleEvidence sample;
  const WrittenData data(sample.evidence);
  EXPECT_FALSE(data.contentOf(sample.write(10, 4, 20), 14));
  EXPECT_FALSE(data.contentOf(sample.read(10, 4), 10));
  EXPECT_FALSE(data.contentOf(sample.issue(CommandKind::write, 10, 4, SampleEvidence::poolSectors - 2), 12));
}

TEST(WrittenDataTest, ListsChangesNewestFirstUpToACommand) {
  SampleEvidence sample;
  const uint64_t first = sample.write(10, 4, 20).number;
  const uint64_t second = sample.write(12, 4, 30).number;
  sample.read(12, 1);
  const uint64_t third = sample.command(CommandKind::trim, 13, 1).number;
  const WrittenData data(sample.evidence);
  std::vector<uint64_t> numbers;
  for (const JournalEntry* change : data.changesOf(13, third + 1)) {
    numbers.push_back(change->number);
  }
  EXPECT_EQ(numbers, (std::vector<uint64_t>{third, second, first}));
  EXPECT_EQ(data.changesOf(13, second).size(), 1U);
  EXPECT_TRUE(data.changesOf(9, third + 1).empty());
}

TEST(WrittenDataTest, TellsWhoWroteASectorHereOrElsewhere) {
  SampleEvidence sample;
  const JournalEntry& first = sample.write(10, 4, 20);
  const JournalEntry& second = sample.write(30, 4, 60);
  const WrittenData data(sample.evidence);
  const auto here = data.writerOf(sample.contentOf(first, 11), 11).value();
  EXPECT_EQ(here.write->number, first.number);
  EXPECT_EQ(here.lba, 11U);
  const auto elsewhere = data.writerOf(sample.contentOf(second, 33), 11).value();
  EXPECT_EQ(elsewhere.write->number, second.number);
  EXPECT_EQ(elsewhere.lba, 33U);
  EXPECT_FALSE(data.writerOf(std::vector<uint8_t>(SampleEvidence::sector, 0x77), 11));
}

TEST(WrittenDataTest, TellsWhoWroteAPart) {
  SampleEvidence sample;
  const JournalEntry& first = sample.write(10, 1, 20);
  const JournalEntry& second = sample.write(10, 1, 60);
  std::vector<uint8_t> torn = sample.contentOf(second, 10);
  const std::vector<uint8_t> old = sample.contentOf(first, 10);
  std::copy(old.begin() + 256, old.end(), torn.begin() + 256);
  const WrittenData data(sample.evidence);
  EXPECT_EQ(data.writerOfPart(torn, 256, torn.size(), 10)->write->number, first.number);
  EXPECT_EQ(data.writerOfPart(torn, 0, 256, 10)->write->number, second.number);
  EXPECT_FALSE(data.writerOf(torn, 10));
}

TEST(WrittenDataTest, KnowsAGenuineSectorByWhomeverItWasWritten) {
  SampleEvidence sample;
  std::vector<uint8_t> content = sample.contentOf(sample.write(10, 1, 20), 10);
  const WrittenData data(sample.evidence);
  stamp(content, 4711, 99);
  EXPECT_TRUE(data.isGenuine(content));
  content[300] ^= 1;
  EXPECT_FALSE(data.isGenuine(content));
  content[0] = 0xFF;  // no such sector
  EXPECT_FALSE(data.isGenuine(content));
}

}  // namespace
}  // namespace corvane::host
