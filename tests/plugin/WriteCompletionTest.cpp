#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;
using WriteFinished = vdl::Corvane::CmdStatus::WriteFinished;

constexpr vdl::BlockNum unknown = vdl::block_num::unknown;
constexpr uint32_t lba = 100;
constexpr uint32_t length = 8;

/// A write of blocks 100 to 107 on tag 3, in flight.
struct WriteCompletion : ::testing::Test {
  WriteCompletion() { bench.start(); }

  void issue() {
    id = bench.write(lba, length, 3);
    bucket = bench.bucketOf(lba);
    bench.takeTrace();
    bench.takeLog();
  }

  void expectUnknown(uint64_t first, uint64_t end) {
    for (uint64_t x = first; x < end; ++x) {
      EXPECT_EQ(bench.bucketOf(x), unknown) << x;
    }
  }
  void expectBuckets(uint64_t first, uint64_t end) {
    for (uint64_t x = first; x < end; ++x) {
      EXPECT_EQ(bench.bucketOf(x), bucket + (x - lba)) << x;
    }
  }
  void expectNoRecords() { EXPECT_TRUE(bench.table().records().empty()); }

  void expectReadBack(uint8_t spliceCheck) {
    ASSERT_EQ(bench.data().writeFinished.size(), 1U);
    const WriteFinished& next = bench.data().writeFinished.front();
    EXPECT_EQ(next.cmdId, id);
    EXPECT_EQ(next.lba, lba);
    EXPECT_EQ(next.xferLength, length);
    EXPECT_EQ(next.spliceCheck, spliceCheck);
    EXPECT_EQ(next.spliceRetries, 0);
  }

  CompletionBench bench;
  uint64_t id = 0;
  vdl::BlockNum bucket = 0;
};

TEST_F(WriteCompletion, GoodWriteAwaitsItsReadBack) {
  issue();
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  expectReadBack(0);
  expectBuckets(lba, lba + length);
  EXPECT_EQ(bench.refCount(lba), 1U);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteFinished, lba, length, id, 3}));
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(WriteCompletion, GoodWriteWithoutReadBackGivesItsBlocksUp) {
  issue();
  bench.data().writeSent.front().readBack = 0;
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  expectNoRecords();
}

TEST_F(WriteCompletion, GoodAtomicWriteIsNoLongerTransparent) {
  bench.finishedWrite(lba, length + 1, 1);
  id = bench.atomicWrite(lba, length, 4, 3);
  EXPECT_EQ(bench.table().peek(lba).block_type, vdl::BlockType::Atomic);
  EXPECT_EQ(bench.complete(3), 0);
  for (uint64_t x = lba; x < lba + length; ++x) {
    EXPECT_EQ(bench.table().peek(x).block_type, vdl::BlockType::Normal) << x;
  }
  EXPECT_EQ(bench.data().writeFinished.back().cmdId, id);
}

TEST_F(WriteCompletion, UnknownTagIsRefused) {
  issue();
  bench.data().writeSent.front().tagId = 5;
  EXPECT_EQ(bench.complete(3), -1200);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "recvWrite(): Couldn't find write"}, bench.failure("execute", -1200)));
  EXPECT_EQ(bench.data().writeSent.size(), 1U);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
}

TEST_F(WriteCompletion, SecondCompletionOfATagIsIgnored) {
  issue();
  EXPECT_EQ(bench.complete(3), 0);
  bench.takeTrace();
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_EQ(bench.data().writeFinished.size(), 1U);
}

TEST_F(WriteCompletion, AbortedWriteWithoutSpliceDetectionIsNotReadBack) {
  issue();
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  expectNoRecords();
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteAborted, lba, length, id, 3}));
}

TEST_F(WriteCompletion, AbortedWriteWithoutSpliceDetectionLeavesEveryBlockUnknown) {
  // An older finished write keeps the records alive, so that the outcome can be seen.
  bench.finishedWrite(lba, length, 1);
  issue();
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  expectUnknown(lba, lba + length);
  EXPECT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.refCount(lba), 1U);
}

TEST_F(WriteCompletion, AbortedWriteIsCheckedForASplice) {
  bench.config().writeSpliceDetection = true;
  issue();
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  expectReadBack(1);
  expectUnknown(lba, lba + length);
  EXPECT_EQ(bench.takeTrace().back().type, TraceType::WriteAborted);
}

