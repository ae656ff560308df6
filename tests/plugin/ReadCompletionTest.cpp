#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <stdexcept>

#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

constexpr uint64_t lba = 100;
constexpr uint32_t length = 8;

/// A read of blocks 100 to 107 on tag 4, in flight.
struct ReadCompletion : ::testing::Test {
  ReadCompletion() { bench.start(); }

  void issue() {
    bench.finishedWrite(lba, length, 1);
    id = bench.readBack(4);
    bench.takeTrace();
    bench.takeLog();
  }
  /// A read that checks whether an aborted write left every block readable.
  void issueSpliceCheck() {
    bench.config().writeSpliceDetection = true;
    bench.write(lba, length, 1);
    ASSERT_EQ(bench.complete(1, CompletionBench::aborted), 0);
    id = bench.readBack(4);
    ASSERT_EQ(bench.data().readSent.front().spliceCheck, 1);
    bench.takeTrace();
    bench.takeLog();
  }
  bool nothingLeft() {
    return bench.table().records().empty() && bench.data().readSent.empty() && bench.data().comparableReads.empty() &&
           bench.data().writeFinished.empty();
  }

  CompletionBench bench;
  uint64_t id = 0;
};

TEST_F(ReadCompletion, GoodReadIsComparedAndEnds) {
  issue();
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_TRUE(nothingLeft());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, id, 4}));
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_FALSE(bench.data().failureSeen);
}

TEST_F(ReadCompletion, UnknownTagIsRefused) {
  issue();
  bench.data().readSent.front().tagId = 7;
  EXPECT_EQ(bench.completeRead(4), -1200);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "recvRead(): couldn't find read"}, bench.failure("execute", -1200)));
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
}

TEST_F(ReadCompletion, AbortedOrdinaryReadOnlyEndsItsBlocks) {
  issue();
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  EXPECT_TRUE(nothingLeft());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadAborted, lba, length, id, 4}));
}

TEST_F(ReadCompletion, AbortedSpliceCheckIsReadAgainBeforeOtherReadBacks) {
  issueSpliceCheck();
  bench.finishedWrite(300, 2, 2);
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  ASSERT_EQ(bench.data().writeFinished.size(), 2U);
  const auto& again = bench.data().writeFinished.front();
  EXPECT_EQ(again.cmdId, 0U);
  EXPECT_EQ(again.lba, lba);
  EXPECT_EQ(again.xferLength, length);
  EXPECT_EQ(again.spliceCheck, 1);
  EXPECT_EQ(again.spliceRetries, 1);
  EXPECT_FALSE(bench.hasRecord(lba));
  EXPECT_FALSE(bench.data().referencesBalanced);
}

TEST_F(ReadCompletion, RepeatedSpliceCheckHasNoReferenceOfItsOwn) {
  issueSpliceCheck();
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(bench.readBack(5), std::runtime_error);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "<E> readIssued !record && expect lba:64 cmd_id:3\n");
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("doARead", -1003)));
  EXPECT_EQ(bench.data().readSent.front().spliceRetries, 1);
}

TEST_F(ReadCompletion, SpliceCheckAbortedAgainIsDropped) {
  issueSpliceCheck();
  bench.data().readSent.front().spliceRetries = 1;
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  EXPECT_TRUE(nothingLeft());
}

TEST_F(ReadCompletion, AbortIgnoresWhatTheTableRefuses) {
  issue();
  EXPECT_EQ(bench.table().readFinished(id, 102, false).status, 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  ::testing::internal::GetCapturedStderr();
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(ReadCompletion, UnreadableSpliceCheckIsAWriteSplice) {
  issueSpliceCheck();
  EXPECT_EQ(bench.completeWithSense(4, {.key = 3, .asc = 0x11, .information = {}, .uec = 0x1234}), -1062);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Write Splice Detected at LBA 0x0000000000000064 Transfer Length 0x8"},
                          bench.failure("execute", -1062)));
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, id, 4},
                                             Traced{TraceType::WriteSplice, lba, length, id, 4}));
  EXPECT_EQ(bench.lastEntry().block, 0x1234U);
  EXPECT_EQ(bench.lastEntry().kcq.key, 3);
  EXPECT_EQ(bench.trace().slot(4).type, TraceType::ReadFinished);
  EXPECT_TRUE(bench.data().failureSeen);
  EXPECT_FALSE(bench.data().miscompareSeen);
}

TEST_F(ReadCompletion, FourUnitErrorCodesExcludeASplice) {
  for (const uint16_t uec : std::initializer_list<uint16_t>{0xF7C3, 0xF815, 0xF510, 0xF827}) {
    CompletionBench own;
    own.config().writeSpliceDetection = true;
    own.start();
    own.write(lba, length, 1);
    EXPECT_EQ(own.complete(1, CompletionBench::aborted), 0);
    const uint64_t read = own.readBack(4);
    own.takeTrace();
    own.takeLog();
    EXPECT_EQ(own.completeWithSense(4, {.key = 3, .asc = 0x11, .information = {}, .uec = uec}), 0) << uec;
    EXPECT_THAT(own.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, read, 4}));
    EXPECT_THAT(own.takeLog(), IsEmpty());
    EXPECT_FALSE(own.data().failureSeen);
    EXPECT_TRUE(own.table().records().empty());
  }
}

