#include "WriteData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "BlockStamp.h"
#include "DriveData.h"
#include "Scheduling.h"
#include "SectorBuckets.h"
#include "support_model/Allocations.h"
#include "support_model/ModelFramework.h"

namespace vdl::agent {
namespace {

using Bytes = std::vector<uint8_t>;
using modeltest::LogLine;
using testing::ElementsAre;

/// A drive whose pool is filled and whose tags have buffers, as a started test has them.
class WriteDataTest : public testing::Test {
 protected:
  void SetUp() override {
    drive.thread.queueDepth = 4;
    ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
    data = static_cast<DriveData*>(drive.threadState.registered.at(0));
    *data->testMaxXferLength = 8;
    prepare(1, 16);
  }

  void TearDown() override { Corvane::freeDriveData(data); }

  void prepare(uint64_t seed, uint32_t buckets) {
    config.bucketCount = buckets;
    const uint64_t bytes = uint64_t{buckets} * sectorBytes(drive.thread);
    delete[] data->buckets;
    data->buckets = new uint8_t[bytes];
    data->rng.init(seed, 0, ~0UL);
    fillRandomPool(data->buckets, bytes, sectorBytes(drive.thread), data->rng);
    ASSERT_EQ(firstExecuteInit(&drive.thread, data, &config), 0);
  }

  Bytes bucket(uint32_t number) const {
    const uint32_t sector = sectorBytes(drive.thread);
    const uint8_t* first = data->buckets + uint64_t{number} * sector;
    return {first, first + sector};
  }

  Bytes written(uint64_t offset, uint64_t count) const {
    const uint8_t* first = data->writeData->data + offset;
    return {first, first + count};
  }

  modeltest::Drive drive;
  ConfigData config;
  DriveData* data = nullptr;
  std::unique_ptr<Step> stepHolder;
  Step& step() {
    stepHolder = std::make_unique<Step>(Step{drive.thread, *data, config});
    return *stepHolder;
  }
};

struct Choice {
  uint64_t seed;
  uint32_t buckets;
  uint32_t length;
  uint32_t bucket;
};

TEST_F(WriteDataTest, OnlyTheLowHalfOfADrawChoosesTheBucket) {
  const Choice choices[] = {{12345, 16, 1, 13}, {12345, 16, 3, 11}, {1, 16, 2, 13},
                            {1, 16, 3, 1},      {1, 65536, 8, 8341}, {1, 64, 8, 45}};
  for (const Choice& c : choices) {
    prepare(c.seed, c.buckets);
    EXPECT_EQ(chooseBucket(step(), c.length), c.bucket) << c.seed << " " << c.buckets << " " << c.length;
    EXPECT_EQ(drive.u32("BucketIndex"), c.bucket);
  }
}

TEST_F(WriteDataTest, ATransferAsLongAsThePoolStartsAtItsFirstBucketAndStillDraws) {
  prepare(1, 64);
  EXPECT_EQ(chooseBucket(step(), 64), 0U);
  EXPECT_EQ(drive.u32("BucketIndex"), 0U);
  EXPECT_EQ(data->rng(), 0xdcf61504c81c2f0fU) << "the second draw behind the pool";
}

TEST_F(WriteDataTest, TwoRunsChooseTheSameBuckets) {
  std::vector<uint32_t> first;
  for (int run = 0; run < 2; ++run) {
    prepare(77, 1000);
    std::vector<uint32_t> chosen;
    for (uint32_t i = 0; i < 100; ++i) {
      chosen.push_back(chooseBucket(step(), 1 + i % 8));
      EXPECT_LT(chosen.back(), 1000 - (1 + i % 8));
    }
    if (run == 0) {
      first = chosen;
    } else {
      EXPECT_EQ(chosen, first);
    }
  }
}

TEST_F(WriteDataTest, BlocksAreConsecutiveBucketsWithStamps) {
  ASSERT_EQ(assembleWriteData(step(), {2, 0x1000, 0x100, 5, 3, false, true}), 0);
  const Buffer& out = drive.buffer("WriteData");
  EXPECT_EQ(out.size, 3 * 512U);
  EXPECT_FALSE(out.owned);
  EXPECT_EQ(out.data, data->tagBuffers.at(2));
  for (uint32_t i = 0; i < 3; ++i) {
    Bytes expected = bucket(5 + i);
    stampBlock(expected.data(), 0x1000 + i, 0x100);
    EXPECT_EQ(written(i * 512, 512), expected) << i;
  }
}

TEST_F(WriteDataTest, WithoutEmbeddingBlocksAreTheBucketsThemselves) {
  ASSERT_EQ(assembleWriteData(step(), {0, 0x1000, 0x100, 5, 3, false, false}), 0);
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(written(i * 512, 512), bucket(5 + i)) << i;
  }
}

TEST_F(WriteDataTest, ThePoolStaysAsItIs) {
  const Bytes before = bucket(5);
  ASSERT_EQ(assembleWriteData(step(), {0, 0x1000, 0x100, 5, 1, false, true}), 0);
  EXPECT_EQ(bucket(5), before);
}

TEST_F(WriteDataTest, TheEndToEndBytesAreLeftRoomForAndNotTouched) {
  config.e2eCondition.anyMask = 1;
  ASSERT_EQ(firstExecuteInit(&drive.thread, data, &config), 0);
  uint8_t* buffer = data->tagBuffers.at(1);
  for (uint32_t i = 0; i < 3; ++i) {
    std::fill_n(buffer + i * 520 + 512, 8, uint8_t{0xE2});
  }
  ASSERT_EQ(assembleWriteData(step(), {1, 0x1000, 7, 5, 3, true, false}), 0);
  EXPECT_EQ(drive.buffer("WriteData").size, 3 * 520U);
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(written(i * 520, 512), bucket(5 + i)) << i;
    EXPECT_EQ(written(i * 520 + 512, 8), Bytes(8, 0xE2)) << i;
  }
}