TEST_F(WriteCompletion, AbortedAtomicWriteIsReadBackAsDataWhateverTheSpliceOption) {
  for (const bool splice : {false, true}) {
    CompletionBench own;
    own.config().writeSpliceDetection = splice;
    own.start();
    own.finishedWrite(lba, length + 1, 1);
    const uint64_t atomic = own.atomicWrite(lba, length, 4, 3);
    EXPECT_EQ(own.complete(3, CompletionBench::aborted), 0);
    const WriteFinished& next = own.data().writeFinished.back();
    EXPECT_EQ(next.cmdId, atomic);
    EXPECT_EQ(next.spliceCheck, 0) << splice;
    EXPECT_EQ(own.table().peek(lba).block_type, vdl::BlockType::Atomic);
    EXPECT_NE(own.bucketOf(lba), unknown);
  }
}

TEST_F(WriteCompletion, HardErrorMakesEveryBlockUnknownAndChecksForASplice) {
  bench.config().writeSpliceDetection = true;
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 4, .asc = 0x44, .ascq = 0x01, .information = {}, .uec = 0x1234}), 0);
  expectReadBack(1);
  expectUnknown(lba, lba + length);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteFinished, lba, length, id, 3}));
  const auto entry = bench.lastEntry();
  EXPECT_EQ(entry.block, 0x1234U);
  EXPECT_EQ(entry.kcq.key, 4);
  EXPECT_EQ(entry.kcq.code, 0x44);
  EXPECT_EQ(entry.kcq.qual, 0x01);
}

TEST_F(WriteCompletion, FailingBlockBetweenTheLastOnesOfAllEndsTheWalkThere) {
  bench.config().useSkipCommands = true;
  const uint64_t first = ~uint64_t{0} - 4;
  id = bench.write(first, 2, 3);
  // Descriptor format; the failing LBA lies between the two blocks.
  Bytes sense = {0x72, 3, 0x11, 0, 0, 0, 0, 12, 0, 10, 0x80, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC};
  bench.data().lastErrSenseData->view(sense.data(), sense.size());
  EXPECT_EQ(bench.complete(3, CompletionBench::checkCondition), 0);
  EXPECT_EQ(bench.lastEntry().kcq.key, 3);
  expectNoRecords();
  bench.data().lastErrSenseData->release();
}

TEST_F(WriteCompletion, SenseDataThatWereCutEndWhereTheyWereCut) {
  issue();
  // Cut to 18 bytes, and still saying that 22 were there; what happens to stand behind them is not the drive's.
  bench.setSense({.key = 4, .asc = 0x44, .ascq = 0x01, .information = {}, .uec = 0x1234});
  bench.data().lastErrSenseData->size = 18;
  EXPECT_EQ(bench.complete(3, CompletionBench::checkCondition), 0);
  EXPECT_EQ(bench.lastEntry().kcq.code, 0x44);
  EXPECT_EQ(bench.lastEntry().block, 0U);
}

TEST_F(WriteCompletion, HardErrorWithoutSpliceDetectionIsNotReadBack) {
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 4, .information = {}}), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  expectNoRecords();
}

TEST_F(WriteCompletion, MediumErrorNeedsNoSpliceCheck) {
  bench.config().writeSpliceDetection = true;
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .asc = 0x11, .information = {}}), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  expectNoRecords();
}

TEST_F(WriteCompletion, MediumErrorOfAnAtomicWriteIsStillReadBack) {
  bench.config().writeSpliceDetection = true;
  bench.finishedWrite(lba, length + 1, 1);
  id = bench.atomicWrite(lba, length, 4, 3);
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = {}}), 0);
  EXPECT_EQ(bench.data().writeFinished.back().cmdId, id);
  EXPECT_EQ(bench.data().writeFinished.back().spliceCheck, 0);
  EXPECT_EQ(bench.table().peek(lba).block_type, vdl::BlockType::Atomic);
}

TEST_F(WriteCompletion, BlocksBeforeTheFailingLbaKeepTheirExpectation) {
  bench.config().writeSpliceDetection = true;
  bench.finishedWrite(lba, length, 1);
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .asc = 0x11, .information = 104}), 0);
  expectBuckets(100, 104);
  expectUnknown(104, 108);
  EXPECT_EQ(bench.data().writeFinished.size(), 1U);  // the older write's
  EXPECT_EQ(bench.refCount(100), 1U);
  EXPECT_EQ(bench.refCount(107), 1U);
  EXPECT_EQ(bench.lastEntry().kcq.key, 3);
  EXPECT_EQ(bench.lastEntry().kcq.code, 0x11);
}

