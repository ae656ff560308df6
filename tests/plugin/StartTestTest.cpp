#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "LazyHasher.h"
#include "SectorBuckets.h"
#include "support/CompletionBench.h"
#include "support/ScarceMemory.h"
#include "support_model/FakeClock.h"
#include "vdl/SeedEntropy.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = ScarceMemory::Kind;

constexpr size_t poolBytes = 8192;
constexpr uint64_t firstDrawOfSeedOne = 0xff4780eb6ac1f425;

uint64_t firstDrawOf(uint32_t seed) {
  vdl::RandomNumberGenerator<unsigned long> rng;
  rng.init(seed, 0, std::numeric_limits<unsigned long>::max());
  return rng();
}

/// A drive that is not started yet; 16 buckets, the options' own queue sizes.
struct StartTest : ::testing::Test {
  StartTest() : bench({.device = &device}) {
    bench.config().bucketCount = 16;
    bench.config().minQueueSize = 2048;
    bench.config().maxQueueSize = 4096;
    *bench.data().testMaxXferLength = 8;
    bench.thread().timestampUs = 1234567;
  }

  void expectNothingCreated() {
    EXPECT_EQ(bench.data().trace, nullptr);
    expectNoPool();
    EXPECT_EQ(bench.data().embedBuffer, nullptr);
  }
  void expectNoPool() {
    EXPECT_EQ(bench.data().buckets, nullptr);
    EXPECT_EQ(bench.data().zeroBlock, nullptr);
    EXPECT_EQ(bench.data().driveCompareData, nullptr);
    EXPECT_EQ(bench.data().referenceCompareData, nullptr);
  }

  RecordingDevice device;
  CompletionBench bench;
};

TEST_F(StartTest, GoodStartCreatesEverything) {
  const uint32_t entropy = vdl::seed_entropy;
  device.parameter = 7;
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  const auto& data = bench.data();
  EXPECT_EQ(data.trace->size(), 16484U);
  EXPECT_EQ(vdl::blockHash(data.buckets, data.buckets + poolBytes), 0xe1e383d8eae875d1U);
  EXPECT_EQ(Bytes(data.zeroBlock, data.zeroBlock + 512), Bytes(512, 0));
  EXPECT_EQ(data.driveCompareData->capacity, 512U);
  EXPECT_EQ(data.driveCompareData->size, 0U);
  EXPECT_EQ(data.referenceCompareData->capacity, 512U);
  EXPECT_EQ(data.referenceCompareData->size, 0U);
  EXPECT_NE(data.embedBuffer, nullptr);
  EXPECT_DOUBLE_EQ(data.powerOnTime, 1234.567);
  EXPECT_TRUE(data.firstExecute);
  EXPECT_EQ(data.deviceParameter, 7U);
  EXPECT_THAT(device.calls, ElementsAre("read parameter"));
  EXPECT_EQ(vdl::seed_entropy, entropy);
  EXPECT_TRUE(data.skipGenOnList);
  EXPECT_TRUE(data.tagBuffers.empty());
}

TEST_F(StartTest, DeviceParameterThatCannotBeReadIsZero) {
  device.parameter = 7;
  device.parameterStatus = 95;
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.data().deviceParameter, 0U);
}

TEST_F(StartTest, DeviceParameterIsZeroWithoutADevice) {
  CompletionBench alone;
  EXPECT_EQ(alone.data().deviceParameter, 0xFFFFFFFFU);
  EXPECT_EQ(alone.startTest(), 0);
  EXPECT_EQ(alone.data().deviceParameter, 0U);
}

TEST_F(StartTest, QueueSizesTheWrongWayRoundAreRefused) {
  bench.config().minQueueSize = 10;
  bench.config().maxQueueSize = 5;
  EXPECT_EQ(bench.startTest(), -1009);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Min Queue Size > Max Queue Size: 10 > 5"}));
  expectNothingCreated();
}

