#include "host/run/BlockExpectations.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

constexpr BlockSpan blocks(uint64_t first, uint64_t count) { return {.first = first, .end = first + count}; }

/// Commands over one range, in the order in which the calls stand.
class BlockExpectationsTest : public ::testing::Test {
 protected:
  static constexpr BlockSpan range = blocks(100, 4);

  uint64_t issueWrite(bool certain = true, const BlockSpan& span = range) {
    expectations.writeIssued(span, certain, ++now);
    return now;
  }
  void write(const BlockSpan& span = range) { expectations.writeEnded(span, issueWrite(true, span), std::nullopt); }
  void failAtomic() { expectations.atomicWriteEnded(range, issueWrite(false), false); }
  uint64_t issueRead(const BlockSpan& read = range, const BlockSpan& written = range) {
    EXPECT_TRUE(expectations.readBackIssued(read, written, ++now));
    return now;
  }
  BlockWorth endRead(uint64_t issued, uint64_t lba = 100) { return expectations.readEnded(lba, issued, false); }
  BlockWorth readBack() { return endRead(issueRead()); }

  static constexpr BlockWorth one{.outcomes = 1};
  static BlockWorth because(Uncheckable reason) { return {.reason = reason}; }

  BlockExpectations expectations;
  uint64_t now = 0;
};

TEST_F(BlockExpectationsTest, aWriteIsCheckedAgainstOneContentAndThenForgotten) {
  write();
  const uint64_t read = issueRead();
  for (uint64_t lba = 100; lba < 104; ++lba) {
    EXPECT_EQ(endRead(read, lba), one) << lba;
  }
  EXPECT_TRUE(expectations.empty());
  EXPECT_FALSE(expectations.readBackIssued(range, range, ++now));
}

TEST_F(BlockExpectationsTest, twoWritesWaitForTwoReads) {
  write();
  write();
  EXPECT_EQ(readBack(), one);
  EXPECT_EQ(readBack(), one);
}

TEST_F(BlockExpectationsTest, afterAFailedWriteNothingIsKnownFromItsFirstFailedBlockOn) {
  expectations.writeEnded(range, issueWrite(), 102);
  const uint64_t read = issueRead();
  EXPECT_EQ(endRead(read, 101), one);
  EXPECT_EQ(endRead(read, 102), because(Uncheckable::writeFailed));
}

TEST_F(BlockExpectationsTest, eachUnfinishedAtomicWriteAddsAnOutcomeUntilTheNextWrite) {
  write();
  failAtomic();
  EXPECT_EQ(readBack(), BlockWorth{.outcomes = 2});
  failAtomic();
  failAtomic();
  EXPECT_EQ(readBack(), BlockWorth{.outcomes = 4});
  expectations.atomicWriteEnded(range, issueWrite(false), true);
  EXPECT_EQ(readBack(), one);
}

TEST_F(BlockExpectationsTest, moreOutcomesThanAreCountedStayTheMost) {
  write();
  for (int i = 0; i < 100; ++i) {
    failAtomic();
  }
  EXPECT_EQ(readBack(), BlockWorth{.outcomes = CheckedBlocks::mostOutcomes});
}

TEST_F(BlockExpectationsTest, anUnfinishedAtomicWriteOverUnknownContentHidesHalf) {
  expectations.writeEnded(range, issueWrite(), 100);
  failAtomic();
  EXPECT_EQ(readBack(), because(Uncheckable::atomicOverUnknown));
}

TEST_F(BlockExpectationsTest, aHashIsOneContent) {
  expectations.hashed(range, true, ++now);
  failAtomic();
  EXPECT_EQ(readBack(), BlockWorth{.outcomes = 2});
  EXPECT_EQ(readBack(), BlockWorth{.outcomes = 2});
  EXPECT_FALSE(expectations.readBackIssued(range, range, ++now));
}

TEST_F(BlockExpectationsTest, whoReadsWhenAHashComesLooksPastIt) {
  write();
  failAtomic();
  const uint64_t before = issueRead();
  expectations.hashed(range, true, ++now);
  const uint64_t after = issueRead();
  EXPECT_EQ(endRead(after), one);
  EXPECT_EQ(endRead(before), BlockWorth{.outcomes = 2});
  EXPECT_EQ(readBack(), one);
}

