#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/CompletionBench.h"
#include "support/ScarceMemory.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

constexpr vdl::BlockNum unknown = vdl::block_num::unknown;
constexpr uint32_t noStatus = 0xFFFFFFFF;

struct DeviceReset : ::testing::Test {
  DeviceReset() { bench.start(); }

  std::string reset() {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(bench.deviceReset(), 0);
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
  }
  std::vector<uint64_t> readBackLbas() {
    std::vector<uint64_t> lbas;
    for (const auto& write : bench.data().writeFinished) {
      lbas.push_back(write.lba);
    }
    return lbas;
  }

  CompletionBench bench;
};

TEST_F(DeviceReset, NothingInFlightStillResetsTheTagVariables) {
  *bench.data().readDataIsValid = 1;
  *bench.data().lastTagID = 3;
  *bench.data().lastStatusByte = 0;
  bench.takeLog();
  EXPECT_EQ(reset(), "");
  EXPECT_EQ(*bench.data().readDataIsValid, 0U);
  EXPECT_EQ(*bench.data().lastTagID, 255U);
  EXPECT_EQ(*bench.data().lastStatusByte, noStatus);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
}

TEST_F(DeviceReset, FreeTagsStayAndTheVariablesAreResetAllTheSame) {
  CompletionBench idle;
  EXPECT_EQ(idle.startTest(), 0);
  *idle.data().lastStatusByte = 0;
  EXPECT_EQ(idle.deviceReset(), 0);
  EXPECT_EQ(*idle.data().lastTagID, 255U);
  EXPECT_EQ(*idle.data().lastStatusByte, noStatus);
  EXPECT_EQ(idle.host().tags().outstanding(), 0U);
}

TEST_F(DeviceReset, EveryTagIsTakenBackAndUnlocked) {
  ASSERT_EQ(bench.host().tags().outstanding(), 8U);
  Bytes bytes(16, 1);
  for (const char* name : {"ReadDataPtr[TagID]", "CDB[TagID]", "ParameterList[TagID]", "RecvCDB[TagID]"}) {
    bench.variables().tagged(name).set(5, bytes.data(), bytes.size());
  }
  reset();
  EXPECT_EQ(bench.host().tags().outstanding(), 0U);
  EXPECT_EQ(bench.host().tags().generation(5), 1U);
  EXPECT_EQ(bench.host().tags().front(), 0U);
  uint64_t size = 0;
  EXPECT_EQ(bench.data().readDataPtr->getData(5, &size), nullptr);
  EXPECT_EQ(bench.data().cdb->getData(5, &size), nullptr);
  EXPECT_EQ(bench.data().parameterList->getData(5, &size), nullptr);
  EXPECT_EQ(bench.data().recvCDB->getData(5, &size), bytes.data()) << "not the agent's to give back";
}

TEST_F(DeviceReset, OptionalBuffersMayBeAbsent) {
  bench.data().readDataPtr = nullptr;
  bench.data().parameterList = nullptr;
  reset();
  EXPECT_EQ(bench.host().tags().outstanding(), 0U);
}

TEST_F(DeviceReset, ReadsLostLastAreReadFirst) {
  bench.finishedWrite(10, 4, 1);
  bench.finishedWrite(20, 4, 2);
  bench.finishedWrite(30, 4, 3);
  const uint64_t a = bench.readBack(4);
  const uint64_t b = bench.readBack(5);
  bench.takeTrace();
  ASSERT_EQ(a, 4U);
  EXPECT_EQ(reset(), "re-queuing read cmd_id:4:4\nre-queuing read cmd_id:5:5\n");
  EXPECT_THAT(readBackLbas(), ElementsAre(20U, 10U, 30U));
  const auto& again = bench.data().writeFinished.front();
  EXPECT_EQ(again.cmdId, 0U);
  EXPECT_EQ(again.xferLength, 4U);
  EXPECT_EQ(again.spliceCheck, 0);
  EXPECT_EQ(again.spliceRetries, 0);
  EXPECT_EQ(bench.refCount(10), 1U);
  EXPECT_EQ(bench.waitingReads(10), 0U);
  EXPECT_THAT(bench.data().readSent, IsEmpty());
  EXPECT_THAT(bench.takeTrace(),
              ElementsAre(Traced{TraceType::ReadAborted, 10, 4, a, 4}, Traced{TraceType::ReadAborted, 20, 4, b, 5}));
}

