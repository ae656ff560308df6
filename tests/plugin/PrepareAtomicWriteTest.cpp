#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <vector>

#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;
using vdl::agent::PreRead;

constexpr uint32_t tag = 3;

struct PrepareAtomicWrite : ::testing::Test {
  PrepareAtomicWrite() {
    bench.start();
    bench.config().writeAtomicCondition = onBit(bit::atomic);
    bench.shareRange(100, 8, 4);
    *bench.data().skipGen = 0;
  }

  int write() {
    vdl::agent::Step step = bench.step();
    return vdl::agent::doAWriteAtomic(step, tag);
  }
  /// The blocks hold what a finished write left. The block behind the range counts, too.
  void knownRange(uint64_t lba, uint32_t xferLength) {
    bench.finishedWrite(lba, xferLength + 1, 1);
    settle();
  }
  void settle() {
    bench.thread().conditions = 0;
    *bench.data().skipGen = 0;
    bench.takeLog();
    bench.takeTrace();
  }
  uint64_t finishedPreRead(uint64_t lba, uint32_t xferLength, uint32_t bound) {
    bench.shareRange(lba, xferLength, bound);
    EXPECT_EQ(write(), 0);
    const uint64_t id = bench.data().preReadSent.back().cmdId;
    EXPECT_EQ(bench.completeRead(tag), 0);
    settle();
    return id;
  }
  uint64_t sentPreRead(uint64_t lba, uint32_t xferLength, uint32_t bound) {
    bench.shareRange(lba, xferLength, bound);
    EXPECT_EQ(write(), 0);
    settle();
    return bench.data().preReadSent.back().cmdId;
  }
  using Segment = std::tuple<uint32_t, uint32_t, uint32_t>;
  std::vector<Segment> segments(uint64_t lba, uint64_t end, uint32_t step = 1) {
    std::vector<Segment> found;
    for (; lba < end; lba += step) {
      const vdl::Event* event = bench.newestEvent(lba);
      EXPECT_NE(event, nullptr);
      if (event != nullptr) {
        EXPECT_EQ(event->type, vdl::EventType::Atomic);
        found.emplace_back(event->segment.offset, event->segment.length, event->segment.segment);
      }
    }
    return found;
  }

  SchedulingBench bench;
};

TEST_F(PrepareAtomicWrite, KnownRangeIsWrittenAsTheTestShowsIt) {
  knownRange(100, 8);
  bench.shareRange(100, 8, 4);
  const uint64_t id = bench.data().nextCmdId;
  ASSERT_EQ(write(), 0);
  const uint32_t bucket = *bench.data().bucketIndex;
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteAtomicIssued, 100, 8, id, tag}));
  EXPECT_EQ(bench.lastEntry().block, bucket);
  EXPECT_EQ(bench.thread().conditions, bit::atomic);
  EXPECT_EQ(*bench.data().skipGen, 0U);
  EXPECT_EQ(bench.data().nextCmdId, id + 1);
  ASSERT_EQ(bench.data().writeSent.size(), 1U);
  const auto& record = bench.data().writeSent.front();
  EXPECT_EQ(record.cmdId, id);
  EXPECT_EQ(record.readCmdId, 0U);
  EXPECT_EQ(record.lba, 100U);
  EXPECT_EQ(record.xferLength, 8U);
  EXPECT_EQ(record.tagId, tag);
  EXPECT_EQ(record.readBack, 1);
  EXPECT_EQ(record.readBackOnError, 1);
  for (uint64_t lba = 100; lba < 108; ++lba) {
    const vdl::Event* event = bench.newestEvent(lba);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->cmd_id, id);
    EXPECT_EQ(event->block_num, bucket + (lba - 100));
    EXPECT_TRUE(event->embed.valid);
    EXPECT_EQ(event->embed.cmd_id, id);
    EXPECT_EQ(event->embed.lba, lba);
    EXPECT_TRUE(event->isTransparent());
  }
  EXPECT_EQ(bench.newestEvent(108)->type, vdl::EventType::Write);
}

