#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <stdexcept>

#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::AtomicHash;
using vdl::TraceType;

constexpr uint32_t tag = 3;
constexpr uint32_t unknownBlock = 0x80001;

/// The write of 8 blocks at LBA 100 is finished and is to be verified.
struct PrepareVerify : ::testing::Test {
  PrepareVerify() {
    bench.start();
    bench.config().verifyCondition = onBit(bit::verify);
    bench.config().readCondition = {};
  }

  void finishWrite(uint32_t xferLength = 8, WriteKind kind = WriteKind::plain) {
    bench.finishedWrite(100, xferLength, 1, kind);
    bench.thread().conditions = 0;
    bench.takeTrace();
    bench.takeLog();
  }
  int verify(uint32_t on = tag) {
    vdl::agent::Step step = bench.step();
    return vdl::agent::doAReadOrVerify(step, on, {});
  }
  void forget(uint64_t first, uint64_t last) { bench.table().invalidate(first, last, AtomicHash::InvalidateReplace); }
  void mark(uint64_t lba) { bench.table().invalidate(lba, lba, AtomicHash::InvalidateKeepPrior); }
  void expectVerify(uint64_t lba, uint32_t xferLength, bool expectMiscompare) {
    ASSERT_EQ(bench.data().verifySent.size(), 1U);
    const auto& record = bench.data().verifySent.front();
    EXPECT_EQ(record.cmdId, 2U);
    EXPECT_EQ(record.lba, lba);
    EXPECT_EQ(record.xferLength, xferLength);
    EXPECT_EQ(record.tagId, tag);
    EXPECT_EQ(record.expectMiscompare, expectMiscompare ? 1 : 0);
    EXPECT_EQ(*bench.data().lba, lba);
    EXPECT_EQ(*bench.data().xferLength, xferLength);
    EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::VerifyIssued, lba, xferLength, 2, tag}));
  }
  Bytes block(size_t index, size_t unit = 512) {
    const Bytes all = bench.shown();
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(index * unit);
    return Bytes(first, first + 512);
  }
  /// What is sent for an unknown block by a generator seeded with 5.
  Bytes unknownData(uint64_t cmdId) {
    vdl::RandomNumberGenerator<unsigned long> same;
    same.init(5, 0, std::numeric_limits<unsigned long>::max());
    const uint8_t* first = bench.data().buckets + same() % 64;
    Bytes bytes(first, first + 512);
    bytes[0] = 8;
    bytes[1] = 0;
    bytes[2] = 1;
    bytes[3] = 0;
    bytes[16] = 1;
    bytes[17] = static_cast<uint8_t>(cmdId);
    return bytes;
  }
  void seedFive() { bench.data().rng.init(5, 0, std::numeric_limits<unsigned long>::max()); }

  SchedulingBench bench;
};