TEST_F(DeviceReset, RequeuingLineHasDecimalAndHexadecimal) {
  bench.finishedWrite(10, 1, 1);
  bench.data().nextCmdId = 26;
  bench.readBack(4);
  EXPECT_EQ(reset(), "re-queuing read cmd_id:26:1a\n");
}

TEST_F(DeviceReset, LostReadIsReadAgainAndCompared) {
  bench.finishedWrite(10, 4, 1);
  bench.readBack(4);
  reset();
  bench.holdTags();
  bench.readBack(6);
  bench.block(12)[40] ^= 1;
  EXPECT_EQ(bench.completeRead(6), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, 12U);
}

TEST_F(DeviceReset, LostSpliceCheckStaysOneWithFreshRetries) {
  bench.config().writeSpliceDetection = true;
  bench.write(10, 4, 1);
  EXPECT_EQ(bench.complete(1, CompletionBench::aborted), 0);
  bench.readBack(4);
  bench.data().readSent.front().spliceRetries = 1;
  reset();
  ASSERT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeFinished.front().spliceCheck, 1);
  EXPECT_EQ(bench.data().writeFinished.front().spliceRetries, 0);
}

TEST_F(DeviceReset, LostPlainWriteWithoutSpliceDetectionLeavesNothingToReadBack) {
  bench.write(10, 4, 1);
  EXPECT_EQ(reset(), "");
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_EQ(bench.bucketOf(10), unknown);
  EXPECT_EQ(bench.refCount(10), 1U) << "nobody pays this reference off";
  EXPECT_FALSE(bench.data().referencesBalanced);
}

TEST_F(DeviceReset, LostPlainWriteIsCheckedForASplice) {
  bench.config().writeSpliceDetection = true;
  bench.finishedWrite(50, 1, 2);
  const uint64_t id = bench.write(10, 4, 1);
  reset();
  ASSERT_EQ(bench.data().writeFinished.size(), 2U);
  const auto& lost = bench.data().writeFinished.back();
  EXPECT_EQ(lost.cmdId, id);
  EXPECT_EQ(lost.lba, 10U);
  EXPECT_EQ(lost.xferLength, 4U);
  EXPECT_EQ(lost.spliceCheck, 1);
  EXPECT_EQ(lost.spliceRetries, 0);
  EXPECT_TRUE(bench.data().referencesBalanced);
}

TEST_F(DeviceReset, LostAtomicWriteIsReadBackAsDataWhateverTheSpliceOption) {
  for (const bool splice : {false, true}) {
    CompletionBench own;
    own.config().writeSpliceDetection = splice;
    own.start();
    own.finishedWrite(10, 5, 1);
    const uint64_t id = own.atomicWrite(10, 4, 4, 2);
    EXPECT_EQ(own.deviceReset(), 0);
    const auto& lost = own.data().writeFinished.back();
    EXPECT_EQ(lost.cmdId, id);
    EXPECT_EQ(lost.spliceCheck, 0) << splice;
    EXPECT_EQ(own.table().peek(10).block_type, vdl::BlockType::Atomic);
  }
}

