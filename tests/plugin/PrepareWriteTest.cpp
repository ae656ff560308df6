#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;
using vdl::agent::ActiveConditions;

constexpr uint32_t tag = 3;
constexpr vdl::BlockNum zeroBlock = 0xFF0000;

struct PrepareWrite : ::testing::Test {
  explicit PrepareWrite(const benchtest::Setup& setup = {}) : bench(setup) {
    bench.start();
    bench.shareRange(100, 8);
    bench.takeLog();
    bench.takeTrace();
  }

  int write(ActiveConditions active = {}, uint32_t on = tag) {
    vdl::agent::Step step = bench.step();
    return vdl::agent::doAWrite(step, on, active);
  }
  void onlyWriteSame() {
    bench.config().writeCondition = {};
    bench.config().writeSameCondition = onBit(bit::same);
  }
  void onlyTrim() {
    bench.config().writeCondition = {};
    bench.config().trimCondition = onBit(bit::trim);
  }
  Bytes block(size_t index, size_t unit = 512, size_t bytes = 512) {
    const Bytes all = bench.shown();
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(index * unit);
    return Bytes(first, first + static_cast<std::ptrdiff_t>(bytes));
  }
  void expectRecord(uint64_t cmdId, uint64_t lba, uint32_t xferLength) {
    ASSERT_EQ(bench.data().writeSent.size(), 1U);
    const auto& record = bench.data().writeSent.front();
    EXPECT_EQ(record.cmdId, cmdId);
    EXPECT_EQ(record.readCmdId, 0U);
    EXPECT_EQ(record.lba, lba);
    EXPECT_EQ(record.xferLength, xferLength);
    EXPECT_EQ(record.tagId, tag);
    EXPECT_EQ(record.readBack, 1);
    EXPECT_EQ(record.readBackOnError, 0);
  }

  SchedulingBench bench;
};

TEST_F(PrepareWrite, WriteSendsConsecutiveBucketsStampedWithLbaAndId) {
  bench.data().nextCmdId = 0x1234;
  *bench.data().skipGen = 0;
  ASSERT_EQ(write(), 0);
  const uint32_t bucket = *bench.data().bucketIndex;
  EXPECT_EQ(bucket, 45U) << "the low half of the first draw behind the pool of seed 1, modulo 64 - 8";
  ASSERT_EQ(bench.data().writeData->size, 8U * 512);
  EXPECT_EQ(bench.data().writeData->data, bench.data().tagBuffers.at(tag));
  EXPECT_FALSE(bench.data().writeData->owned);
  for (uint32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(block(i), stamped(bench.bucket(bucket + i), 100 + i, 0x1234)) << i;
  }
  EXPECT_EQ(bench.data().nextCmdId, 0x1235U);
  EXPECT_EQ(*bench.data().skipGen, 0U);
  expectRecord(0x1234, 100, 8);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(PrepareWrite, WriteIsRecordedBlockByBlockAndTraced) {
  ASSERT_EQ(write(), 0);
  const uint32_t bucket = *bench.data().bucketIndex;
  for (uint32_t i = 0; i < 8; ++i) {
    const vdl::PeekResult expected = bench.expected(100 + i);
    EXPECT_EQ(expected.status, 0);
    EXPECT_EQ(expected.block_num, bucket + i);
    EXPECT_TRUE(expected.embed.valid);
    EXPECT_EQ(expected.embed.cmd_id, 1U);
    EXPECT_EQ(expected.embed.lba, 100 + i);
    EXPECT_EQ(bench.refCount(100 + i), 1U);
  }
  EXPECT_EQ(bench.table().records().size(), 8U);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteIssued, 100, 8, 1, tag}));
  EXPECT_EQ(bench.lastEntry().block, bucket);
}