TEST_F(WriteCompletion, BlocksBeforeTheFailingLbaOfAnAtomicWriteStayUnfinished) {
  bench.finishedWrite(lba, length + 1, 1);
  id = bench.atomicWrite(lba, length, 4, 3);
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = 104}), 0);
  for (uint64_t x = lba; x < lba + length; ++x) {
    EXPECT_EQ(bench.table().peek(x).block_type, vdl::BlockType::Atomic) << x;
  }
}

TEST_F(WriteCompletion, FailingLbaWithoutValidBitIsNotUsed) {
  bench.finishedWrite(lba, length, 1);
  issue();
  bench.setSense({.key = 3, .information = 104});
  bench.data().lastErrSenseData->data[0] = 0x70;
  EXPECT_EQ(bench.complete(3, CompletionBench::checkCondition), 0);
  expectUnknown(100, 108);
}

TEST_F(WriteCompletion, FailingLbaOfAnotherSenseKeyIsNotUsed) {
  bench.finishedWrite(lba, length, 1);
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 4, .information = 104}), 0);
  expectUnknown(100, 108);
}

TEST_F(WriteCompletion, FailingLbaFarBelowTheCommandMarksItWhole) {
  // So far that a walk from there would not end.
  constexpr uint64_t far = uint64_t{1} << 48;
  bench.finishedWrite(far, length, 1);
  bench.write(far, length, 3);
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = 0}), 0);
  expectUnknown(far, far + length);
}

TEST_F(WriteCompletion, FailingLbaZeroMarksACommandBesideIt) {
  for (const bool skip : {false, true}) {
    CompletionBench other;
    other.start();
    other.config().useSkipCommands = skip;
    const uint64_t step = skip ? 2 : 1;
    other.finishedWrite(step, 3, 1);
    other.write(step, 3, 3);
    EXPECT_EQ(other.completeWithSense(3, {.key = 3, .information = 0}), 0);
    for (uint64_t x = step; x < 4 * step; x += step) {
      EXPECT_EQ(other.bucketOf(x), unknown) << x;
    }
  }
}

TEST_F(WriteCompletion, FailingLbaBehindTheCommandMarksNothing) {
  bench.finishedWrite(lba, length, 1);
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = 108}), 0);
  expectBuckets(100, 108);
}

TEST_F(WriteCompletion, RecoveredErrorIsGoodAndTraced) {
  bench.config().writeSpliceDetection = true;
  issue();
  EXPECT_EQ(bench.completeWithSense(3, {.key = 1, .asc = 0x17, .ascq = 0x02, .information = 104}), 0);
  expectReadBack(0);
  expectBuckets(lba, lba + length);
  const auto entry = bench.lastEntry();
  EXPECT_EQ(entry.type, TraceType::WriteFinished);
  EXPECT_EQ(entry.kcq.key, 1);
  EXPECT_EQ(entry.kcq.code, 0x17);
  EXPECT_EQ(entry.kcq.qual, 0x02);
}

TEST_F(WriteCompletion, OtherStatusCountsAsACheckCondition) {
  bench.config().writeSpliceDetection = true;
  issue();
  bench.setSense({.key = 4, .information = {}});
  EXPECT_EQ(bench.complete(3, 8), 0);
  expectReadBack(1);
  expectUnknown(lba, lba + length);
}

TEST_F(WriteCompletion, InterfaceWithoutSenseDataMakesEveryFailureHard) {
  bench.config().writeSpliceDetection = true;
  *bench.data().deviceInterface = 1;
  issue();
  // Were the sense data read, this would be a recovered error, and good.
  EXPECT_EQ(bench.completeWithSense(3, {.key = 1, .asc = 0x17, .information = 104, .uec = 0x1234}), 0);
  expectReadBack(1);
  expectUnknown(lba, lba + length);
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
  EXPECT_EQ(bench.lastEntry().kcq.code, 0);
  EXPECT_EQ(bench.lastEntry().block, 0U);
}

TEST_F(WriteCompletion, InterfaceWithoutSenseDataStillKnowsAborts) {
  *bench.data().deviceInterface = 1;
  issue();
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::WriteAborted);
}

TEST_F(WriteCompletion, LinkedWriteMakesNoReadBack) {
  issue();
  const uint64_t read = bench.readBack(4);
  EXPECT_EQ(bench.data().writeSent.front().readCmdId, read);
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  EXPECT_EQ(bench.data().readSent.front().spliceCheck, 0);
  EXPECT_EQ(bench.refCount(lba), 0U);
  EXPECT_EQ(bench.waitingReads(lba), 1U);
}