TEST_F(DeviceReset, PreReadsAndVerifiesAreNotIssuedAgain) {
  bench.finishedWrite(10, 4, 1);
  bench.verifyBack(6);
  bench.atomicWrite(300, 4, 4, 2);
  ASSERT_EQ(bench.data().preReadSent.size(), 1U);
  EXPECT_EQ(reset(), "");
  EXPECT_THAT(bench.data().verifySent, IsEmpty());
  EXPECT_THAT(bench.data().preReadSent, IsEmpty());
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  EXPECT_THAT(bench.data().preReadRequeue, IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(DeviceReset, FinishedPreReadsStay) {
  bench.atomicWrite(300, 4, 4, 2);
  EXPECT_EQ(bench.completeRead(2, Bytes(2048, 0x11)), 0);
  reset();
  EXPECT_EQ(bench.data().preReadFinished.size(), 1U);
  EXPECT_EQ(bench.refCount(300), 1U);
}

TEST_F(DeviceReset, KindsAreAccountedForInOrder) {
  bench.finishedWrite(10, 4, 0);
  bench.finishedWrite(20, 4, 0);
  bench.finishedWrite(30, 4, 0);
  bench.finishedWrite(40, 5, 0);
  bench.finishedWrite(60, 1, 0);
  const uint64_t a = bench.readBack(1);
  const uint64_t b = bench.readBack(2);
  const uint64_t v = bench.verifyBack(3);
  const uint64_t c = bench.write(70, 4, 4);
  const uint64_t d = bench.atomicWrite(40, 4, 4, 5);
  const uint64_t p = bench.atomicWrite(300, 4, 4, 6);
  bench.takeTrace();
  reset();
  EXPECT_THAT(bench.takeTrace(),
              ElementsAre(Traced{TraceType::ReadAborted, 300, 4, p, 6}, Traced{TraceType::VerifyAborted, 30, 4, v, 3},
                          Traced{TraceType::ReadAborted, 10, 4, a, 1}, Traced{TraceType::ReadAborted, 20, 4, b, 2},
                          Traced{TraceType::WriteAborted, 70, 4, c, 4}, Traced{TraceType::WriteAborted, 40, 4, d, 5}));
  // The lost reads, last first; what was waiting before; the lost atomic write.
  EXPECT_THAT(readBackLbas(), ElementsAre(20U, 10U, 40U, 60U, 40U));
  EXPECT_EQ(bench.data().writeFinished.back().cmdId, d);
  EXPECT_EQ(bench.data().writeFinished.back().spliceCheck, 0);
  EXPECT_EQ(bench.refCount(70), 1U);
}

TEST_F(DeviceReset, LateCompletionOfALostCommandIsIgnored) {
  bench.finishedWrite(10, 4, 1);
  bench.readBack(2);
  bench.write(50, 4, 3);
  reset();
  bench.holdTags();
  bench.takeTrace();
  bench.takeLog();
  for (const uint32_t tag : {2U, 3U}) {
    EXPECT_EQ(bench.complete(tag), 0);
  }
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(DeviceReset, LackOfMemoryLosesNoCommandAndCountsNoneTwice) {
  bench.finishedWrite(10, 4, 1);
  bench.finishedWrite(20, 4, 2);
  bench.readBack(4);
  bench.readBack(5);
  // There is room for one more record, so that the second read's cannot be had.
  constexpr uint64_t placeholder = 999;
  auto& finished = bench.data().writeFinished;
  while (finished.size() + 1 < finished.capacity()) {
    finished.push_back({0, placeholder, 1, 0, 0});
  }
  bench.takeLog();
  ::testing::internal::CaptureStdout();
  {
    const ScarceMemory scarce(ScarceMemory::Kind::throwing, 40, 1);
    EXPECT_EQ(bench.deviceReset(), -1002);
    EXPECT_EQ(scarce.failed(), 1U);
  }
  finished.eraseIf([](const auto& record) { return record.lba == placeholder; });
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("deviceReset", -1002)));
  EXPECT_EQ(bench.data().readSent.size(), 1U);
  EXPECT_EQ(bench.deviceReset(), 0);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "re-queuing read cmd_id:3:3\nre-queuing read cmd_id:4:4\n");
  EXPECT_THAT(readBackLbas(), ElementsAre(20U, 10U));
  EXPECT_EQ(bench.table().references(), 8U);
}

TEST_F(DeviceReset, KeptReadsThatWaitForALostWriteAreComparedNext) {
  bench.finishedWrite(10, 4, 1);
  bench.write(10, 4, 2);
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  reset();
  bench.holdTags();
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
}

TEST_F(DeviceReset, ResetAfterARefusedRestartTakesEverythingBackWithoutATrace) {
  bench.finishedWrite(10, 4, 1);
  bench.readBack(4);
  bench.write(20, 4, 2);
  bench.config().minQueueSize = 17;
  EXPECT_EQ(bench.startTest(), -1009);
  EXPECT_EQ(bench.data().trace, nullptr);
  EXPECT_EQ(reset(), "re-queuing read cmd_id:2:2\n");
  EXPECT_THAT(bench.data().readSent, IsEmpty());
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_THAT(readBackLbas(), ElementsAre(10U));
}

TEST_F(DeviceReset, SharedFlagMakesTheNextStepReset) {
  bench.finishedWrite(10, 4, 1);
  bench.readBack(4);
  // One tag is free: a step that could issue a command resets instead.
  bench.host().tags().release(7);
  *bench.data().deviceReset = true;
  bench.takeTrace();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(bench.idle(), 0);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "re-queuing read cmd_id:2:2\n");
  EXPECT_FALSE(*bench.data().deviceReset);
  EXPECT_EQ(bench.takeTrace().size(), 1U);
  EXPECT_EQ(bench.data().nextCmdId, 3U);
}

}  // namespace
}  // namespace benchtest