TEST_F(StartTest, EqualQueueSizesAreFine) {
  bench.config().minQueueSize = 5;
  bench.config().maxQueueSize = 5;
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.data().trace->size(), 120U);
}

TEST_F(StartTest, EveryFailedCheckIsLoggedAndTheLastStatusCounts) {
  bench.config().minQueueSize = 10;
  bench.config().maxQueueSize = 5;
  bench.config().readCondition = {};
  bench.config().writeCondition = {};
  EXPECT_EQ(bench.startTest(), -1027);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Min Queue Size > Max Queue Size: 10 > 5"},
                                           LogLine{2, "Read or verify Condition Must Be Set"},
                                           LogLine{2, "A Write Condition Must Be Set"}));
  expectNothingCreated();
}

TEST_F(StartTest, AFailedStartStillAsksTheDeviceArmsTheFirstStepAndDropsQueues) {
  bench.config().minQueueSize = 10;
  bench.config().maxQueueSize = 5;
  bench.config().readCondition = {};
  bench.config().writeCondition = {};
  bench.config().userDefinedData = true;
  bench.config().randomSeed = 0;
  const uint32_t entropy = vdl::seed_entropy;
  EXPECT_EQ(bench.startTest(), -1027);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Min Queue Size > Max Queue Size: 10 > 5"},
                          LogLine{2, "Read or verify Condition Must Be Set"},
                          LogLine{2, "A Write Condition Must Be Set"}, LogLine{2, "UserData: No Data Was Specified"}));
  EXPECT_EQ(vdl::seed_entropy, entropy);
  EXPECT_THAT(device.calls, ElementsAre("read parameter"));
  EXPECT_TRUE(bench.data().firstExecute);
  EXPECT_EQ(bench.data().zoneResetQueue, nullptr);
  EXPECT_EQ(bench.data().invalidateQueue, nullptr);
  EXPECT_EQ(bench.data().powerOnTime, 0.0);
  expectNothingCreated();
}

TEST_F(StartTest, QueuesThatSomebodyFillsAreKept) {
  bench.variables().setWriters("CSZoneReset", 1);
  bench.variables().setWriters("CVNInvalidateRanges", 2);
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_NE(bench.data().zoneResetQueue, nullptr);
  EXPECT_NE(bench.data().invalidateQueue, nullptr);
}

TEST_F(StartTest, VerifyAloneIsEnoughToReadWith) {
  bench.config().readCondition = {};
  bench.config().verifyCondition = {4, 0, 0, false};
  EXPECT_EQ(bench.startTest(), 0);
}

TEST_F(StartTest, AnyWriteKindAloneIsEnough) {
  using Config = vdl::Corvane::ConfigData;
  for (vdl::Condition Config::*kind :
       {&Config::writeAtomicCondition, &Config::writeSameCondition, &Config::trimCondition}) {
    CompletionBench own;
    own.config().writeCondition = {};
    own.config().*kind = {8, 0, 0, false};
    EXPECT_EQ(own.startTest(), 0);
  }
}

TEST_F(StartTest, ReplaceAloneConfiguresNothing) {
  bench.config().writeCondition = {0, 0, 0, true};
  EXPECT_EQ(bench.startTest(), -1027);
}

TEST_F(StartTest, UserDataFillThePoolWithoutADraw) {
  bench.config().userDefinedData = true;
  Bytes user = {'A', 'B', 'C'};
  bench.config().dataBuffer.view(user.data(), user.size());
  EXPECT_EQ(bench.startTest(), 0);
  const uint8_t* pool = bench.data().buckets;
  EXPECT_EQ(pool[0], 'A');
  EXPECT_EQ(pool[512], 'C');
  EXPECT_EQ(pool[4095], 'A');
  EXPECT_EQ(pool[4096], 'A');
  EXPECT_EQ(pool[4608], 'C');
  EXPECT_EQ(bench.data().rng(), firstDrawOfSeedOne);
}