TEST_F(PrepareVerify, KnownWriteIsVerifiedWithTheDataItWrote) {
  finishWrite();
  const vdl::BlockNum bucket = bench.bucketOf(100);
  ASSERT_EQ(verify(), 0);
  EXPECT_EQ(bench.shown(), bench.media(100, 8));
  EXPECT_EQ(bench.data().writeData->data, bench.data().tagBuffers.at(tag));
  EXPECT_FALSE(bench.data().writeData->owned);
  EXPECT_EQ(bench.thread().conditions, bit::verify);
  expectVerify(100, 8, false);
  EXPECT_EQ(bench.lastEntry().block, bucket);
  EXPECT_EQ(bench.lastEntry().flag, 0);
  for (uint64_t lba = 100; lba < 108; ++lba) {
    EXPECT_EQ(bench.refCount(lba), 0U);
    EXPECT_EQ(bench.waitingReads(lba), 1U);
  }
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(PrepareVerify, NothingIsDrawnForKnownBlocksOrPutBehindTheData) {
  finishWrite(4);
  uint8_t* const buffer = bench.data().tagBuffers.at(tag);
  ASSERT_GE(bench.data().tagBufferBytes.at(tag), 5U * 512);
  std::fill(buffer, buffer + size_t{5} * 512, uint8_t{0xEE});
  seedFive();
  ASSERT_EQ(verify(), 0);
  expectVerify(100, 4, false);
  ASSERT_EQ(bench.data().writeData->data, buffer);
  EXPECT_EQ(Bytes(buffer + size_t{4} * 512, buffer + size_t{5} * 512), Bytes(512, 0xEE));
  vdl::RandomNumberGenerator<unsigned long> same;
  same.init(5, 0, std::numeric_limits<unsigned long>::max());
  EXPECT_EQ(bench.data().rng(), same());
}

TEST_F(PrepareVerify, TwoUnknownBlocksAtTheStartAreLeftOut) {
  finishWrite();
  forget(100, 101);
  ASSERT_EQ(verify(), 0);
  expectVerify(102, 6, false);
  EXPECT_EQ(bench.shown(), bench.media(102, 6));
  EXPECT_FALSE(bench.hasRecord(100)) << "given up";
  EXPECT_FALSE(bench.hasRecord(101));
  EXPECT_EQ(bench.waitingReads(102), 1U);
}

TEST_F(PrepareVerify, FirstRunOfKnownBlocksIsTaken) {
  finishWrite();
  forget(100, 100);
  forget(104, 104);
  ASSERT_EQ(verify(), 0);
  expectVerify(101, 3, false);
  EXPECT_EQ(bench.shown(), bench.media(101, 3));
  for (uint64_t lba : {100U, 104U, 105U, 106U, 107U}) {
    EXPECT_FALSE(bench.hasRecord(lba)) << lba;
  }
}

TEST_F(PrepareVerify, InvalidatedBlockOfTheRunMakesAMiscompareExpected) {
  finishWrite();
  mark(105);
  ASSERT_EQ(verify(), 0);
  expectVerify(100, 8, true);
  EXPECT_EQ(bench.lastEntry().flag, 0);
}

TEST_F(PrepareVerify, InvalidatedFirstBlockIsMarkedInTheTrace) {
  finishWrite();
  mark(100);
  ASSERT_EQ(verify(), 0);
  expectVerify(100, 8, true);
  EXPECT_EQ(bench.lastEntry().flag, 1);
}

TEST_F(PrepareVerify, InvalidatedUnknownBlockThatEndsTheRunCounts) {
  finishWrite();
  forget(104, 104);
  mark(104);
  ASSERT_EQ(verify(), 0);
  expectVerify(100, 4, true);
}

TEST_F(PrepareVerify, InvalidatedBlocksOutsideTheRunDoNotCount) {
  finishWrite();
  forget(100, 100);
  mark(100);
  forget(104, 104);
  mark(105);
  ASSERT_EQ(verify(), 0);
  expectVerify(101, 3, false);
}

TEST_F(PrepareVerify, WithoutAKnownBlockTheWholeWriteIsSentWithDataThatCannotMatch) {
  finishWrite(1);
  forget(100, 100);
  seedFive();
  ASSERT_EQ(verify(), 0);
  EXPECT_EQ(bench.shown(), unknownData(2));
  expectVerify(100, 1, true);
  EXPECT_EQ(bench.lastEntry().block, unknownBlock);
  EXPECT_EQ(bench.waitingReads(100), 1U);
}

TEST_F(PrepareVerify, EveryUnknownBlockDrawsItsOwnBytes) {
  finishWrite(8);
  forget(100, 107);
  seedFive();
  ASSERT_EQ(verify(), 0);
  vdl::RandomNumberGenerator<unsigned long> same;
  same.init(5, 0, std::numeric_limits<unsigned long>::max());
  for (size_t i = 0; i < 8; ++i) {
    const uint8_t* bytes = bench.data().buckets + same() % 64;
    EXPECT_EQ(block(i)[8], bytes[8]) << i;
    EXPECT_EQ(block(i)[511], bytes[511]) << i;
    EXPECT_EQ(block(i)[0], 8) << i;
  }
  expectVerify(100, 8, true);
}

TEST_F(PrepareVerify, UnknownBlockCarriesALongIdBigEndian) {
  finishWrite(1);
  forget(100, 100);
  bench.data().nextCmdId = 0x010203;
  ASSERT_EQ(verify(), 0);
  const Bytes sent = bench.shown();
  EXPECT_EQ(Bytes(sent.begin() + 16, sent.begin() + 20), (Bytes{3, 1, 2, 3}));
}

TEST_F(PrepareVerify, WriteOfLengthZeroIsVerifiedAsOneBlock) {
  finishWrite(0);
  ASSERT_EQ(verify(), 0);
  expectVerify(100, 1, true);
  EXPECT_EQ(bench.data().writeData->size, 512U);
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(PrepareVerify, TrimmedBlocksAreVerifiedAsZeros) {
  bench.config().writeCondition = {};
  finishWrite(4, WriteKind::trim);
  ASSERT_EQ(verify(), 0);
  EXPECT_EQ(bench.shown(), Bytes(4 * 512, 0));
  expectVerify(100, 4, false);
  EXPECT_EQ(bench.lastEntry().block, 0xFF0000U);
}

TEST_F(PrepareVerify, WriteSameIsVerifiedWithItsFirstBlocksStampEverywhere) {
  bench.config().writeCondition = {};
  finishWrite(4, WriteKind::same);
  const vdl::BlockNum bucket = bench.bucketOf(100);
  ASSERT_EQ(verify(), 0);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(block(i), stamped(bench.bucket(bucket), 100, 1)) << i;
  }
}

TEST_F(PrepareVerify, WithoutEmbedDataBucketsGoOutAsTheyAre) {
  bench.config().embedData = false;
  finishWrite(2);
  const vdl::BlockNum bucket = bench.bucketOf(100);
  ASSERT_EQ(verify(), 0);
  EXPECT_EQ(block(0), bench.bucket(bucket));
  EXPECT_EQ(block(1), bench.bucket(bucket + 1));
}

TEST_F(PrepareVerify, EndToEndSelectionCountsAsItIsAfterTheVerifysOwnCondition) {
  finishWrite(4);
  bench.config().e2eCondition = onBit(bit::e2e);
  bench.config().verifyCondition = onBit(bit::verify | bit::e2e);
  ASSERT_EQ(verify(), 0);
  ASSERT_EQ(bench.data().writeData->size, 4U * 520);
  const Bytes stored = bench.media(100, 4);
  for (size_t i = 0; i < 4; ++i) {
    const auto first = stored.begin() + static_cast<std::ptrdiff_t>(i * 512);
    EXPECT_EQ(block(i, 520), Bytes(first, first + 512)) << i;
  }
}

TEST_F(PrepareVerify, OwnedWriteDataIsFreedBeforeTheTagsBufferIsShown) {
  finishWrite(4);
  ASSERT_EQ(bench.data().writeData->reserve(100), 0);
  ASSERT_EQ(verify(), 0);
  EXPECT_EQ(bench.data().writeData->data, bench.data().tagBuffers.at(tag));
  EXPECT_FALSE(bench.data().writeData->owned);
}

TEST_F(PrepareVerify, TagBeyondTheDriveIsOutOfRange) {
  finishWrite(4);
  try {
    verify(8);
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_THAT(error.what(), ::testing::HasSubstr("vector::_M_range_check"));
  }
}

TEST_F(PrepareVerify, BlockThatTheTableDoesNotKnowFailsAfterTheTrace) {
  finishWrite(4);
  bench.data().writeFinished.front().xferLength = 5;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(verify(), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAVerify(): no record or no matching event (-1003)"}));
  expectVerify(100, 4, false);
  EXPECT_EQ(bench.thread().conditions, bit::verify);
}

TEST_F(PrepareVerify, NoReadIsNotedOnceABlockBeforeTheRunIsRefused) {
  finishWrite();
  forget(100, 100);
  EXPECT_EQ(bench.table().readSkip(100), 0);
  ASSERT_FALSE(bench.hasRecord(100));
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(verify(), -1003);
  ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAVerify(): no record or no matching event (-1003)"}));
  expectVerify(101, 7, false);
  EXPECT_EQ(bench.waitingReads(101), 0U);
  EXPECT_EQ(bench.refCount(101), 1U);
}

TEST_F(PrepareVerify, SkipCommandsWalkEveryLbaAllTheSame) {
  bench.config().useSkipCommands = true;
  finishWrite(2);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(verify(), -1003);
  ::testing::internal::GetCapturedStderr();
  // LBA 101 was never written: it ends the run, and there is no claim on it to give up.
  expectVerify(100, 1, false);
  EXPECT_EQ(bench.waitingReads(100), 1U);
  EXPECT_EQ(bench.refCount(102), 1U);
}

}  // namespace
}  // namespace benchtest