TEST_F(PrepareAtomicWrite, DataAreStampedAlsoWithoutEmbedData) {
  bench.config().embedData = false;
  knownRange(100, 2);
  bench.shareRange(100, 2, 4);
  const uint64_t id = bench.data().nextCmdId;
  ASSERT_EQ(write(), 0);
  Bytes expected;
  for (uint32_t i = 0; i < 2; ++i) {
    const Bytes sector = stamped(bench.bucket(*bench.data().bucketIndex + i), 100 + i, id);
    expected.insert(expected.end(), sector.begin(), sector.end());
  }
  EXPECT_EQ(bench.shown(), expected);
}

TEST_F(PrepareAtomicWrite, TenBlocksWithBoundFourAreSegmentsOfFourFourAndTwo) {
  knownRange(100, 10);
  bench.shareRange(100, 10, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(segments(100, 110),
              ElementsAre(Segment{0, 4, 0}, Segment{1, 4, 0}, Segment{2, 4, 0}, Segment{3, 4, 0}, Segment{0, 4, 1},
                          Segment{1, 4, 1}, Segment{2, 4, 1}, Segment{3, 4, 1}, Segment{0, 2, 2}, Segment{1, 2, 2}));
}

TEST_F(PrepareAtomicWrite, BoundAboveTheLengthIsOneSegment) {
  knownRange(100, 3);
  bench.shareRange(100, 3, 100);
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(segments(100, 103), ElementsAre(Segment{0, 3, 0}, Segment{1, 3, 0}, Segment{2, 3, 0}));
}

TEST_F(PrepareAtomicWrite, BoundZeroLeavesEveryBlockAtTheStartOfAnEmptySegment) {
  knownRange(100, 3);
  bench.shareRange(100, 3, 0);
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(segments(100, 103), ElementsAre(Segment{0, 0, 0}, Segment{0, 0, 0}, Segment{0, 0, 0}));
}

TEST_F(PrepareAtomicWrite, SkipCommandsMeasureTheLastSegmentInLbas) {
  bench.config().useSkipCommands = true;
  for (uint64_t lba = 100; lba <= 110; ++lba) {
    bench.finishedWrite(lba, 1, 1);
  }
  settle();
  bench.shareRange(100, 5, 3);
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(segments(100, 110, 2),
              ElementsAre(Segment{0, 3, 0}, Segment{1, 3, 0}, Segment{2, 3, 0}, Segment{0, 3, 1}, Segment{1, 3, 1}));
  EXPECT_EQ(bench.newestEvent(101)->type, vdl::EventType::Write);
}

TEST_F(PrepareAtomicWrite, UnknownRangeWithoutAPreReadIssuesOne) {
  settle();
  *bench.data().bucketIndex = 77;
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::PreReadIssued, 100, 8, 1, tag}));
  EXPECT_EQ(bench.thread().conditions, bit::read);
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  ASSERT_EQ(bench.data().preReadSent.size(), 1U);
  const PreRead& record = bench.data().preReadSent.front();
  EXPECT_EQ(record.cmdId, 1U);
  EXPECT_EQ(record.readCmdId, 0U);
  EXPECT_EQ(record.lba, 100U);
  EXPECT_EQ(record.xferLength, 8U);
  EXPECT_EQ(record.tagId, tag);
  EXPECT_EQ(record.writeKind, 1);
  EXPECT_EQ(record.writeParam, 4U);
  EXPECT_EQ(record.writeFlag, 0);
  EXPECT_EQ(bench.data().nextCmdId, 2U);
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_EQ(*bench.data().bucketIndex, 77U);
  EXPECT_EQ(*bench.data().skipGen, 0U);
}