TEST_F(PrepareWrite, WithoutEmbedDataBucketsGoOutAsTheyAre) {
  bench.config().embedData = false;
  ASSERT_EQ(write(), 0);
  for (uint32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(block(i), bench.bucket(*bench.data().bucketIndex + i));
    EXPECT_FALSE(bench.expected(100 + i).embed.valid);
  }
}

TEST_F(PrepareWrite, WriteSameSendsOneBlockAndRecordsItsStampAndBucketForAll) {
  onlyWriteSame();
  ASSERT_EQ(write(), 0);
  const uint32_t bucket = *bench.data().bucketIndex;
  ASSERT_EQ(bench.data().writeData->size, 512U);
  EXPECT_EQ(bench.shown(), stamped(bench.bucket(bucket), 100, 1));
  for (uint64_t lba = 100; lba < 108; ++lba) {
    EXPECT_EQ(bench.expected(lba).block_num, bucket);
    EXPECT_TRUE(bench.expected(lba).embed.valid);
    EXPECT_EQ(bench.expected(lba).embed.lba, 100U);
  }
  EXPECT_EQ(bench.thread().conditions, bit::same);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteSameIssued, 100, 8, 1, tag}));
  EXPECT_EQ(bench.lastEntry().block, bucket);
  expectRecord(1, 100, 8);
}

TEST_F(PrepareWrite, TrimRecordsTheZeroBlockWithoutAStampAndLeavesWriteDataAlone) {
  onlyTrim();
  Bytes before(16, 0xAA);
  bench.data().writeData->view(before.data(), before.size());
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->data, before.data());
  EXPECT_EQ(bench.data().writeData->size, before.size());
  EXPECT_EQ(*bench.data().bucketIndex, zeroBlock);
  for (uint64_t lba = 100; lba < 108; ++lba) {
    EXPECT_EQ(bench.expected(lba).block_num, zeroBlock);
    EXPECT_FALSE(bench.expected(lba).embed.valid);
  }
  EXPECT_EQ(bench.thread().conditions, bit::trim);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::TrimIssued, 100, 8, 1, tag}));
  expectRecord(1, 100, 8);
  bench.data().writeData->release();
}

TEST_F(PrepareWrite, TrimDrawsNoBucket) {
  onlyTrim();
  ASSERT_EQ(write(), 0);
  bench.config().trimCondition = {};
  bench.config().writeCondition = onBit(bit::write);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().bucketIndex, 45U);
}

TEST_F(PrepareWrite, SkipCommandsRecordEveryOtherLbaWhileTheDataCarryConsecutiveOnes) {
  bench.config().useSkipCommands = true;
  ASSERT_EQ(write(), 0);
  const uint32_t bucket = *bench.data().bucketIndex;
  std::vector<uint64_t> lbas;
  for (const auto& record : bench.table().records()) {
    lbas.push_back(record.first);
  }
  EXPECT_THAT(lbas, ElementsAre(100, 102, 104, 106, 108, 110, 112, 114));
  for (uint32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(bench.expected(100 + 2 * i).block_num, bucket + i);
    EXPECT_EQ(bench.expected(100 + 2 * i).embed.lba, 100 + 2 * i);
    EXPECT_EQ(block(i), stamped(bench.bucket(bucket + i), 100 + i, 1));
  }
}

TEST_F(PrepareWrite, OneConfiguredKindIsTakenWhateverIsSelected) {
  ActiveConditions active;
  active.trim = true;
  active.writeSame = true;
  ASSERT_EQ(write(active), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::WriteIssued);
  EXPECT_EQ(bench.thread().conditions, bit::write);
}

TEST_F(PrepareWrite, AmongSeveralKindsTheSelectedOneIsTaken) {
  bench.config().writeSameCondition = onBit(bit::same);
  bench.config().trimCondition = onBit(bit::trim);
  ActiveConditions active;
  active.trim = true;
  ASSERT_EQ(write(active), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::TrimIssued);
  EXPECT_EQ(bench.thread().conditions, bit::trim);
}

