#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "ReferenceAudit.h"
#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

constexpr uint32_t tag = 3;

struct PrepareRead : ::testing::Test {
  PrepareRead() {
    bench.start();
    bench.thread().conditions = 0;
  }

  void expectReferencesAccountedFor() {
    EXPECT_TRUE(bench.data().referencesBalanced);
    EXPECT_EQ(vdl::agent::auditReferences(bench.data()), "");
  }

  /// Ids: the write's 1, the read's 2.
  void finishWrite(uint64_t lba = 100, uint32_t xferLength = 8) {
    bench.finishedWrite(lba, xferLength, 1);
    bench.thread().conditions = 0;
    bench.takeTrace();
    bench.takeLog();
  }
  int read() {
    vdl::agent::Step step = bench.step();
    return vdl::agent::doAReadOrVerify(step, tag, {});
  }
  /// Lets the next slide start at `start` when there are `starts` of them from `from` on.
  void slideTo(uint64_t start, uint64_t from, uint64_t starts) {
    bench.config().slideReads = true;
    vdl::RandomNumberGenerator<unsigned long> rng;
    for (uint32_t seed = 1;; ++seed) {
      rng.init(seed, 0, std::numeric_limits<unsigned long>::max());
      const uint64_t draw = rng();
      if ((draw >> 62 & 1) != 0 && from + draw % starts == start) {
        bench.data().rng.init(seed, 0, std::numeric_limits<unsigned long>::max());
        return;
      }
    }
  }
  void expectClaim(uint64_t lba, uint64_t references, uint32_t waiting) {
    EXPECT_EQ(bench.refCount(lba), references) << lba;
    EXPECT_EQ(bench.waitingReads(lba), waiting) << lba;
  }

  SchedulingBench bench;
};

TEST_F(PrepareRead, ReadsTheWriteBack) {
  finishWrite();
  const vdl::BlockNum bucket = bench.bucketOf(100);
  bench.shareRange(7, 3);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(*bench.data().lba, 100U);
  EXPECT_EQ(*bench.data().xferLength, 8U);
  EXPECT_EQ(bench.thread().conditions, bit::read);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadIssued, 100, 8, 2, tag}));
  EXPECT_EQ(bench.lastEntry().block, bucket);
  EXPECT_EQ(bench.lastEntry().flag, 0);
  ASSERT_EQ(bench.data().readSent.size(), 1U);
  const auto& record = bench.data().readSent.front();
  EXPECT_EQ(record.cmdId, 2U);
  EXPECT_EQ(record.lba, 100U);
  EXPECT_EQ(record.xferLength, 8U);
  EXPECT_EQ(record.tagId, tag);
  EXPECT_EQ(record.spliceCheck, 0);
  EXPECT_EQ(record.spliceRetries, 0);
  for (uint64_t lba = 100; lba < 108; ++lba) {
    expectClaim(lba, 0, 1);
  }
  EXPECT_EQ(bench.table().records().size(), 8U);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(PrepareRead, WithoutSlidingNothingIsDrawn) {
  finishWrite();
  vdl::RandomNumberGenerator<unsigned long> same;
  same.init(5, 0, std::numeric_limits<unsigned long>::max());
  bench.data().rng.init(5, 0, std::numeric_limits<unsigned long>::max());
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.data().rng(), same());
}

TEST_F(PrepareRead, InvalidatedFirstBlockIsMarkedInTheTrace) {
  finishWrite();
  bench.table().invalidate(100, 100, vdl::AtomicHash::InvalidateKeepPrior);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.lastEntry().flag, 1);
}

TEST_F(PrepareRead, InvalidatedSecondBlockIsNotMarkedInTheTrace) {
  finishWrite();
  bench.table().invalidate(101, 101, vdl::AtomicHash::InvalidateKeepPrior);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.lastEntry().flag, 0);
}

TEST_F(PrepareRead, SlidForwardGivesUpTheBlocksBeforeAndReadsTheOnesBehindWithoutAClaim) {
  finishWrite();
  bench.shareRange(0, 8);
  slideTo(103, 93, 15);
  ASSERT_EQ(read(), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadIssued, 103, 8, 2, tag}));
  EXPECT_EQ(*bench.data().lba, 103U);
  EXPECT_EQ(*bench.data().xferLength, 8U);
  EXPECT_EQ(bench.data().readSent.front().lba, 103U);
  for (uint64_t lba = 100; lba < 103; ++lba) {
    EXPECT_FALSE(bench.hasRecord(lba)) << lba;
  }
  for (uint64_t lba = 103; lba < 111; ++lba) {
    expectClaim(lba, 0, 1);
  }
  EXPECT_EQ(bench.table().records().size(), 8U);
  EXPECT_EQ(bench.completeRead(tag), 0);
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(PrepareRead, SlidBackwardKeepsTheClaimsOfOtherWritesBeside) {
  finishWrite(90, 6);
  bench.config().maxQueueSize = 100;
  bench.finishedWrite(100, 8, 1);
  std::reverse(bench.data().writeFinished.begin(), bench.data().writeFinished.end());
  bench.takeTrace();
  bench.shareRange(0, 8);
  slideTo(94, 93, 15);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 94U);
  expectClaim(93, 1, 0);
  expectClaim(94, 1, 1);
  expectClaim(95, 1, 1);
  expectClaim(96, 0, 1);
  expectClaim(101, 0, 1);
  EXPECT_FALSE(bench.hasRecord(102));
  EXPECT_FALSE(bench.hasRecord(107));
}

