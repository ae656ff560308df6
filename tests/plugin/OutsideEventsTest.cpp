#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/SchedulingBench.h"
#include "support_model/FakeClock.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;
using vdl::agent::WriteFinished;

struct OutsideEvents : ::testing::Test {
  OutsideEvents() {
    bench.startWithRangeQueues();
    bench.takeTrace();
    bench.takeLog();
  }

  void postReset(uint64_t first, uint64_t end) { bench.variables().ranges("CSZoneReset").push({first, end}); }
  void postInvalid(uint64_t first, uint64_t end) { bench.variables().ranges("CVNInvalidateRanges").push({first, end}); }
  /// One step, and what it printed.
  std::string absorb() {
    bench.takeTrace();
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(bench.idle(), 0);
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
  }
  vdl::EventType newest(uint64_t lba) { return bench.newestEvent(lba)->type; }

  SchedulingBench bench;
};

TEST_F(OutsideEvents, ZoneResetRemovesAnOverlappedReadBackAndGivesUpTheWholeRecord) {
  bench.finishedWrite(0x100, 8, 1);
  postReset(0x104, 0x106);
  EXPECT_EQ(absorb(), "<W> Clearing out Read LBA Range 0x0000000000000100 thru 0x0000000000000108\n");
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ZoneReset, 0x104, 0, 0x106, 0}));
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(OutsideEvents, GivingUpTakesOneReferenceOfEveryBlock) {
  bench.finishedWrite(0x100, 8, 1);
  bench.finishedWrite(0x104, 8, 1);
  postReset(0x100, 0x101);
  EXPECT_EQ(absorb(), "<W> Clearing out Read LBA Range 0x0000000000000100 thru 0x0000000000000108\n");
  ASSERT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeFinished.front().lba, 0x104U);
  EXPECT_FALSE(bench.hasRecord(0x103));
  EXPECT_EQ(bench.refCount(0x104), 1U);
  EXPECT_EQ(bench.refCount(0x107), 1U);
  EXPECT_EQ(bench.refCount(0x108), 1U);
}

TEST_F(OutsideEvents, ReadBacksThatOnlyTouchTheResetStay) {
  bench.finishedWrite(100, 4, 1);
  bench.finishedWrite(108, 4, 1);
  postReset(104, 108);
  EXPECT_EQ(absorb(), "");
  EXPECT_EQ(bench.data().writeFinished.size(), 2U);
  EXPECT_EQ(bench.refCount(103), 1U);
  EXPECT_EQ(newest(103), vdl::EventType::Write);
}

TEST_F(OutsideEvents, OneBlockOfOverlapIsEnoughAtEitherEnd) {
  bench.finishedWrite(100, 5, 1);
  bench.finishedWrite(107, 4, 1);
  postReset(104, 108);
  absorb();
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
}

TEST_F(OutsideEvents, SpliceChecksStayThroughAZoneReset) {
  bench.finishedWrite(100, 4, 1);
  bench.data().writeFinished.front().spliceCheck = 1;
  postReset(100, 104);
  EXPECT_EQ(absorb(), "");
  ASSERT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.refCount(100), 1U);
}

TEST_F(OutsideEvents, SkipCommandsGiveUpEveryOtherBlockOfTheDoubledRange) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(100, 4, 1);
  postReset(106, 107);
  EXPECT_EQ(absorb(), "<W> Clearing out Read LBA Range 0x0000000000000064 thru 0x000000000000006C\n");
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(OutsideEvents, SkipCommandsGiveUpNothingOfTheBlocksBetween) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(100, 4, 1);
  bench.finishedWrite(101, 4, 1);
  postReset(106, 107);
  absorb();
  ASSERT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeFinished.front().lba, 101U);
  EXPECT_EQ(bench.refCount(101), 1U);
  EXPECT_EQ(bench.refCount(105), 1U);
}

TEST_F(OutsideEvents, SkipCommandsOfTheOtherParityAreLeftAlone) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(100, 4, 1);
  bench.write(200, 4, 2);
  postReset(99, 110);
  postReset(199, 210);
  EXPECT_EQ(absorb(), "");
  EXPECT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeSent.front().readBack, 1);
}

TEST_F(OutsideEvents, WithoutSkipCommandsParityDoesNotMatter) {
  bench.finishedWrite(100, 4, 1);
  postReset(99, 110);
  absorb();
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
}

TEST_F(OutsideEvents, OutstandingWriteInTheZoneLosesItsReadBack) {
  bench.write(100, 4, 1);
  bench.write(200, 4, 2);
  postReset(103, 110);
  EXPECT_EQ(absorb(), "");
  ASSERT_EQ(bench.data().writeSent.size(), 2U);
  EXPECT_EQ(bench.data().writeSent.front().readBack, 0);
  EXPECT_EQ(bench.data().writeSent.back().readBack, 1);
}