TEST_F(PrepareAtomicWrite, OneUnknownBlockIsEnoughForAPreRead) {
  bench.finishedWrite(100, 7, 1);
  bench.shareRange(100, 8, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::PreReadIssued);
}

TEST_F(PrepareAtomicWrite, UnknownBlockBehindTheRangeIsEnoughForAPreRead) {
  bench.finishedWrite(100, 8, 1);
  bench.shareRange(100, 8, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::PreReadIssued);
}

TEST_F(PrepareAtomicWrite, PreReadHasNoLengthLimit) {
  bench.shareRange(100, 65, 4);
  settle();
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_EQ(bench.data().preReadSent.front().xferLength, 65U);
}

TEST_F(PrepareAtomicWrite, RequeuedPreReadIsIssuedAgainWithItsOwnRangeAndANewId) {
  bench.data().preReadRequeue.push_back(PreRead{7, 99, 300, 5, 6, 2, 11, 3});
  bench.data().preReadRequeue.push_back(PreRead{8, 0, 400, 5, 6, 2, 11, 3});
  bench.data().nextCmdId = 20;
  settle();
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::PreReadIssued, 300, 5, 20, tag}));
  ASSERT_EQ(bench.data().preReadSent.size(), 1U);
  const PreRead& record = bench.data().preReadSent.front();
  EXPECT_EQ(record.cmdId, 20U);
  EXPECT_EQ(record.readCmdId, 99U);
  EXPECT_EQ(record.tagId, tag);
  EXPECT_EQ(record.writeKind, 2);
  EXPECT_EQ(record.writeParam, 11U);
  EXPECT_EQ(record.writeFlag, 3);
  EXPECT_EQ(*bench.data().lba, 100U) << "the shared range stays the test's";
  EXPECT_EQ(*bench.data().xferLength, 8U);
  EXPECT_EQ(*bench.data().skipGen, 1U);
  ASSERT_EQ(bench.data().preReadRequeue.size(), 1U);
  EXPECT_EQ(bench.data().preReadRequeue.front().cmdId, 8U);
}

TEST_F(PrepareAtomicWrite, FinishedPreReadGivesItsRangeAndItsHashesReferences) {
  finishedPreRead(300, 2, 5);
  ASSERT_EQ(bench.refCount(300), 1U);
  bench.shareRange(100, 8, 4);
  const uint64_t id = bench.data().nextCmdId;
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteAtomicIssued, 300, 2, id, tag}));
  EXPECT_EQ(*bench.data().lba, 300U);
  EXPECT_EQ(*bench.data().xferLength, 2U);
  EXPECT_EQ(*bench.data().atomicBound, 5U);
  EXPECT_EQ(*bench.data().skipGen, 1U);
  EXPECT_THAT(bench.data().preReadFinished, IsEmpty());
  EXPECT_EQ(bench.refCount(300), 1U) << "the write's; the hash's is dropped";
  EXPECT_EQ(bench.refCount(301), 1U);
  EXPECT_THAT(segments(300, 302), ElementsAre(Segment{0, 2, 0}, Segment{1, 2, 0}));
}

TEST_F(PrepareAtomicWrite, ClaimedFinishedPreReadIsPassedOver) {
  finishedPreRead(300, 2, 5);
  bench.data().preReadFinished.push_front(PreRead{50, 55, 400, 2, 6, 1, 5, 0});
  bench.shareRange(100, 8, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 300U);
  ASSERT_EQ(bench.data().preReadFinished.size(), 1U);
  EXPECT_EQ(bench.data().preReadFinished.front().cmdId, 50U);
}

TEST_F(PrepareAtomicWrite, FinishedPreReadComesBeforeOneInFlight) {
  finishedPreRead(300, 2, 5);
  bench.data().preReadSent.push_back(PreRead{50, 0, 500, 2, 6, 1, 5, 0});
  bench.shareRange(100, 8, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 300U);
  EXPECT_EQ(bench.data().preReadSent.front().readCmdId, 0U);
}

