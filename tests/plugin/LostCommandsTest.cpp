#include "LostCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HardError.h"
#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;
using vdl::agent::commandLost;

constexpr vdl::BlockNum unknown = vdl::block_num::unknown;

struct LostCommands : ::testing::Test {
  LostCommands() { bench.start(); }
  CompletionBench bench;
};

TEST_F(LostCommands, PreReadIsTracedAndTouchesNoState) {
  const uint64_t id = bench.atomicWrite(100, 4, 4, 2);
  ASSERT_EQ(bench.data().preReadSent.size(), 1U);
  bench.takeTrace();
  commandLost(bench.data(), bench.data().preReadSent.front());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadAborted, 100, 4, id, 2}));
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_EQ(bench.data().preReadSent.size(), 1U) << "the record is the caller's to remove";
}

TEST_F(LostCommands, VerifyEndsItsBlocksForGood) {
  bench.finishedWrite(10, 4, 1);
  const uint64_t id = bench.verifyBack(6);
  bench.takeTrace();
  commandLost(bench.data(), bench.data().verifySent.front());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::VerifyAborted, 10, 4, id, 6}));
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(LostCommands, VerifyIgnoresSkipCommands) {
  bench.finishedWrite(10, 4, 1);
  bench.verifyBack(6);
  bench.config().useSkipCommands = true;
  commandLost(bench.data(), bench.data().verifySent.front());
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(LostCommands, ReadLeavesAReferenceForItsRepetition) {
  bench.finishedWrite(10, 4, 1);
  const uint64_t id = bench.readBack(4);
  EXPECT_EQ(bench.refCount(10), 0U);
  bench.takeTrace();
  commandLost(bench.data(), bench.config(), bench.data().readSent.front());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::ReadAborted, 10, 4, id, 4}));
  for (uint64_t x = 10; x < 14; ++x) {
    EXPECT_EQ(bench.refCount(x), 1U);
    EXPECT_EQ(bench.waitingReads(x), 0U);
    EXPECT_NE(bench.bucketOf(x), unknown);
  }
}

TEST_F(LostCommands, ReadOfFourWithSkipCommandsEndsEveryOtherBlock) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(10, 4, 1);
  bench.readBack(4);
  ::testing::internal::CaptureStderr();
  commandLost(bench.data(), bench.config(), bench.data().readSent.front());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << "no block beside them is asked for";
  for (const uint64_t x : {10U, 12U, 14U, 16U}) {
    EXPECT_EQ(bench.waitingReads(x), 0U) << x;
    EXPECT_EQ(bench.refCount(x), 1U) << x;
  }
  EXPECT_EQ(bench.table().records().size(), 4U);
}

TEST_F(LostCommands, PlainWriteLeavesItsBlocksUnknownAndReferenced) {
  const uint64_t id = bench.write(10, 4, 1);
  bench.takeTrace();
  commandLost(bench.data(), bench.config(), bench.data().writeSent.front());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteAborted, 10, 4, id, 1}));
  for (uint64_t x = 10; x < 14; ++x) {
    EXPECT_EQ(bench.bucketOf(x), unknown);
    EXPECT_EQ(bench.refCount(x), 1U);
  }
}

TEST_F(LostCommands, AtomicWriteStaysUndecided) {
  bench.finishedWrite(10, 5, 1);
  bench.atomicWrite(10, 4, 4, 2);
  commandLost(bench.data(), bench.config(), bench.data().writeSent.front());
  for (uint64_t x = 10; x < 14; ++x) {
    EXPECT_EQ(bench.table().peek(x).block_type, vdl::BlockType::Atomic);
    EXPECT_NE(bench.bucketOf(x), unknown);
  }
}

TEST_F(LostCommands, WriteOfFourWithSkipCommandsMarksEveryOtherBlock) {
  bench.config().useSkipCommands = true;
  bench.write(10, 4, 1);
  bench.config().useSkipCommands = false;
  bench.write(11, 1, 2);
  bench.config().useSkipCommands = true;
  commandLost(bench.data(), bench.config(), bench.data().writeSent.front());
  for (const uint64_t x : {10U, 12U, 14U, 16U}) {
    EXPECT_EQ(bench.bucketOf(x), unknown) << x;
  }
  EXPECT_NE(bench.bucketOf(11), unknown);
}