TEST_F(OutsideEvents, SkipCommandInTheZoneLosesItsReadBackOverItsDoubledRange) {
  bench.config().useSkipCommands = true;
  bench.write(100, 4, 1);
  postReset(106, 110);
  absorb();
  EXPECT_EQ(bench.data().writeSent.front().readBack, 0);
}

TEST_F(OutsideEvents, WriteLinkedToAReadKeepsItsReadBack) {
  bench.write(100, 4, 1);
  bench.readBack(2);
  postReset(100, 104);
  absorb();
  EXPECT_EQ(bench.data().writeSent.front().readBack, 1);
}

TEST_F(OutsideEvents, ZoneResetMakesTheContentUnknown) {
  bench.write(100, 4, 1);
  postReset(101, 102);
  absorb();
  EXPECT_EQ(newest(100), vdl::EventType::Write);
  EXPECT_EQ(newest(101), vdl::EventType::Invalidate);
  EXPECT_EQ(bench.bucketOf(101), vdl::block_num::unknown);
}

TEST_F(OutsideEvents, TheBlockBehindARangeIsGivenUpWithIt) {
  bench.write(100, 8, 1);
  postReset(100, 102);
  postInvalid(104, 106);
  absorb();
  EXPECT_EQ(newest(102), vdl::EventType::Invalidate);
  EXPECT_EQ(newest(103), vdl::EventType::Write);
  EXPECT_EQ(newest(106), vdl::EventType::InvalidateMarker);
  EXPECT_EQ(newest(107), vdl::EventType::Write);
}

TEST_F(OutsideEvents, InvalidatedRangeMarksTheContentAndTouchesNoCommand) {
  bench.finishedWrite(100, 4, 1);
  const vdl::BlockNum bucket = bench.bucketOf(101);
  bench.write(110, 4, 2);
  postInvalid(101, 112);
  EXPECT_EQ(absorb(), "");
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::InvalidateRange, 101, 0, 112, 0}));
  EXPECT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeSent.front().readBack, 1);
  EXPECT_EQ(bench.refCount(101), 1U);
  EXPECT_EQ(newest(100), vdl::EventType::Write);
  EXPECT_EQ(newest(101), vdl::EventType::InvalidateMarker);
  EXPECT_EQ(bench.expected(101).block_num, bucket) << "as what must be gone";
  EXPECT_TRUE(bench.expected(101).invalidated);
}

TEST_F(OutsideEvents, ZoneResetComesBeforeAnInvalidatedRangeOfTheSameStep) {
  bench.write(100, 4, 1);
  postInvalid(100, 103);
  postReset(100, 103);
  absorb();
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ZoneReset, 100, 0, 103, 0},
                                             Traced{TraceType::InvalidateRange, 100, 0, 103, 0}));
  EXPECT_EQ(newest(100), vdl::EventType::InvalidateMarker);
  ASSERT_NE(bench.newestEvent(100)->next, nullptr);
  EXPECT_EQ(bench.newestEvent(100)->next->type, vdl::EventType::Invalidate);
}

TEST_F(OutsideEvents, QueuesAreDrainedInTheirOrder) {
  postReset(300, 308);
  postReset(100, 108);
  postInvalid(40, 48);
  postInvalid(20, 28);
  absorb();
  EXPECT_THAT(
      bench.takeTrace(),
      ElementsAre(Traced{TraceType::ZoneReset, 300, 0, 308, 0}, Traced{TraceType::ZoneReset, 100, 0, 108, 0},
                  Traced{TraceType::InvalidateRange, 40, 0, 48, 0}, Traced{TraceType::InvalidateRange, 20, 0, 28, 0}));
  EXPECT_TRUE(bench.variables().ranges("CSZoneReset").empty());
  EXPECT_TRUE(bench.variables().ranges("CVNInvalidateRanges").empty());
  absorb();
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
}

TEST_F(OutsideEvents, ZoneResetActsBeforeTheCompletionOfTheStep) {
  bench.write(100, 4, 1);
  postReset(100, 104);
  EXPECT_EQ(bench.complete(1), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty()) << "the finished write has no read-back any more";
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
}

TEST(OutsideEventsWithoutQueues, RangesThatNobodyDeclaredAreNotLookedAt) {
  SchedulingBench bench;
  bench.start();
  bench.takeTrace();
  bench.variables().ranges("CSZoneReset").push({1, 2});
  bench.variables().ranges("CVNInvalidateRanges").push({1, 2});
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_FALSE(bench.variables().ranges("CSZoneReset").empty());
}