TEST_F(StartTest, RandomPoolTakesOneDrawPerEightBytes) {
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.data().rng(), 0xe1d040a3743d36d9U);
}

TEST_F(StartTest, TimeBasedSeedCountsTheDrives) {
  const modeltest::FakeClock clock(1700000000, 123456);
  const uint32_t entropy = vdl::seed_entropy;
  vdl::seed_entropy = 5;
  corvane::host::setCurrentDeviceIndex(2);
  bench.config().randomSeed = 0;
  Bytes user = {'A'};
  bench.config().userDefinedData = true;
  bench.config().dataBuffer.view(user.data(), user.size());
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.data().rng(), firstDrawOf(3487918211));
  EXPECT_EQ(vdl::seed_entropy, 6U);
  vdl::seed_entropy = entropy;
  corvane::host::setCurrentDeviceIndex(0);
}

TEST_F(StartTest, BlockSizeOfZeroIsRefusedAfterTheSeedWasTaken) {
  bench.thread().blockSize = 0;
  bench.config().randomSeed = 0;
  const uint32_t entropy = vdl::seed_entropy;
  EXPECT_EQ(bench.startTest(), -1027);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Drive Blocksize reported as zero"}));
  EXPECT_NE(bench.data().trace, nullptr);
  expectNoPool();
  EXPECT_EQ(bench.data().embedBuffer, nullptr);
  EXPECT_EQ(vdl::seed_entropy, entropy + 1);
}

TEST_F(StartTest, PoolOfFourGibibytesWrapsToZero) {
  bench.thread().blockSize = 8192;
  bench.config().bucketCount = 524288;
  EXPECT_EQ(bench.startTest(), -1027);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Drive Blocksize reported as zero"}));
}

TEST_F(StartTest, PoolBeyondFourGibibytesIsMemoryThatIsNotThere) {
  bench.thread().blockSize = 8200;
  bench.config().bucketCount = 524288;
  EXPECT_EQ(bench.startTest(), -1002);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Could not allocate sector buckets"}));
  expectNoPool();
}

TEST_F(StartTest, ProtectionBytesBelongToTheSector) {
  CompletionBench own({.protectionEnabled = true, .protectionBytes = 8});
  own.config().bucketCount = 16;
  EXPECT_EQ(own.startTest(), 0);
  EXPECT_EQ(vdl::blockHash(own.data().buckets, own.data().buckets + 8320), 0xf8e3a4d0c2eb34b0U);
  EXPECT_EQ(own.data().zeroBlock[519], 0);
  EXPECT_EQ(own.data().driveCompareData->capacity, 512U);
}

TEST_F(StartTest, MissingPoolMemoryIsReportedAndTheSourceIsSeededAllTheSame) {
  {
    const ScarceMemory scarce(Kind::nothrow, poolBytes);
    EXPECT_EQ(bench.startTest(), -1002);
    EXPECT_EQ(scarce.failed(), 1U);
  }
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Could not allocate sector buckets"}));
  EXPECT_EQ(bench.data().rng(), firstDrawOfSeedOne);
  EXPECT_NE(bench.data().trace, nullptr);
  expectNoPool();
  EXPECT_EQ(bench.data().embedBuffer, nullptr);
}

TEST_F(StartTest, MissingZeroBlockIsReported) {
  {
    const ScarceMemory scarce(Kind::nothrow, 0, 2);
    EXPECT_EQ(bench.startTest(), -1002);
  }
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Corvane: Failed memory allocation for trim buffer."}));
  EXPECT_NE(bench.data().buckets, nullptr);
  EXPECT_EQ(bench.data().driveCompareData, nullptr);
  EXPECT_EQ(bench.data().referenceCompareData, nullptr);
  EXPECT_EQ(bench.data().embedBuffer, nullptr);
}