TEST_F(LostCommands, BlocksBehindALostCommandStayAsTheyAre) {
  // Commands of which the table knows more blocks than were lost.
  bench.finishedWrite(10, 4, 1);
  bench.verifyBack(6);
  bench.data().verifySent.front().xferLength = 3;
  commandLost(bench.data(), bench.data().verifySent.front());
  EXPECT_FALSE(bench.hasRecord(12));
  EXPECT_EQ(bench.waitingReads(13), 1U);

  bench.finishedWrite(20, 4, 1);
  bench.readBack(4);
  bench.data().readSent.front().xferLength = 3;
  commandLost(bench.data(), bench.config(), bench.data().readSent.front());
  EXPECT_EQ(bench.waitingReads(22), 0U);
  EXPECT_EQ(bench.waitingReads(23), 1U);

  bench.write(30, 4, 1);
  bench.data().writeSent.front().xferLength = 3;
  commandLost(bench.data(), bench.config(), bench.data().writeSent.front());
  EXPECT_EQ(bench.bucketOf(32), unknown);
  EXPECT_NE(bench.bucketOf(33), unknown);
}

TEST_F(LostCommands, RefusalsOfTheTableAreIgnored) {
  bench.finishedWrite(10, 4, 1);
  const uint64_t id = bench.verifyBack(6);
  EXPECT_EQ(bench.table().readFinished(id, 11, false).status, 0);
  ::testing::internal::CaptureStderr();
  commandLost(bench.data(), bench.data().verifySent.front());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "<E> readFinished couldn't find record lba:b cmd_id:2\n");
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

/// The sense of a finished command through the framework's own parser.
struct SenseOfCommand : LostCommands {
  vdl::agent::SenseResult read(const Sense& sense) {
    bench.setSense(sense);
    return vdl::agent::readSense(bench.step());
  }
};

TEST_F(SenseOfCommand, SevenBytesAreHardAndSayNothing) {
  bench.setSense({.key = 1, .asc = 0x17, .information = 5, .uec = 0x1234});
  bench.data().lastErrSenseData->size = 7;
  const vdl::agent::SenseResult result = vdl::agent::readSense(bench.step());
  EXPECT_TRUE(result.hard);
  EXPECT_EQ(result.kcq.key, 0);
  EXPECT_EQ(result.kcq.code, 0);
  EXPECT_EQ(result.uec, 0);
  EXPECT_EQ(result.informationValid, 0);
  EXPECT_EQ(result.information, 0U);
}

TEST_F(SenseOfCommand, RecoveredErrorIsNotHardButReadWhole) {
  const auto result = read({.key = 1, .asc = 0x17, .ascq = 0x02, .information = 123456, .uec = 0xF510});
  EXPECT_FALSE(result.hard);
  EXPECT_EQ(result.kcq.key, 1);
  EXPECT_EQ(result.kcq.code, 0x17);
  EXPECT_EQ(result.kcq.qual, 0x02);
  EXPECT_EQ(result.uec, 0xF510);
  EXPECT_EQ(result.informationValid, 0);
}

TEST_F(SenseOfCommand, MediumErrorNamesItsFailingLba) {
  const auto result = read({.key = 3, .asc = 0x11, .information = 123456});
  EXPECT_TRUE(result.hard);
  EXPECT_EQ(result.informationValid, 1);
  EXPECT_EQ(result.information, 123456U);
}

TEST_F(SenseOfCommand, FailingLbaIsReadWhenTheCallerSaysThatItIsValid) {
  bench.setSense({.key = 4, .information = 123456});
  vdl::SenseParser::Kcq kcq;
  vdl::SenseParser::Uec uec = 0;
  uint64_t failing = 0;
  for (const uint8_t caller : {uint8_t{0}, uint8_t{1}}) {
    uint8_t valid = caller;
    failing = 7;
    EXPECT_TRUE(vdl::agent::checkForHardError(*bench.data().lastErrSenseData, kcq, uec, valid, failing));
    EXPECT_EQ(failing, caller == 0 ? 7U : 123456U);
  }
}

TEST_F(SenseOfCommand, UnknownFormatIsHard) {
  bench.setSense({.key = 1, .information = {}});
  bench.data().lastErrSenseData->data[0] = 0x7F;
  EXPECT_TRUE(vdl::agent::readSense(bench.step()).hard);
}

TEST_F(SenseOfCommand, DeviceInterfaceWithoutSenseDataIsHardAndSaysNothing) {
  *bench.data().deviceInterface = 2;
  const auto result = read({.key = 1, .asc = 0x17, .information = 5, .uec = 0x1234});
  EXPECT_TRUE(result.hard);
  EXPECT_EQ(result.kcq.key, 0);
  EXPECT_EQ(result.uec, 0);
}

}  // namespace
}  // namespace benchtest