TEST_F(WriteCompletion, AbortedLinkedWriteTurnsItsReadIntoASpliceCheck) {
  bench.config().writeSpliceDetection = true;
  issue();
  bench.readBack(4);
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  ASSERT_EQ(bench.data().readSent.size(), 1U);
  EXPECT_EQ(bench.data().readSent.front().spliceCheck, 1);
}

TEST_F(WriteCompletion, AbortedLinkedWriteWithoutSpliceDetectionLeavesItsReadAlone) {
  issue();
  bench.readBack(4);
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_EQ(bench.data().readSent.front().spliceCheck, 0);
}

TEST_F(WriteCompletion, LinkedReadThatIsGoneIsNoError) {
  bench.config().writeSpliceDetection = true;
  issue();
  bench.readBack(4);
  bench.data().readSent.clear();
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(WriteCompletion, RefusedReadSkipIsLoggedAndEndsTheWalk) {
  issue();
  bench.data().writeSent.front().readBack = 0;
  EXPECT_EQ(bench.table().readSkip(102), 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.complete(3), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("recvWrite", -1003), bench.failure("execute", -1003)));
  EXPECT_FALSE(bench.hasRecord(101));
  EXPECT_TRUE(bench.hasRecord(103));
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
}

TEST_F(WriteCompletion, SkipCommandsTouchEveryOtherBlock) {
  bench.config().useSkipCommands = true;
  bench.config().writeSpliceDetection = true;
  id = bench.write(100, 3, 3);
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_EQ(bench.bucketOf(100), unknown);
  EXPECT_EQ(bench.bucketOf(102), unknown);
  EXPECT_EQ(bench.bucketOf(104), unknown);
  EXPECT_FALSE(bench.hasRecord(101));
  EXPECT_FALSE(bench.hasRecord(106));
  EXPECT_EQ(bench.data().writeFinished.front().xferLength, 3U);
}

TEST_F(WriteCompletion, SkipCommandsCountFromTheFailingLbaInTheSameStep) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(100, 4, 1);
  id = bench.write(100, 4, 3);
  bucket = bench.bucketOf(100);
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = 104}), 0);
  EXPECT_EQ(bench.bucketOf(100), bucket);
  EXPECT_EQ(bench.bucketOf(102), bucket + 1);
  EXPECT_EQ(bench.bucketOf(104), unknown);
  EXPECT_EQ(bench.bucketOf(106), unknown);
}

TEST_F(WriteCompletion, FailingLbaBelowTheCommandCountsInTheSameStepWithSkipCommands) {
  bench.config().useSkipCommands = true;
  const uint64_t older = bench.finishedWrite(100, 4, 1);
  for (const uint32_t failing : {99U, 98U, 1U, 0U}) {
    bench.write(100, 4, 3);
    EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = failing}), 0);
    // From there in steps of 2: to the command's own blocks, or past each of them.
    for (const uint64_t x : {100U, 102U, 104U, 106U}) {
      EXPECT_EQ(bench.bucketOf(x) == unknown, failing % 2 == 0) << failing << ": " << x;
    }
  }
  EXPECT_EQ(bench.data().writeFinished.front().cmdId, older);
}

TEST_F(WriteCompletion, FailingLbaOfTheOtherParityMarksNothingWithSkipCommands) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(100, 4, 1);
  id = bench.write(100, 4, 3);
  bucket = bench.bucketOf(100);
  EXPECT_EQ(bench.completeWithSense(3, {.key = 3, .information = 103}), 0);
  EXPECT_EQ(bench.bucketOf(104), bucket + 2);
  EXPECT_EQ(bench.bucketOf(106), bucket + 3);
}

TEST_F(WriteCompletion, WriteSameAndTrimCompleteLikeAWrite) {
  for (const WriteKind kind : {WriteKind::same, WriteKind::trim}) {
    const uint64_t issued = bench.write(200, 4, 2, kind);
    bench.takeTrace();
    EXPECT_EQ(bench.complete(2), 0);
    EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteFinished, 200, 4, issued, 2}));
    EXPECT_EQ(bench.data().writeFinished.back().cmdId, issued);
  }
}

TEST_F(WriteCompletion, NothingIsAbsorbedAfterAMiscompare) {
  issue();
  bench.data().miscompareSeen = true;
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_EQ(bench.data().writeSent.size(), 1U);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
}

}  // namespace
}  // namespace benchtest