TEST_F(PrepareWrite, TwoSelectedKindsAreRefusedWithTheirRecordKept) {
  bench.config().writeSameCondition = onBit(bit::same);
  ActiveConditions active;
  active.write = true;
  active.writeSame = true;
  bench.thread().conditions = bit::other;
  EXPECT_EQ(write(active), -1050);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Multiple write commands selected"},
                          LogLine{2, "doAWrite(): incompatible options or command selection (-1050)"}));
  EXPECT_EQ(bench.thread().conditions, bit::other);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_EQ(bench.data().nextCmdId, 2U);
  expectRecord(1, 100, 8);
}

TEST_F(PrepareWrite, NoSelectedKindIsRefused) {
  bench.config().trimCondition = onBit(bit::trim);
  EXPECT_EQ(write(), -1050);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "No write command selected"},
                          LogLine{2, "doAWrite(): incompatible options or command selection (-1050)"}));
  EXPECT_EQ(bench.thread().conditions, 0U);
  expectRecord(1, 100, 8);
}

TEST_F(PrepareWrite, NoConfiguredKindIsRefused) {
  bench.config().writeCondition = {};
  EXPECT_EQ(write(), -1050);
  EXPECT_EQ(bench.takeLog().at(0), (LogLine{2, "No write command selected"}));
}

TEST_F(PrepareWrite, TooLongTransferIsRefusedWithItsConditionAppliedAndItsRecordKept) {
  bench.shareRange(100, 65);
  EXPECT_EQ(write(), -1022);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Requested buffer too large: need=65, max=63"},
                                           LogLine{2, "doAWrite(): buffer too large or missing (-1022)"}));
  EXPECT_EQ(bench.thread().conditions, bit::write);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_TRUE(bench.table().records().empty());
  expectRecord(1, 100, 65);
}

TEST_F(PrepareWrite, WrongSelectionReplacesTheStatusOfATooLongTransfer) {
  bench.config().writeCondition = {};
  bench.shareRange(100, 65);
  EXPECT_EQ(write(), -1050);
  EXPECT_THAT(
      bench.takeLog(),
      ElementsAre(LogLine{2, "Requested buffer too large: need=65, max=63"}, LogLine{2, "No write command selected"},
                  LogLine{2, "doAWrite(): incompatible options or command selection (-1050)"}));
}

TEST_F(PrepareWrite, TransferAsLongAsThePoolStartsAtItsFirstBucket) {
  bench.shareRange(100, 64);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().bucketIndex, 0U);
  ASSERT_EQ(bench.data().writeData->size, 64U * 512);
  EXPECT_EQ(block(63), stamped(bench.bucket(63), 163, 1));
  EXPECT_EQ(bench.expected(163).block_num, 63U);
}

TEST_F(PrepareWrite, LengthZeroAssemblesOneBlockAndRecordsNone) {
  bench.shareRange(100, 0);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->size, 512U);
  EXPECT_TRUE(bench.table().records().empty());
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteIssued, 100, 0, 1, tag}));
}

TEST_F(PrepareWrite, EndToEndWritesLeaveTheirFieldBehindEverySectorAsItWas) {
  bench.config().e2eCondition = onBit(bit::e2e);
  bench.thread().conditions = bit::e2e;
  uint8_t* buffer = bench.data().tagBuffers.at(tag);
  std::fill_n(buffer, bench.data().tagBufferBytes.at(tag), uint8_t{0x5A});
  bench.shareRange(100, 4);
  ASSERT_EQ(write(), 0);
  ASSERT_EQ(bench.data().writeData->size, 4U * 520);
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(block(i, 520), stamped(bench.bucket(*bench.data().bucketIndex + i), 100 + i, 1));
    const Bytes whole = block(i, 520, 520);
    EXPECT_EQ(Bytes(whole.begin() + 512, whole.end()), Bytes(8, 0x5A)) << i;
  }
}