TEST_F(PrepareRead, TheTraceShowsTheSlidReadsFirstBlock) {
  finishWrite();
  const vdl::BlockNum bucket = bench.bucketOf(103);
  bench.shareRange(0, 8);
  slideTo(103, 93, 15);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.lastEntry().block, bucket);
}

TEST_F(PrepareRead, TheTraceShowsAnUntouchedFirstBlockAsUnknown) {
  finishWrite();
  bench.shareRange(0, 8);
  slideTo(97, 93, 15);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 97U);
  EXPECT_EQ(bench.lastEntry().block, vdl::block_num::unknown);
}

TEST_F(PrepareRead, ShorterSlidReadGivesUpBothEnds) {
  finishWrite();
  bench.shareRange(0, 3);
  slideTo(102, 100, 8);
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(*bench.data().xferLength, 3U);
  EXPECT_EQ(bench.table().records().size(), 3U);
  for (uint64_t lba = 102; lba < 105; ++lba) {
    expectClaim(lba, 0, 1);
  }
}

TEST_F(PrepareRead, SlidReadThatOverlapsItsWriteLeavesEveryReferenceAccountedFor) {
  for (const uint64_t start : {93U, 107U}) {
    finishWrite();
    bench.shareRange(0, 8);
    slideTo(start, 93, 15);
    ASSERT_EQ(read(), 0);
    ASSERT_EQ(bench.lastEntry().lba, start);
    SCOPED_TRACE(start);
    expectReferencesAccountedFor();
    EXPECT_EQ(bench.completeRead(tag), 0);
  }
}

TEST_F(PrepareRead, SlidReadWithoutBlocksAtTheStartOfItsWriteDoesTheSame) {
  finishWrite(100, 8);
  bench.shareRange(0, 0);
  slideTo(100, 100, 8);
  ASSERT_EQ(read(), 0);
  ASSERT_EQ(bench.lastEntry().xfer_len, 0U);
  expectReferencesAccountedFor();
}

TEST_F(PrepareRead, SlidReadOfAWriteWithoutBlocksDoesTheSameWhereTheyMeet) {
  finishWrite(100, 0);
  bench.shareRange(0, 8);
  slideTo(100, 93, 8);
  ASSERT_EQ(read(), 0);
  ASSERT_EQ(bench.lastEntry().xfer_len, 8U);
  expectReferencesAccountedFor();
}

TEST_F(PrepareRead, SpliceCheckIsNeitherSlidNorDrawn) {
  finishWrite();
  bench.data().writeFinished.front().spliceCheck = 1;
  bench.shareRange(0, 8);
  slideTo(103, 93, 15);
  vdl::RandomNumberGenerator<unsigned long> same;
  same.init(5, 0, std::numeric_limits<unsigned long>::max());
  bench.data().rng.init(5, 0, std::numeric_limits<unsigned long>::max());
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 100U);
  EXPECT_EQ(bench.data().rng(), same());
}

TEST_F(PrepareRead, SkipCommandsReadEveryOtherBlock) {
  bench.config().useSkipCommands = true;
  finishWrite();
  ASSERT_EQ(read(), 0);
  EXPECT_EQ(bench.table().records().size(), 8U);
  for (uint64_t lba = 100; lba < 116; lba += 2) {
    expectClaim(lba, 0, 1);
  }
}

TEST_F(PrepareRead, WriteThatTheTableDoesNotKnowFailsAfterTheTrace) {
  finishWrite();
  bench.data().writeFinished.front().xferLength = 9;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(read(), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doARead(): no record or no matching event (-1003)"}));
  EXPECT_EQ(bench.lastEntry().type, TraceType::ReadIssued);
  EXPECT_EQ(bench.data().readSent.size(), 1U);
  EXPECT_EQ(bench.thread().conditions, bit::read);
  EXPECT_EQ(*bench.data().xferLength, 9U);
  expectClaim(107, 0, 1);
}

TEST_F(PrepareRead, FirstFailureEndsTheWalk) {
  finishWrite(101, 7);
  bench.data().writeFinished.front().lba = 100;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(read(), -1003);
  ::testing::internal::GetCapturedStderr();
  expectClaim(101, 1, 0);
}

TEST_F(PrepareRead, FirstFailureEndsTheWalkOfASlidRead) {
  finishWrite();
  EXPECT_EQ(bench.table().readSkip(101), 0);
  bench.shareRange(0, 8);
  slideTo(103, 93, 15);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(read(), -1003);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "<E> readSkip couldn't find record lba:65\n");
  EXPECT_FALSE(bench.hasRecord(100)) << "given up before";
  expectClaim(102, 1, 0);
  expectClaim(103, 1, 0);
}

TEST_F(PrepareRead, BlockWithoutAClaimFailsWithNoRecord) {
  finishWrite();
  bench.table().readIssued(77, 100, true);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(read(), -1200);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doARead(): no record of a command in flight (-1200)"}));
}

}  // namespace
}  // namespace benchtest