TEST_F(WriteDataTest, ProtectionBytesBelongToTheSector) {
  drive.thread.protectionEnabled = true;
  drive.thread.protectionBytes = 8;
  prepare(1, 16);
  ASSERT_EQ(assembleWriteData(step(), {1, 0x1000, 7, 5, 2, false, true}), 0);
  EXPECT_EQ(drive.buffer("WriteData").size, 2 * 520U);
  Bytes expected = bucket(6);
  EXPECT_EQ(expected.size(), 520U);
  stampBlock(expected.data(), 0x1001, 7);
  EXPECT_EQ(written(520, 520), expected);
}

TEST_F(WriteDataTest, NoBlocksStillMakeOne) {
  ASSERT_EQ(assembleWriteData(step(), {0, 0x1000, 7, 5, 0, false, true}), 0);
  EXPECT_EQ(drive.buffer("WriteData").size, 512U);
  Bytes expected = bucket(5);
  stampBlock(expected.data(), 0x1000, 7);
  EXPECT_EQ(written(0, 512), expected);
}

TEST_F(WriteDataTest, OwnedDataBehindTheVariableAreFreed) {
  const int64_t before = modeltest::liveAllocations();
  ASSERT_EQ(drive.buffer("WriteData").reserve(100), 0);
  ASSERT_EQ(assembleWriteData(step(), {0, 0x1000, 7, 5, 1, false, true}), 0);
  EXPECT_FALSE(drive.buffer("WriteData").owned);
  stepHolder.reset();
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

TEST_F(WriteDataTest, ATransferAboveTheTestsMaximumMakesTheBufferGrow) {
  ASSERT_EQ(assembleWriteData(step(), {3, 0x1000, 7, 0, 16, false, false}), 0);
  EXPECT_EQ(drive.buffer("WriteData").size, 16 * 512U);
  EXPECT_EQ(written(15 * 512, 512), bucket(15));
  EXPECT_EQ(data->tagBufferBytes.at(3), 16 * 512U);
}

TEST_F(WriteDataTest, NoMemoryToGrowIsAStatus) {
  const modeltest::FailNothrow noMemory;
  EXPECT_EQ(assembleWriteData(step(), {3, 0x1000, 7, 0, 16, false, false}), -1002);
}

TEST_F(WriteDataTest, ATagThatTheDriveDoesNotHaveThrows) {
  EXPECT_THROW(assembleWriteData(step(), {4, 0x1000, 7, 0, 1, false, false}), std::out_of_range);
  EXPECT_THROW(tagBuffer(step(), 1023, 1), std::out_of_range);
}

TEST_F(WriteDataTest, NothingIsAllocatedPerCommand) {
  Step& now = step();
  const uint64_t before = modeltest::allocations();
  for (uint32_t i = 0; i < 1000; ++i) {
    ASSERT_EQ(assembleWriteData(now, {i % 4, i, i + 1, chooseBucket(now, 8), 8, false, true}), 0);
  }
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST_F(WriteDataTest, TransfersUpToThePoolFit) {
  config.bucketCount = 64;
  EXPECT_EQ(checkTransferLength(step(), 0), 0);
  EXPECT_EQ(checkTransferLength(step(), 63), 0);
  EXPECT_EQ(checkTransferLength(step(), 64), 0);
  EXPECT_TRUE(drive.lines().empty());
  EXPECT_EQ(checkTransferLength(step(), 65), -1022);
  EXPECT_THAT(drive.lines(), ElementsAre(LogLine{2, "Requested buffer too large: need=65, max=63"}));
}

/// A drive in a running test, driven through the agent's callbacks.
class WriteThroughCallbacks : public testing::Test {
 protected:
  void SetUp() override {
    drive.thread.queueDepth = 4;
    drive.tagState.free = {0, 1, 2, 3};
    config.bucketCount = 64;
    config.randomSeed = 1;
    config.writeCondition.anyMask = 1;
    config.readCondition.anyMask = 2;
    ASSERT_EQ(Corvane::initDriveData(&drive.thread), 0);
    data = static_cast<DriveData*>(drive.threadState.registered.at(0));
    drive.u32("TestMaxXferLength") = 16;
    drive.u64("MaxLBA") = 1000;
    ASSERT_EQ(Corvane::startTest(&drive.thread, &config, data, 0), 0);
    ASSERT_TRUE(drive.lines().empty());
    drive.thread.conditions = 1;
    drive.u64("LBA") = 100;
  }

  void TearDown() override { Corvane::freeDriveData(data); }

  modeltest::Drive drive;
  ConfigData config;
  DriveData* data = nullptr;
};

TEST_F(WriteThroughCallbacks, TheBucketComesFromTheLowHalfOfTheNextDraw) {
  drive.u32("XferLength") = 8;
  ASSERT_EQ(Corvane::execute(&drive.thread, &config, data), 0);
  EXPECT_EQ(drive.u32("BucketIndex"), 45U);
  EXPECT_EQ(data->trace->entry(0).type, TraceType::WriteIssued);
  EXPECT_EQ(data->trace->entry(0).block, 45U);
  EXPECT_EQ(data->nextCmdId, 2U);
}

TEST_F(WriteThroughCallbacks, ATransferAsLongAsThePoolIsWritten) {
  drive.u32("XferLength") = 64;
  ASSERT_EQ(Corvane::execute(&drive.thread, &config, data), 0);
  EXPECT_EQ(drive.u32("BucketIndex"), 0U);
  EXPECT_EQ(drive.buffer("WriteData").size, 64 * 512U);
}

TEST_F(WriteThroughCallbacks, ATransferLongerThanThePoolIsRefused) {
  drive.u32("XferLength") = 65;
  EXPECT_EQ(Corvane::execute(&drive.thread, &config, data), -1022);
  EXPECT_THAT(drive.lines(), ElementsAre(LogLine{2, "Requested buffer too large: need=65, max=63"},
                                         LogLine{2, "doAWrite(): E(-1022) (-1022)"},
                                         LogLine{2, "execute(): E(-1022) (-1022)"}));
  EXPECT_EQ(data->writeSent.size(), 1U);
  EXPECT_EQ(data->nextCmdId, 2U);
}

}  // namespace
}  // namespace vdl::agent