TEST_F(PrepareWrite, EndToEndSelectionCountsAsItWasBeforeTheWritesOwnCondition) {
  bench.config().e2eCondition = onBit(bit::e2e);
  bench.config().writeCondition = onBit(bit::write | bit::e2e);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->size, 8U * 512);
  bench.config().writeCondition = vdl::Condition{bit::write, 0, bit::e2e, false};
  bench.thread().conditions = bit::e2e;
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->size, 8U * 520);
  EXPECT_EQ(bench.thread().conditions, bit::write);
}

TEST_F(PrepareWrite, HostManagedWritesTakeTheTestsRangeAndCountIt) {
  *bench.data().hostManaged = 1;
  *bench.data().writeLBA = 700;
  *bench.data().writeXferLength = 3;
  *bench.data().writeCmdUsed = 5;
  *bench.data().skipGen = 0;
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().lba, 700U);
  EXPECT_EQ(*bench.data().xferLength, 3U);
  EXPECT_EQ(*bench.data().writeCmdUsed, 6U);
  EXPECT_EQ(*bench.data().skipGen, 1U);
  expectRecord(1, 700, 3);
  EXPECT_TRUE(bench.hasRecord(702));
}

TEST_F(PrepareWrite, HostManagedWritesLeaveTheGeneratorAloneWhenTheAgentMixesWrites) {
  *bench.data().hostManaged = 1;
  bench.data().skipGenOnList = false;
  *bench.data().skipGen = 0;
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().skipGen, 0U);
}

TEST_F(PrepareWrite, HostManagedWritesAreCountedOnlyWhereTheTestCountsThem) {
  *bench.data().hostManaged = 1;
  *bench.data().writeLBA = 700;
  *bench.data().writeXferLength = 3;
  bench.data().writeCmdUsed = nullptr;
  ASSERT_EQ(write(), 0);
  expectRecord(1, 700, 3);
}

TEST_F(PrepareWrite, HostManagedWritesWithoutTheTestsRangeAreOrdinary) {
  *bench.data().hostManaged = 1;
  uint64_t* const range = std::exchange(bench.data().writeLBA, nullptr);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().lba, 100U);
  bench.data().writeLBA = range;
  bench.data().writeXferLength = nullptr;
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().lba, 100U);
  bench.data().hostManaged = nullptr;
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().lba, 100U);
}

TEST_F(PrepareWrite, OrdinaryWritesLeaveTheHostManagedVariablesAlone) {
  *bench.data().writeLBA = 700;
  *bench.data().writeCmdUsed = 5;
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(*bench.data().lba, 100U);
  EXPECT_EQ(*bench.data().writeCmdUsed, 5U);
}

TEST_F(PrepareWrite, OwnedWriteDataIsFreedBeforeTheTagsBufferIsShown) {
  ASSERT_EQ(bench.data().writeData->reserve(100), 0);
  ASSERT_TRUE(bench.data().writeData->owned);
  ASSERT_EQ(write(), 0);
  EXPECT_EQ(bench.data().writeData->data, bench.data().tagBuffers.at(tag));
  EXPECT_FALSE(bench.data().writeData->owned);
}

TEST_F(PrepareWrite, TagBeyondTheDriveIsOutOfRange) {
  try {
    write({}, 8);
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_THAT(error.what(), ::testing::HasSubstr("vector::_M_range_check"));
  }
}

struct PrepareProtectedWrite : PrepareWrite {
  PrepareProtectedWrite() : PrepareWrite({.blockSize = 4096, .protectionEnabled = true, .protectionBytes = 8}) {}
};

TEST_F(PrepareProtectedWrite, ProtectionInformationIsPartOfTheSector) {
  ASSERT_EQ(write(), 0);
  ASSERT_EQ(bench.data().writeData->size, 8U * 4104);
  for (uint32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(block(i, 4104, 4104), stamped(bench.bucket(*bench.data().bucketIndex + i), 100 + i, 1));
  }
}

}  // namespace
}  // namespace benchtest