TEST_F(ReadCompletion, NeighboursOfTheExcludedCodesAreSplices) {
  for (const uint16_t uec : std::initializer_list<uint16_t>{0xF7C2, 0xF816, 0xF511, 0xF826, 0x0000}) {
    CompletionBench own;
    own.config().writeSpliceDetection = true;
    own.start();
    own.write(lba, length, 1);
    EXPECT_EQ(own.complete(1, CompletionBench::aborted), 0);
    own.readBack(4);
    EXPECT_EQ(own.completeWithSense(4, {.key = 4, .information = {}, .uec = uec}), -1062) << uec;
  }
}

TEST_F(ReadCompletion, InterfaceWithoutSenseDataMakesAnyFailureASplice) {
  *bench.data().deviceInterface = 1;
  issueSpliceCheck();
  EXPECT_EQ(bench.completeWithSense(4, {.key = 1, .information = {}, .uec = 0xF7C3}), -1062);
  EXPECT_EQ(bench.lastEntry().block, 0U);
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
}

TEST_F(ReadCompletion, UnreadableOrdinaryReadIsNoFinding) {
  issue();
  EXPECT_EQ(bench.completeWithSense(4, {.key = 3, .asc = 0x11, .information = 104, .uec = 0x1234}), 0);
  EXPECT_TRUE(nothingLeft());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, id, 4}));
  EXPECT_EQ(bench.lastEntry().kcq.code, 0x11);
  EXPECT_FALSE(bench.data().failureSeen);
}

TEST_F(ReadCompletion, UnreadableReadOfABlockWithoutARecordStopsThereUnlogged) {
  issue();
  EXPECT_EQ(bench.table().readFinished(id, 102, false).status, 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.completeWithSense(4, {.key = 4, .information = {}}), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("execute", -1003)));
  EXPECT_FALSE(bench.hasRecord(101));
  EXPECT_TRUE(bench.hasRecord(103));
}

TEST_F(ReadCompletion, ReadableSpliceCheckIsNeverCompared) {
  // Not even where the content is known.
  issue();
  bench.data().readSent.front().spliceCheck = 1;
  EXPECT_EQ(bench.completeRead(4, Bytes(size_t{length} * 512, 0xEE)), 0);
  EXPECT_TRUE(nothingLeft());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(ReadCompletion, ReadWithoutValidDataIsNotCompared) {
  issue();
  bench.setReadData(4, Bytes(size_t{length} * 512, 0xEE));
  *bench.data().readDataIsValid = 0;
  EXPECT_EQ(bench.complete(4), 0);
  EXPECT_TRUE(nothingLeft());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(ReadCompletion, ReadWithoutValidDataOfABlockWithoutARecordIsUnlogged) {
  issue();
  EXPECT_EQ(bench.table().readFinished(id, 102, false).status, 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.complete(4), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("execute", -1003)));
}

TEST_F(ReadCompletion, MissingDataAreReported) {
  issue();
  *bench.data().readDataIsValid = 1;
  EXPECT_EQ(bench.complete(4), -1022);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Read Buffer == NULL"}, bench.failure("recvRead", -1022),
                                           bench.failure("execute", -1022)));
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_THAT(bench.data().readSent, IsEmpty());
}

TEST_F(ReadCompletion, RecoveredErrorIsComparedWhole) {
  issue();
  Bytes bytes = bench.media(lba, length);
  bytes[3884] ^= 1;
  bench.setReadData(4, bytes);
  // The failing LBA of a recovered error does not shorten the compare.
  EXPECT_EQ(bench.completeWithSense(4, {.key = 1, .asc = 0x17, .ascq = 0x01, .information = 102}), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, 107U);
  const auto traced = bench.takeTrace();
  EXPECT_EQ(traced.front(), (Traced{TraceType::ReadFinished, lba, length, id, 4}));
  const auto finished = bench.trace().entry(bench.trace().count() - 2);
  EXPECT_EQ(finished.kcq.key, 1);
  EXPECT_EQ(finished.kcq.code, 0x17);
  EXPECT_EQ(finished.kcq.qual, 0x01);
}

TEST_F(ReadCompletion, ReadThatOvertakesWritesIsWarnedAboutAndWaits) {
  bench.finishedWrite(lba, length, 1);
  const uint64_t first = bench.write(98, 4, 2);
  const uint64_t second = bench.write(106, 4, 3);
  bench.write(108, 2, 5);
  bench.write(96, 2, 6);
  id = bench.readBack(4);
  bench.write(lba, length, 7);  // issued after the read
  bench.takeTrace();
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadFinished, lba, length, id, 4},
                                             Traced{TraceType::RecvOutOfOrder, first, 0, id, 4},
                                             Traced{TraceType::RecvOutOfOrder, second, 0, id, 4}));
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{1, "recvRead(): recv read 6 out of order before write 2"}));
  EXPECT_TRUE(bench.data().failureSeen);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  EXPECT_THAT(bench.data().comparableReads.front().pendingWrites, ElementsAre(first, second));
  EXPECT_EQ(bench.data().comparableReads.front().blockCount, length);
}

