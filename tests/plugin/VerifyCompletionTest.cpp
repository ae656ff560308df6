#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

constexpr uint64_t lba = 100;
constexpr uint32_t length = 8;
constexpr uint32_t good = 0;
const LogLine unexpected{2,
                         "Miscompare Detected with a Verify command at LBA 0x0000000000000064 Transfer Length 0x008"};
const LogLine missing{2, "Miscompare was expected from Verify command at LBA 0x0000000000000064 Transfer Length 0x008"};

/// A verify of blocks 100 to 107 on tag 6, in flight.
struct VerifyCompletion : ::testing::Test {
  VerifyCompletion() { bench.start(); }

  /// Of known content.
  void issue() {
    bench.finishedWrite(lba, length, 1);
    id = bench.verifyBack(6);
    bench.takeTrace();
    bench.takeLog();
  }
  /// Of content that a failed write left unknown; the drive must miscompare.
  void issueUnknown() {
    bench.config().writeSpliceDetection = true;
    bench.write(lba, length, 1);
    ASSERT_EQ(bench.complete(1, CompletionBench::aborted), 0);
    bench.data().writeFinished.front().spliceCheck = 0;
    id = bench.verifyBack(6);
    ASSERT_EQ(bench.data().verifySent.front().expectMiscompare, 1);
    bench.takeTrace();
    bench.takeLog();
  }
  int miscompared() { return bench.completeWithSense(6, {.key = 0x0E, .asc = 0x1D, .ascq = 0x00, .information = {}}); }

  void expectTriggered(bool flag) {
    EXPECT_TRUE(bench.data().miscompareSeen);
    EXPECT_EQ(bench.data().miscompareLBA, lba);
    const auto entry = bench.lastEntry();
    EXPECT_EQ(entry.type, TraceType::Miscompare);
    EXPECT_EQ(entry.lba, lba);
    EXPECT_EQ(entry.cmd_id, id);
    EXPECT_EQ(entry.block, 0U);
    EXPECT_EQ(entry.tag, 0U);
    EXPECT_EQ(entry.flag, flag ? 1 : 0);
  }

  CompletionBench bench;
  uint64_t id = 0;
};

TEST_F(VerifyCompletion, GoodVerifyEndsItsBlocks) {
  issue();
  EXPECT_EQ(bench.complete(6), 0);
  EXPECT_THAT(bench.data().verifySent, IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::VerifyFinished, lba, length, id, 6}));
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_FALSE(bench.data().miscompareSeen);
}

TEST_F(VerifyCompletion, UnknownTagIsRefused) {
  issue();
  bench.data().verifySent.front().tagId = 7;
  EXPECT_EQ(bench.complete(6), -1200);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "recvVerify(): couldn't find verify"}, bench.failure("execute", -1200)));
  EXPECT_EQ(bench.waitingReads(lba), 1U);
}

TEST_F(VerifyCompletion, MiscompareOfKnownContentIsReported) {
  issue();
  EXPECT_EQ(miscompared(), -1046);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(unexpected, bench.failure("recvVerify", -1046), bench.failure("execute", -1046)));
  const auto traced = bench.takeTrace();
  ASSERT_EQ(traced.size(), 2U);
  EXPECT_EQ(traced[0], (Traced{TraceType::VerifyFinished, lba, length, id, 6}));
  expectTriggered(false);
  EXPECT_EQ(bench.data().driveCompareData->size, 0U);
  EXPECT_EQ(bench.data().referenceCompareData->size, 0U);
}

TEST_F(VerifyCompletion, MiscompareTracesTheSense) {
  issue();
  bench.data().verifySent.front().expectMiscompare = 0;
  bench.setSense({.key = 0x0E, .asc = 0x1D, .ascq = 0x00, .information = {}, .uec = 0x1234});
  EXPECT_EQ(bench.complete(6, 2), -1046);
  const auto finished = bench.trace().entry(bench.trace().count() - 2);
  EXPECT_EQ(finished.block, 0x1234U);
  EXPECT_EQ(finished.kcq.key, 0x0E);
  EXPECT_EQ(finished.kcq.code, 0x1D);
  EXPECT_EQ(finished.kcq.qual, 0x00);
}