TEST_F(PrepareAtomicWrite, PreReadInFlightIsClaimedAndStays) {
  sentPreRead(300, 2, 5);
  bench.shareRange(100, 8, 4);
  const uint64_t id = bench.data().nextCmdId;
  ASSERT_EQ(write(), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteAtomicIssued, 300, 2, id, tag}));
  ASSERT_EQ(bench.data().preReadSent.size(), 1U);
  EXPECT_EQ(bench.data().preReadSent.front().readCmdId, id);
  EXPECT_EQ(*bench.data().lba, 300U);
  EXPECT_EQ(*bench.data().xferLength, 2U);
  EXPECT_EQ(*bench.data().atomicBound, 5U);
  EXPECT_EQ(*bench.data().skipGen, 1U);
  EXPECT_EQ(bench.refCount(300), 1U);
}

TEST_F(PrepareAtomicWrite, ClaimedPreReadInFlightIsNotClaimedAgain) {
  sentPreRead(300, 2, 5);
  bench.data().preReadSent.front().readCmdId = 55;
  bench.shareRange(100, 8, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::PreReadIssued);
  EXPECT_EQ(bench.data().preReadSent.front().readCmdId, 55U);
}

TEST_F(PrepareAtomicWrite, TheGeneratorIsLeftAloneWhenTheAgentMixesWrites) {
  sentPreRead(300, 2, 5);
  bench.data().skipGenOnList = false;
  bench.shareRange(100, 8, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().skipGen, 0U);
  EXPECT_EQ(*bench.data().lba, 300U);
}

TEST_F(PrepareAtomicWrite, TooLongTransferIsRefusedWithItsConditionAppliedAndItsRecordKept) {
  sentPreRead(300, 65, 5);
  const uint64_t id = bench.data().nextCmdId;
  ASSERT_EQ(write(), -1022);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Requested buffer too large: need=65, max=63"},
                                           LogLine{2, "doAWriteAtomic(): buffer too large or missing (-1022)"}));
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_EQ(bench.thread().conditions, bit::atomic);
  ASSERT_EQ(bench.data().writeSent.size(), 1U);
  EXPECT_EQ(bench.data().writeSent.front().cmdId, id);
  EXPECT_EQ(bench.data().writeSent.front().readBackOnError, 1);
}

TEST_F(PrepareAtomicWrite, HashThatIsNotThereFailsTheWriteAfterItsTrace) {
  finishedPreRead(300, 2, 5);
  bench.data().preReadFinished.front().cmdId = 999;
  bench.shareRange(100, 8, 4);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(write(), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAWriteAtomic(): no record or no matching event (-1003)"}));
  EXPECT_EQ(bench.lastEntry().type, TraceType::WriteAtomicIssued);
  EXPECT_EQ(bench.thread().conditions, bit::atomic);
  EXPECT_EQ(bench.newestEvent(300)->type, vdl::EventType::Atomic);
  EXPECT_EQ(bench.newestEvent(301)->type, vdl::EventType::Hash) << "stopped at the first failure";
}

TEST_F(PrepareAtomicWrite, EndToEndSelectionCountsAsItIsAfterTheWritesOwnCondition) {
  knownRange(100, 4);
  bench.config().e2eCondition = onBit(bit::e2e);
  bench.config().writeAtomicCondition = onBit(bit::atomic | bit::e2e);
  bench.shareRange(100, 4, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->size, 4U * 520);
}

TEST_F(PrepareAtomicWrite, EndToEndSelectionThatTheConditionClearsDoesNotCount) {
  knownRange(100, 4);
  bench.config().e2eCondition = onBit(bit::e2e);
  bench.config().writeAtomicCondition = vdl::Condition{bit::atomic, 0, bit::e2e, false};
  bench.thread().conditions = bit::e2e;
  bench.shareRange(100, 4, 4);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->size, 4U * 512);
}

}  // namespace
}  // namespace benchtest