TEST_F(StartTest, MissingCompareBufferIsReportedWhicheverAllocationFails) {
  for (uint64_t which = 3; which <= 6; ++which) {
    CompletionBench own;
    {
      const ScarceMemory scarce(Kind::nothrow, 0, which);
      EXPECT_EQ(own.startTest(), -1002) << which;
    }
    EXPECT_THAT(own.takeLog(), ElementsAre(LogLine{2, "Could not allocate miscompare info buffers"})) << which;
    EXPECT_EQ(own.data().embedBuffer, nullptr);
  }
}

TEST_F(StartTest, MissingScratchIsReported) {
  {
    const ScarceMemory scarce(Kind::nothrow, 0, 7);
    EXPECT_EQ(bench.startTest(), -1002);
  }
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Corvane: Failed memory allocation. Try disabling <Embed Data>."}));
  EXPECT_EQ(bench.data().embedBuffer, nullptr);
  EXPECT_EQ(bench.data().powerOnTime, 0.0);
  EXPECT_TRUE(bench.data().firstExecute);
}

TEST_F(StartTest, MissingTraceMemoryIsAStatusNotAnException) {
  bench.config().embedLBA = false;
  bench.config().writeAtomicCondition = {8, 0, 0, false};
  {
    const ScarceMemory scarce(Kind::throwing, 500000);
    EXPECT_EQ(bench.startTest(), -1002);
    EXPECT_EQ(scarce.failed(), 1U);
  }
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(bench.failure("startTest", -1002),
                          LogLine{1,
                                  "Corvane: Use of DEPRECATED Embed LBA option, forcing Embed Data option to "
                                  "disabled"}));
  expectNothingCreated();
  EXPECT_FALSE(bench.data().skipGenOnList);
  EXPECT_TRUE(bench.data().firstExecute);
  EXPECT_EQ(bench.data().zoneResetQueue, nullptr);
}

TEST_F(StartTest, EmbedLbaOffSwitchesStampsOffWithAWarning) {
  bench.config().embedLBA = false;
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_FALSE(bench.config().embedData);
  const LogLine warning{1, "Corvane: Use of DEPRECATED Embed LBA option, forcing Embed Data option to disabled"};
  EXPECT_THAT(bench.takeLog(), ElementsAre(warning));
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_THAT(bench.takeLog(), ElementsAre(warning)) << "every drive says so";
}