TEST_F(BlockExpectationsTest, whoWasIssuedBehindTheAtomicWriteLooksAtItsHash) {
  const uint64_t atomicWrite = issueWrite(false);
  const uint64_t read = issueRead();
  expectations.hashed(range, false, ++now);
  expectations.atomicWriteEnded(range, atomicWrite, false);
  EXPECT_EQ(endRead(read), BlockWorth{.outcomes = 2});
  EXPECT_FALSE(expectations.awaits(100));
}

TEST_F(BlockExpectationsTest, aSlidReadGivesUpWhatItLeavesOutAndReadsNeighboursWithoutAClaim) {
  write();
  const uint64_t read = issueRead(blocks(102, 4));
  EXPECT_FALSE(expectations.awaits(100));
  EXPECT_EQ(endRead(read, 102), one);
  EXPECT_EQ(endRead(read, 104), because(Uncheckable::notAwaited));
  EXPECT_EQ(endRead(read, 103), one);
  EXPECT_EQ(endRead(read, 105), because(Uncheckable::notAwaited));
  EXPECT_TRUE(expectations.empty());
}

TEST_F(BlockExpectationsTest, aBlockThatWasGivenUpAndIsAwaitedAgainKnowsNothingOfTheOldWrite) {
  const uint64_t old = issueWrite();
  issueRead(blocks(101, 4));  // gives 100 up while the write is outstanding
  const uint64_t read = issueRead(blocks(100, 1), blocks(100, 0));
  expectations.writeEnded(range, old, std::nullopt);
  EXPECT_EQ(endRead(read), because(Uncheckable::notAwaited));
}

TEST_F(BlockExpectationsTest, aReadThatIsRepeatedKeepsItsBlocks) {
  write();
  const uint64_t lost = issueRead();
  for (uint64_t lba = 100; lba < 104; ++lba) {
    expectations.readEnded(lba, lost, true);
  }
  EXPECT_EQ(readBack(), one);
}

TEST_F(BlockExpectationsTest, aZoneResetTakesTheBlockBehindItToo) {
  write(blocks(98, 6));
  expectations.zonesReset(90, 101);
  const uint64_t read = issueRead(blocks(98, 6), blocks(98, 6));
  EXPECT_EQ(endRead(read, 98), because(Uncheckable::zoneReset));
  EXPECT_EQ(endRead(read, 101), because(Uncheckable::zoneReset));
  EXPECT_EQ(endRead(read, 102), one);
}

TEST_F(BlockExpectationsTest, ofAnInvalidatedBlockOnlyTheOldContentIsKnown) {
  write();
  expectations.invalidated(100, 102);
  const uint64_t read = issueRead();
  EXPECT_EQ(endRead(read, 101), because(Uncheckable::invalidated));
  EXPECT_EQ(endRead(read, 102), one);
  write(blocks(200, 1));
  expectations.invalidated(200, 201);
  expectations.writeEnded(blocks(200, 1), issueWrite(true, blocks(200, 1)), std::nullopt);
  EXPECT_EQ(endRead(issueRead(blocks(200, 1), blocks(200, 1)), 200), one);
}

TEST_F(BlockExpectationsTest, anAtomicWriteNeedsEveryBlockKnownAndTheOneBehindAwaited) {
  issueWrite();  // what is issued counts already
  EXPECT_FALSE(expectations.isKnownForAtomicWrite(100, 104));
  EXPECT_TRUE(expectations.isKnownForAtomicWrite(100, 103));
  issueWrite(false, blocks(104, 1));
  EXPECT_TRUE(expectations.isKnownForAtomicWrite(100, 104));
  EXPECT_FALSE(expectations.isKnownForAtomicWrite(100, 105));
  expectations.invalidated(101, 102);
  EXPECT_FALSE(expectations.isKnownForAtomicWrite(100, 103));
}

TEST_F(BlockExpectationsTest, aVerifyIsCertainOnlyOverWrittenBlocks) {
  write();
  EXPECT_TRUE(expectations.isCertain(range, ++now));
  EXPECT_FALSE(expectations.isCertain(blocks(99, 2), now));
  failAtomic();
  EXPECT_FALSE(expectations.isCertain(range, ++now));
  write(blocks(200, 1));
  expectations.hashed(blocks(200, 1), true, ++now);
  EXPECT_FALSE(expectations.isCertain(blocks(200, 1), ++now));
}

TEST_F(BlockExpectationsTest, whatWasConfusedIsToldAgainAfterTheNextWrite) {
  write();
  expectations.confuse(range);
  failAtomic();
  EXPECT_EQ(readBack(), because(Uncheckable::untold));
  write();
  EXPECT_EQ(readBack(), one);
}

}  // namespace
}  // namespace corvane::host
