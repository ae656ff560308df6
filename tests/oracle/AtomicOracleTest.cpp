// The agent's judgement of reads against what drives can do, over every history up to a bound. What the bounds are,
// what the agent may say differently and why stands in docs/detection.md; a larger bound is the program
// atomic_oracle's.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/oracle/Histories.h"
#include "tests/oracle/Sweep.h"

namespace oracletest {
namespace {

constexpr Rule issueOrder = Rule::issueOrder;
constexpr Rule failedWrite = Rule::failedWrite;
constexpr Rule neverWritten = Rule::neverWritten;
constexpr Rule readBack = Rule::readBack;
constexpr Rule unstamped = Rule::unstampedContent;
constexpr Rule earlierReads = Rule::earlierReads;

Tally sweep(const Bound& bound) {
  const Silence silence;
  Sweep one;
  const uint64_t histories = forEachHistory(bound, [&one](const History& history) { return one.judge(history); });
  Tally tally = one.tally();
  if (tally.histories != histories) {
    tally.unexplained += " not every history was judged";
  }
  return tally;
}

/// The differences must be these: one that no rule explains fails, and so does a rule that no longer makes any.
void expectDifferences(const Tally& tally, const std::set<Rules>& expected) {
  EXPECT_EQ(tally.unexplained, "");
  std::set<Rules> found;
  for (const auto& [rules, differences] : tally.classes) {
    EXPECT_GT(differences.images, 0U);
    found.insert(rules);
  }
  EXPECT_EQ(found, expected) << describe(tally);
  // Neither side is idle.
  EXPECT_GT(tally.bothAccept, tally.reads);
  EXPECT_GT(tally.bothReject, tally.reads);
}

TEST(AtomicOracle, EveryOneWriteAndReadOnUpToThreeBlocks) {
  Tally tally;
  for (uint8_t blocks = 1; blocks <= 3; ++blocks) {
    tally += sweep({.blocks = blocks, .writes = 1, .partialReads = true});
  }
  // 4, 14 and 32 writes; 1, 3 and 6 reads; 5 orders: a write and a read have 6, in one the read ends before.
  EXPECT_EQ(tally.histories, 5U * (4 * 1 + 14 * 3 + 32 * 6));
  expectDifferences(tally, {{issueOrder}, {failedWrite}});
}

TEST(AtomicOracle, EveryTwoWritesAndAReadAmongThemOverWrittenContent) {
  const Tally tally = sweep({.blocks = 2});
  // 14 writes: two ranges of one block and one of two, plain or atomic, the latter also in two segments, good or
  // aborted; 33 orders of two writes and a read that does not end before the second is issued.
  EXPECT_EQ(tally.histories, 14U * 14 * 33);
  EXPECT_EQ(tally.images, 68508U);
  expectDifferences(tally, {{issueOrder}, {failedWrite}});
}

TEST(AtomicOracle, EveryTwoWritesAndAReadAmongThemOverTrimmedContent) {
  const Tally tally = sweep({.base = Base::trimmed, .blocks = 2});
  EXPECT_EQ(tally.histories, 14U * 14 * 33);
  expectDifferences(tally, {{issueOrder}, {failedWrite}, {unstamped}});
}

TEST(AtomicOracle, EveryTwoWritesAndAReadAmongThemOverUnknownContent) {
  const Tally tally = sweep({.base = Base::unknown, .blocks = 2});
  EXPECT_EQ(tally.histories, 14U * 14 * 33);
  EXPECT_EQ(tally.notPlayed, 96U);
  expectDifferences(tally, {{issueOrder},
                            {failedWrite},
                            {neverWritten},
                            {unstamped},
                            {earlierReads},
                            {failedWrite, neverWritten},
                            {neverWritten, earlierReads},
                            {unstamped, earlierReads}});
}

TEST(AtomicOracle, EveryTwoWritesOnThreeBlocksAndAReadOfAnyOfThem) {
  const Tally tally = sweep({.blocks = 3, .readAmongWrites = false, .partialReads = true});
  // 32 writes, 3 orders, 6 reads.
  EXPECT_EQ(tally.histories, 32U * 32 * 3 * 6);
  expectDifferences(tally, {{issueOrder}, {failedWrite}});
}

TEST(AtomicOracle, EveryThreeWritesOnTwoBlocks) {
  const Tally tally = sweep({.blocks = 2, .writes = 3, .shorterBounds = false, .readAmongWrites = false});
  // 12 writes, 15 orders.
  EXPECT_EQ(tally.histories, 12U * 12 * 12 * 15);
  expectDifferences(tally, {{issueOrder}, {failedWrite}});
}

TEST(AtomicOracle, EveryTrimInsteadOfAPlainWrite) {
  const Tally tally = sweep({.blocks = 2, .trims = true});
  EXPECT_EQ(tally.histories, 14U * 14 * 33);
  expectDifferences(tally, {{issueOrder}, {failedWrite}, {unstamped}});
}

TEST(AtomicOracle, ALaterReadAfterEveryImageOfAnEarlierOne) {
  const Tally tally = sweep({.blocks = 2, .earlierRead = true});
  EXPECT_EQ(tally.histories, 14U * 14 * 45);
  EXPECT_EQ(tally.reads, 16339U);
  expectDifferences(tally, {{issueOrder}, {failedWrite}, {earlierReads}, {failedWrite, earlierReads}});
}

TEST(AtomicOracle, EveryReadBackIsJudgedAsAnyRead) {
  Tally tally = sweep({.blocks = 2, .readBacks = true, .readBackIsLast = true});
  // 3 orders of two writes, of which 11 of 14 each are read back, in a history for every read-back.
  EXPECT_EQ(tally.histories, 3U * (14 * 11 * 2));
  tally += sweep({.base = Base::unknown, .blocks = 2, .readBacks = true, .readBackIsLast = true});
  expectDifferences(tally, {{issueOrder}, {failedWrite}, {unstamped}, {earlierReads}, {unstamped, earlierReads}});
}

TEST(AtomicOracle, NothingIsExpectedAnyMoreOfWhatWasReadBack) {
  const Tally tally = sweep({.base = Base::unknown, .blocks = 2, .readBacks = true});
  EXPECT_EQ(tally.histories, 3U * (14 * 11 * 2));
  expectDifferences(tally, {{failedWrite},
                            {neverWritten},
                            {readBack},
                            {earlierReads},
                            {failedWrite, neverWritten},
                            {neverWritten, readBack},
                            {neverWritten, earlierReads},
                            {readBack, earlierReads},
                            {unstamped, earlierReads}});
}

Tally sweepRandom(uint64_t seed, uint64_t histories) {
  const Silence silence;
  Sweep one;
  std::mt19937_64 random(seed);
  for (uint64_t i = 0; i < histories && one.judgeOne(randomHistory(random)); ++i) {
  }
  return one.tally();
}

TEST(AtomicOracle, HistoriesDrawnAtRandom) {
  const Tally tally = sweepRandom(20240611, 200);
  EXPECT_EQ(tally.unexplained, "");
  EXPECT_EQ(tally.histories, 200U);
  for (const Rule rule : {issueOrder, failedWrite, unstamped, earlierReads}) {
    EXPECT_GT(tally.of(rule), 0U) << nameOf(rule);
  }
  EXPECT_GT(tally.bothAccept, 500U);
  EXPECT_GT(tally.bothReject, 1000U);
}

}  // namespace
}  // namespace oracletest