TEST_F(StartTest, WriteSameAndSkipCommandsExcludeEachOther) {
  bench.config().useSkipCommands = true;
  bench.config().writeSameCondition = {16, 0, 0, false};
  EXPECT_EQ(bench.startTest(), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Corvane: Cannot use writesame and skip commands together"}));
  EXPECT_NE(bench.data().buckets, nullptr);
  EXPECT_EQ(bench.data().embedBuffer, nullptr);
}

TEST_F(StartTest, TrimAndSkipCommandsExcludeEachOther) {
  bench.config().useSkipCommands = true;
  bench.config().trimCondition = {32, 0, 0, false};
  EXPECT_EQ(bench.startTest(), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Corvane: Cannot use trim and skip commands together"}));
  EXPECT_EQ(bench.data().embedBuffer, nullptr);
  EXPECT_EQ(bench.data().powerOnTime, 0.0);
}

TEST_F(StartTest, SkipCommandsWithPlainWritesAreFine) {
  bench.config().useSkipCommands = true;
  EXPECT_EQ(bench.startTest(), 0);
}

TEST_F(StartTest, SpliceDetectionNeedsReadsVerifiesDoNotCount) {
  bench.config().writeSpliceDetection = true;
  bench.config().readCondition = {};
  bench.config().verifyCondition = {4, 0, 0, false};
  EXPECT_EQ(bench.startTest(), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Corvane: Cannot use splice checking without read enabled"}));
}

TEST_F(StartTest, ExclusionsAreReportedTogetherInOrder) {
  bench.config().useSkipCommands = true;
  bench.config().writeSpliceDetection = true;
  bench.config().readCondition = {};
  bench.config().verifyCondition = {4, 0, 0, false};
  bench.config().writeSameCondition = {16, 0, 0, false};
  bench.config().trimCondition = {32, 0, 0, false};
  EXPECT_EQ(bench.startTest(), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Corvane: Cannot use writesame and skip commands together"},
                                           LogLine{2, "Corvane: Cannot use splice checking without read enabled"},
                                           LogLine{2, "Corvane: Cannot use trim and skip commands together"}));
}

TEST_F(StartTest, ExclusionReplacesAnEarlierStatus) {
  bench.config().minQueueSize = 10;
  bench.config().maxQueueSize = 5;
  bench.config().useSkipCommands = true;
  bench.config().trimCondition = {32, 0, 0, false};
  EXPECT_EQ(bench.startTest(), -1050);
  EXPECT_EQ(bench.takeLog().size(), 2U);
}

TEST_F(StartTest, OnlyPlainAndAtomicWritesTogetherLeaveSkipGenAlone) {
  struct Case {
    bool write;
    bool atomic;
    bool skipGen;
  };
  for (const Case& c : {Case{true, false, true}, Case{false, true, true}, Case{true, true, false}}) {
    CompletionBench own;
    own.config().writeCondition = c.write ? vdl::Condition{2, 0, 0, false} : vdl::Condition{};
    own.config().writeAtomicCondition = c.atomic ? vdl::Condition{8, 0, 0, false} : vdl::Condition{};
    EXPECT_EQ(own.startTest(), 0);
    EXPECT_EQ(own.data().skipGenOnList, c.skipGen);
  }
}

TEST_F(StartTest, TransferLengthOfZeroIsNoMemoryFailure) {
  *bench.data().testMaxXferLength = 0;
  EXPECT_EQ(bench.startTest(), 0);
  // The compare builds one sector in the scratch.
  EXPECT_NE(bench.data().embedBuffer, nullptr);
  bench.holdTags();
  EXPECT_EQ(bench.idle(), 0);
}

TEST_F(StartTest, SecondStartReplacesTheFirstOnesObjects) {
  EXPECT_EQ(bench.startTest(), 0);
  bench.config().traceDepth = 501;
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.data().trace->size(), 2004U);
}

TEST_F(StartTest, SecondStartLeavesWriteDataWithoutTheOldPool) {
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_EQ(bench.data().writeData->data, bench.data().buckets);
  EXPECT_EQ(bench.startTest(), 0);
  EXPECT_EQ(bench.data().writeData->data, nullptr);
  EXPECT_EQ(bench.data().writeData->size, 0U);
}

TEST_F(StartTest, FailedSecondStartLeavesNoneOfTheFirstOnesObjects) {
  EXPECT_EQ(bench.startTest(), 0);
  bench.config().minQueueSize = 5000;
  EXPECT_EQ(bench.startTest(), -1009);
  expectNothingCreated();
}

TEST_F(StartTest, FirstStepMakesOneWriteBufferForEveryTag) {
  EXPECT_EQ(bench.startTest(), 0);
  bench.holdTags();
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_EQ(bench.data().tagBuffers.size(), 8U);
  EXPECT_THAT(bench.data().tagBufferBytes, ::testing::Each(4096U));
  EXPECT_FALSE(bench.data().firstExecute);
}

TEST_F(StartTest, FirstStepThatFailsIsNotRepeatedAndIsNotTheStepsOwnFailure) {
  EXPECT_EQ(bench.startTest(), 0);
  bench.holdTags();
  {
    const ScarceMemory scarce(Kind::nothrow, 0, 3);
    EXPECT_EQ(bench.idle(), -1002);
  }
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Corvane: Failed memory allocation of local write buffers"}));
  EXPECT_EQ(bench.data().tagBuffers[2], nullptr);
  EXPECT_NE(bench.data().tagBuffers[7], nullptr);
  EXPECT_EQ(bench.idle(), 0);
}

}  // namespace
}  // namespace benchtest