TEST_F(VerifyCompletion, MiscompareOfUnknownContentIsAcceptedSilently) {
  issueUnknown();
  EXPECT_EQ(miscompared(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_FALSE(bench.data().miscompareSeen);
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(VerifyCompletion, MissingMiscompareOfUnknownContentIsReported) {
  issueUnknown();
  EXPECT_EQ(bench.complete(6, good), -1046);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(missing, bench.failure("recvVerify", -1046), bench.failure("execute", -1046)));
  expectTriggered(true);
}

TEST_F(VerifyCompletion, UnexpectedMiscompareWinsOverAnExpectedOneOfKnownContent) {
  issue();
  bench.data().verifySent.front().expectMiscompare = 1;
  EXPECT_EQ(miscompared(), -1046);
  EXPECT_EQ(bench.takeLog().front(), unexpected);
  expectTriggered(true);
}

TEST_F(VerifyCompletion, ContentUnknownSinceTheIssueMayMiscompareEitherWay) {
  for (const bool drive : {false, true}) {
    CompletionBench own;
    own.start();
    own.finishedWrite(lba, length, 1);
    // A second write over the range fails while the verify is in flight: its blocks belong to the verify's history.
    own.write(lba, length, 2);
    own.verifyBack(6);
    EXPECT_EQ(own.complete(2, CompletionBench::aborted), 0);
    own.takeLog();
    own.setSense({.key = 0x0E, .asc = 0x1D, .information = {}});
    EXPECT_EQ(own.complete(6, drive ? 2 : 0), 0) << drive;
    EXPECT_THAT(own.takeLog(), IsEmpty());
  }
}

TEST_F(VerifyCompletion, UnfinishedAtomicWriteMayMiscompare) {
  bench.finishedWrite(lba, length, 1);
  bench.finishedWrite(lba + length, 1, 2);
  bench.atomicWrite(lba, length, 4, 3);
  id = bench.verifyBack(6);
  ASSERT_EQ(bench.table().peek(lba).block_type, vdl::BlockType::Atomic);
  bench.takeLog();
  EXPECT_EQ(miscompared(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(VerifyCompletion, InvalidatedContentMustMiscompareButMayNot) {
  for (const bool drive : {false, true}) {
    CompletionBench own;
    own.start();
    own.finishedWrite(lba, length, 1);
    own.table().invalidate(lba, lba, vdl::AtomicHash::InvalidateKeepPrior);
    const uint64_t verify = own.verifyBack(6);
    own.data().verifySent.front().expectMiscompare = 0;
    own.takeLog();
    own.setSense({.key = 0x0E, .asc = 0x1D, .information = {}});
    EXPECT_EQ(own.complete(6, drive ? 2 : 0), -1046);
    EXPECT_EQ(own.takeLog().front(), drive ? unexpected : missing);
    EXPECT_EQ(own.lastEntry().cmd_id, verify);
    EXPECT_EQ(own.lastEntry().flag, 1);
  }
}

TEST_F(VerifyCompletion, AbortedVerifyEndsItsBlocksAndJudgesNothing) {
  issueUnknown();
  EXPECT_EQ(bench.complete(6, CompletionBench::aborted), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::VerifyAborted, lba, length, id, 6}));
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_FALSE(bench.data().miscompareSeen);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(VerifyCompletion, OnlyACheckConditionIsAMiscompare) {
  issue();
  bench.setSense({.key = 0x0E, .asc = 0x1D, .information = {}});
  EXPECT_EQ(bench.complete(6, 8), 0);
  EXPECT_FALSE(bench.data().miscompareSeen);
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
}

TEST_F(VerifyCompletion, OtherSenseIsNoMiscompare) {
  const Sense others[] = {{.key = 3, .asc = 0x1D, .information = {}},
                          {.key = 0x0E, .asc = 0x1D, .ascq = 1, .information = {}},
                          {.key = 0x0E, .asc = 0x1E, .information = {}},
                          {.key = 1, .asc = 0x1D, .information = {}}};
  for (const Sense& sense : others) {
    CompletionBench own;
    own.start();
    own.finishedWrite(lba, length, 1);
    own.verifyBack(6);
    own.takeLog();
    EXPECT_EQ(own.completeWithSense(6, sense), 0);
    EXPECT_THAT(own.takeLog(), IsEmpty());
    EXPECT_EQ(own.lastEntry().kcq.key, sense.key);
  }
}

TEST_F(VerifyCompletion, InterfaceWithoutSenseDataReportsNoMiscompare) {
  *bench.data().deviceInterface = 1;
  issue();
  EXPECT_EQ(miscompared(), 0);
  EXPECT_FALSE(bench.data().miscompareSeen);
  EXPECT_EQ(bench.lastEntry().kcq.key, 0);
}

TEST_F(VerifyCompletion, InterfaceWithoutSenseDataMissesAnExpectedMiscompare) {
  *bench.data().deviceInterface = 1;
  issueUnknown();
  EXPECT_EQ(miscompared(), -1046);
  EXPECT_EQ(bench.takeLog().front(), missing);
}

TEST_F(VerifyCompletion, BlockWithoutARecordEndsTheWalk) {
  issue();
  EXPECT_EQ(bench.table().readFinished(id, 102, false).status, 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.complete(6), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Could not find Read LBA in Hash Table at LBA 0x0000000000000066"},
                          bench.failure("recvVerify", -1003), bench.failure("execute", -1003)));
  EXPECT_FALSE(bench.hasRecord(101));
  EXPECT_EQ(bench.waitingReads(103), 1U);
}

TEST_F(VerifyCompletion, BlockWithoutARecordCountsAsUnknown) {
  issue();
  EXPECT_EQ(bench.table().readFinished(id, 102, false).status, 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(miscompared(), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(bench.data().miscompareSeen);
}

TEST_F(VerifyCompletion, AbortHidesABlockWithoutARecord) {
  issue();
  EXPECT_EQ(bench.table().readFinished(id, 102, false).status, 0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.complete(6, CompletionBench::aborted), 0);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Could not find Read LBA in Hash Table at LBA 0x0000000000000066"}));
}

TEST_F(VerifyCompletion, SkipCommandsDoNotSparseAVerify) {
  issue();
  bench.config().useSkipCommands = true;
  EXPECT_EQ(bench.complete(6), 0);
  EXPECT_TRUE(bench.table().records().empty());
}

}  // namespace
}  // namespace benchtest