TEST_F(ReadCompletion, OvertakenWritesAreSortedById) {
  bench.finishedWrite(lba, length, 1);
  bench.write(lba, 1, 2);
  bench.write(lba + 1, 1, 3);
  id = bench.readBack(4);
  std::reverse(bench.data().writeSent.begin(), bench.data().writeSent.end());
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_THAT(bench.data().comparableReads.front().pendingWrites, ElementsAre(2U, 3U));
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{1, "recvRead(): recv read 4 out of order before write 2"}));
}

TEST_F(ReadCompletion, AdjacentWritesDoNotOverlap) {
  bench.finishedWrite(lba, length, 1);
  bench.write(lba - 1, 1, 2);
  bench.write(lba + length, 1, 3);
  bench.readBack(4);
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_FALSE(bench.data().failureSeen);
}

/// Skip commands without stamps: their data carry other LBAs than the table.
struct SkippedReadCompletion : ::testing::Test {
  SkippedReadCompletion() {
    bench.config().useSkipCommands = true;
    bench.config().embedData = false;
    bench.start();
  }
  CompletionBench bench;
};

TEST_F(SkippedReadCompletion, OtherParityNeverOverlaps) {
  bench.finishedWrite(100, 4, 1);
  bench.write(101, 4, 2);
  bench.readBack(4);
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_FALSE(bench.data().failureSeen);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
}

TEST_F(SkippedReadCompletion, SameParityOverlapsOverTheDoubledLength) {
  bench.finishedWrite(100, 4, 1);
  const uint64_t overtaken = bench.write(106, 4, 2);
  bench.readBack(4);
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4), 0);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  EXPECT_THAT(bench.data().comparableReads.front().pendingWrites, ElementsAre(overtaken));
  EXPECT_EQ(bench.data().comparableReads.front().lbaStep, 2);
}

TEST_F(SkippedReadCompletion, EndOfTheDoubledLengthDoesNotOverlap) {
  bench.finishedWrite(100, 4, 1);
  bench.write(108, 4, 2);
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_FALSE(bench.data().failureSeen);
}

TEST_F(SkippedReadCompletion, AbortEndsEveryOtherBlock) {
  bench.finishedWrite(100, 4, 1);
  bench.readBack(4);
  EXPECT_EQ(bench.complete(4, CompletionBench::aborted), 0);
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(ReadCompletion, KeptDataAreACopy) {
  bench.finishedWrite(lba, length, 1);
  const uint64_t overlapping = bench.write(lba, 1, 2);
  bench.readBack(4);
  Bytes bytes = bench.media(lba, length);
  EXPECT_EQ(bench.completeRead(4, bytes), 0);
  bench.setReadData(4, Bytes(size_t{length} * 512, 0xEE));
  const auto& kept = bench.data().comparableReads.front();
  EXPECT_TRUE(kept.data.owned);
  EXPECT_EQ(Bytes(kept.data.data, kept.data.data + kept.data.size), bytes);
  EXPECT_THAT(kept.pendingWrites, ElementsAre(overlapping));
}

TEST_F(ReadCompletion, DataBehindAReadThatFailsAreACopy) {
  bench.finishedWrite(lba, length, 1);
  bench.finishedWrite(300, 2, 5);
  bench.write(lba, 1, 2);
  bench.readBack(4);
  const uint64_t behind = bench.readBack(6);
  Bytes wrong = bench.media(lba, length);
  wrong[5 * 512] ^= 1;
  EXPECT_EQ(bench.completeRead(4, wrong), 0);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  // It waits for nothing any more, and fails in the step in which the next read finishes.
  bench.data().comparableReads.front().pendingWrites.clear();
  const Bytes bytes = bench.media(300, 2);
  EXPECT_EQ(bench.completeRead(6, bytes), -1046);
  bench.setReadData(6, Bytes(size_t{2} * 512, 0xEE));
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  const auto& kept = bench.data().comparableReads.front();
  EXPECT_EQ(kept.cmdId, behind);
  EXPECT_TRUE(kept.data.owned);
  EXPECT_EQ(Bytes(kept.data.data, kept.data.data + kept.data.size), bytes);
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
}

TEST_F(ReadCompletion, ComparedDataAreForgotten) {
  bench.finishedWrite(lba, length, 1);
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
  ASSERT_EQ(bench.data().spareReads.size(), 1U);
  EXPECT_EQ(bench.data().spareReads.front().data.data, nullptr);
}

}  // namespace
}  // namespace benchtest