TEST_F(OutsideEvents, EveryPowerOnRestartsTheInterval) {
  modeltest::FakeClock clock(1700000000, 500000);
  *bench.data().epo = 0x80000000;
  absorb();
  EXPECT_DOUBLE_EQ(bench.data().powerOnTime, 1700000000500.0);
  clock.set(1700000001, 1);
  *bench.data().epo = 1;
  absorb();
  EXPECT_DOUBLE_EQ(bench.data().powerOnTime, 1700000001000.001);
  EXPECT_EQ(*bench.data().epo, 0U);
  EXPECT_EQ(bench.lastEntry().type, TraceType::PowerToggleOn);
}

/// A flush is out on tag 4.
struct SyncCompletion : OutsideEvents {
  SyncCompletion() {
    bench.trace().traceSyncIssued(4);
    bench.data().syncIssued = true;
    bench.takeTrace();
  }
};

TEST_F(SyncCompletion, GoodFlushIsDone) {
  EXPECT_EQ(bench.complete(4), 0);
  EXPECT_FALSE(bench.data().syncIssued);
  EXPECT_TRUE(bench.data().syncDone);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::SyncFinished, 0, 0, 0, 4}));
  EXPECT_EQ(bench.lastEntry().block, 0U);
}

TEST_F(SyncCompletion, FailedFlushWithholdsItsDoneAndTracesTheSense) {
  Sense sense;
  sense.key = 4;
  sense.asc = 0x44;
  sense.ascq = 0x01;
  sense.uec = 0x1234;
  EXPECT_EQ(bench.completeWithSense(4, sense), 0);
  EXPECT_FALSE(bench.data().syncIssued);
  EXPECT_FALSE(bench.data().syncDone);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::SyncFinished, 0, 0, 0, 4}));
  EXPECT_EQ(bench.lastEntry().kcq.key, 4);
  EXPECT_EQ(bench.lastEntry().kcq.code, 0x44);
  EXPECT_EQ(bench.lastEntry().kcq.qual, 0x01);
  EXPECT_EQ(bench.lastEntry().block, 0x1234U);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(SyncCompletion, RecoveredErrorWithholdsItToo) {
  Sense sense;
  sense.key = 1;
  EXPECT_EQ(bench.completeWithSense(4, sense), 0);
  EXPECT_FALSE(bench.data().syncDone);
  EXPECT_FALSE(bench.data().syncIssued);
}

TEST_F(SyncCompletion, AbortedFlushWithholdsItToo) {
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  EXPECT_FALSE(bench.data().syncDone);
  EXPECT_FALSE(bench.data().syncIssued);
  EXPECT_EQ(bench.lastEntry().type, TraceType::SyncFinished);
}

TEST_F(SyncCompletion, SenseOfAnotherInterfaceIsNotRead) {
  *bench.data().deviceInterface = 1;
  Sense sense;
  sense.key = 4;
  sense.uec = 0x1234;
  EXPECT_EQ(bench.completeWithSense(4, sense), 0);
  EXPECT_FALSE(bench.data().syncDone);
  EXPECT_EQ(bench.lastEntry().type, TraceType::SyncFinished);
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
  EXPECT_EQ(bench.lastEntry().block, 0U);
}

/// The same, with a power toggle that is due and waits for the flush.
struct DueToggle : SyncCompletion {
  DueToggle() : clock(1700000010, 0) {
    bench.config().powerToggleCondition = onBit(bit::power);
    bench.config().syncCacheCondition = onBit(bit::sync);
    bench.config().powerToggleFreq = 10;
    bench.data().powerOnTime = 1700000000000.0;
    bench.shareRange(200, 4);
    bench.freeTag(0);
  }

  modeltest::FakeClock clock;
};

TEST_F(DueToggle, PowerIsCutInTheStepInWhichTheFlushCompletes) {
  EXPECT_EQ(bench.complete(4), 0);
  EXPECT_EQ(bench.thread().conditions, bit::power);
  EXPECT_EQ(bench.lastEntry().type, TraceType::PowerToggleOff);
}

TEST_F(DueToggle, AfterAFailedFlushAnotherOneIsIssued) {
  Sense sense;
  sense.key = 4;
  EXPECT_EQ(bench.completeWithSense(4, sense), 0);
  EXPECT_EQ(bench.thread().conditions, bit::sync);
  EXPECT_TRUE(bench.data().syncIssued);
  EXPECT_THAT(bench.takeTrace(),
              ElementsAre(Traced{TraceType::SyncFinished, 0, 0, 0, 4}, Traced{TraceType::SyncIssued, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace benchtest
