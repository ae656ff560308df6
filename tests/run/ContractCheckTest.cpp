#include "host/run/ContractCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/run/FakeDrive.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeDrive;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

AgentOptionValues defaults() {
  AgentOptionValues options;
  options.minQueueSize = 2048;
  options.maxQueueSize = 4096;
  options.bucketCount = 65536;
  options.embedData = true;
  return options;
}

TestDefinition plainTest() {
  TestDefinition test;
  test.driveAddresses = {"sim:64m"};
  return test;
}

struct Case {
  const char* name;
  std::function<void(TestDefinition&, AgentOptionValues&)> change;
  const char* why;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

class Refusal : public ::testing::TestWithParam<Case> {};

TEST_P(Refusal, SaysWhyAndWhatToChange) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  ASSERT_THAT(checkTest(test, options).refusals, IsEmpty());
  GetParam().change(test, options);
  EXPECT_THAT(checkTest(test, options).refusals, ElementsAre(HasSubstr(GetParam().why)));
}

const Case refusals[] = {
    {"NoDrive", [](auto& test, auto&) { test.driveAddresses.clear(); }, "no drive is named"},
    {"DriveTwice",
     [](auto& test, auto&) {
       test.driveAddresses = {"file:a,size=1m", "file:a"};
     },
     "'file:a' is named twice"},
    {"DepthZero", [](auto& test, auto&) { test.queueDepth = 0; }, "queue depth 0 is not possible; choose 1 to 1024"},
    {"DepthTooGreat", [](auto& test, auto&) { test.queueDepth = 1025; }, "queue depth 1025"},
    {"LengthZero", [](auto& test, auto&) { test.minBlocks = 0; }, "transfer length 0"},
    {"LengthsCrossed", [](auto& test, auto&) { test.minBlocks = 9; }, "the shortest transfer of 9 blocks"},
    {"LengthOfThePool", [](auto&, auto& options) { options.bucketCount = 8; }, "set \"Bucket Count\" above that"},
    {"BoundZero", [](auto& test, auto&) { test.minAtomicBound = 0; }, "atomic bounds 0..8"},
    {"AtomicTooLong",
     [](auto& test, auto& options) {
       test.mix.writeAtomic = 1;
       test.maxBlocks = 65536;
       options.bucketCount = 524288;
     },
     "at most 65535 blocks"},
    {"ShareAbove100", [](auto& test, auto&) { test.e2ePercent = 101; }, "101 percent"},
    {"EmptyRange",
     [](auto& test, auto&) {
       test.firstLba = 50;
       test.endLba = 50;
     },
     "the LBA range 50..50 is empty"},
    {"QueueSizesCrossed", [](auto&, auto& options) { options.maxQueueSize = 1000; }, "set both"},
    {"NoWatchdog", [](auto& test, auto&) { test.watchdogMs = 0; }, "a watchdog of 0 s"},
    {"NothingWritten", [](auto& test, auto&) { test.mix.write = 0; }, "nothing would be written"},
    {"NothingRead", [](auto& test, auto&) { test.mix.read = 0; }, "nothing would be checked"},
    {"AtomicWithoutRead", [](auto& test, auto&) { test.mix = {.write = 1, .writeAtomic = 1, .read = 0, .verify = 1}; },
     "atomic writes need reads"},
    {"SlidesOverAtomicWritesUnderWay",
     [](auto& test, auto& options) {
       test.mix = {.write = 1, .writeAtomic = 1, .read = 1};
       options.slideReads = true;
       options.minQueueSize = test.queueDepth - 1;
     },
     "a slid read then meets an atomic write"},
    {"SpliceWithoutRead",
     [](auto& test, auto& options) {
       test.mix = {.write = 1, .read = 0, .verify = 1};
       options.spliceDetection = true;
     },
     "checks with reads"},
    {"VerifyWithoutSense",
     [](auto& test, auto&) {
       test.mix.verify = 1;
       test.deviceInterface = 1;
     },
     "verifies would raise false alarms"},
    {"SkipWithEmbeddedData", [](auto&, auto& options) { options.skipCommands = true; },
     "false alarm at every second block"},
    {"SkipWithAtomic",
     [](auto& test, auto& options) {
       options.skipCommands = true;
       test.mix = {.write = 0, .writeAtomic = 1, .read = 1};
     },
     "skip commands with atomic writes"},
    {"SkipWithVerify",
     [](auto& test, auto& options) {
       options.skipCommands = true;
       options.embedData = false;
       test.mix.verify = 1;
     },
     "skip commands with verifies"},
    {"SkipWithTrim",
     [](auto& test, auto& options) {
       options.skipCommands = true;
       test.mix.trim = 1;
       test.maxBlocks = 1;
     },
     "do not go with write-same or trim"},
    {"SkipWithWriteSame",
     [](auto& test, auto& options) {
       options.skipCommands = true;
       test.mix.writeSame = 1;
       test.maxBlocks = 1;
     },
     "do not go with write-same or trim"},
    {"ToggleAtEveryStep",
     [](auto& test, auto& options) {
       test.powerToggle = PowerToggle::withSync;
       options.powerToggleFreq = 0;
     },
     "every step would cut the power"},
    {"UserDataWithLostAtomic",
     [](auto& test, auto& options) {
       test.mix.writeAtomic = 1;
       test.resetEveryCommands = 100;
       options.userDefinedData = true;
     },
     "user data with atomic writes"},
    {"ZoneResetsWithAFullQueue",
     [](auto& test, auto&) {
       test.zoneResetEveryCommands = 10;
       test.queueDepth = 1024;
     },
     "queue depth 1024 leaves no place for zone resets and invalidations, which take one beside it; choose at most "
     "1023"},
    {"InvalidationsWithAFullQueue",
     [](auto& test, auto&) {
       test.invalidateEveryCommands = 10;
       test.queueDepth = 1024;
     },
     "queue depth 1024"},
    {"InvalidationsWithVerify",
     [](auto& test, auto&) {
       test.invalidateEveryCommands = 10;
       test.mix.verify = 1;
     },
     "leave verify or invalidations out"},
    {"InvalidationsWithAtomic",
     [](auto& test, auto&) {
       test.invalidateEveryCommands = 10;
       test.mix.writeAtomic = 1;
     },
     "leave atomic or invalidations out"},
};

INSTANTIATE_TEST_SUITE_P(All, Refusal, ::testing::ValuesIn(refusals),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(ContractCheck, SkipCommandsOfOneBlockOrWithoutStampAreFine) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  options.skipCommands = true;
  test.maxBlocks = 1;
  test.mix.verify = 1;
  EXPECT_THAT(checkTest(test, options).refusals, IsEmpty());
  test.maxBlocks = 8;
  test.mix.verify = 0;
  options.embedData = false;
  EXPECT_THAT(checkTest(test, options).refusals, IsEmpty());
}

TEST(ContractCheck, UserDataWithAtomicWritesThatNobodyInterruptsIsFine) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  test.mix.writeAtomic = 1;
  options.userDefinedData = true;
  EXPECT_THAT(checkTest(test, options).refusals, IsEmpty());
}

TEST(ContractCheck, RangeOperationsFitBesideAQueueThatIsNotFull) {
  TestDefinition test = plainTest();
  test.queueDepth = 1024;
  EXPECT_THAT(checkTest(test, defaults()).refusals, IsEmpty());
  test.queueDepth = 1023;
  test.zoneResetEveryCommands = 10;
  test.invalidateEveryCommands = 10;
  EXPECT_THAT(checkTest(test, defaults()).refusals, IsEmpty());
  EXPECT_EQ(test.mostOutstanding(), 1024U);
}

TEST(ContractCheck, ZoneResetsGoWithVerifyAndAtomicWrites) {
  TestDefinition test = plainTest();
  test.mix = {.write = 1, .writeAtomic = 1, .read = 1, .verify = 1};
  test.zoneResetEveryCommands = 10;
  EXPECT_THAT(checkTest(test, defaults()).refusals, IsEmpty());
}

TEST(ContractCheck, WarnsOfLostWritesWithoutSpliceDetection) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  test.resetEveryCommands = 1000;
  EXPECT_THAT(checkTest(test, options).warnings, ElementsAre(HasSubstr("without \"Write Splice Detection\"")));
  options.spliceDetection = true;
  EXPECT_THAT(checkTest(test, options).warnings, IsEmpty());
  options.spliceDetection = false;
  test.mix = {.write = 0, .writeAtomic = 1, .read = 1};
  EXPECT_THAT(checkTest(test, options).warnings, IsEmpty());
  test = plainTest();
  test.powerToggle = PowerToggle::withoutSync;
  EXPECT_THAT(checkTest(test, options).warnings, ElementsAre(HasSubstr("without \"Write Splice Detection\"")));
}

TEST(ContractCheck, WarnsWhenAResetCanTakeAWriteTogetherWithItsReadBack) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  options.spliceDetection = true;
  options.minQueueSize = 31;
  EXPECT_THAT(checkTest(test, options).warnings, IsEmpty());
  test.resetEveryCommands = 1000;
  EXPECT_THAT(checkTest(test, options).warnings, ElementsAre(HasSubstr("\"Min Queue Size\" 31 is below")));
  options.minQueueSize = 32;
  EXPECT_THAT(checkTest(test, options).warnings, IsEmpty());
}

TEST(ContractCheckOnDrive, TheWholeDriveLosesOnlyWhatSlidingReadsNeed) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 1000U);
  options.slideReads = true;
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 993U);
  options.skipCommands = true;
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 986U);
  test.firstLba = 10;
  test.endLba = 500;
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).firstLba, 10U);
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 500U);
}

TEST(ContractCheckOnDrive, ASizeCountsFromTheFirstLbaInBlocksOfTheDrive) {
  const AgentOptionValues options;
  TestDefinition test;
  test.firstLba = 100;
  test.size.bytes = 40'960;
  EXPECT_EQ(testRange(test, options, {.blocks = 1000, .blockSize = 512}).endLba, 180U);
  EXPECT_EQ(testRange(test, options, {.blocks = 1000, .blockSize = 4096, .protectionBytes = 8}).endLba, 110U);
  test.size = {.milliPercent = 12'500};
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 225U);
  EXPECT_EQ(testRange(test, options, {.blocks = 1ULL << 60}).endLba, 100 + (1ULL << 57));
}

TEST(ContractCheckOnDrive, ASizeUpToTheDrivesEndLeavesTheHeadRoomAndABiggerOneIsRefused) {
  AgentOptionValues options;
  options.slideReads = true;
  TestDefinition test;
  test.maxBlocks = 8;
  test.size = {.milliPercent = 100'000};
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 993U);
  test.firstLba = 10;
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, 1010U);
  test.size = {.bytes = 1ULL << 63};
  test.firstLba = ~0ULL;
  EXPECT_EQ(testRange(test, options, {.blocks = 1000}).endLba, ~0ULL);
}

TEST(ContractCheckOnDrive, RefusesRangesThatDoNotFit) {
  FakeDrive drive;
  drive.shape.blocks = 100'000;
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty());
  test.endLba = 100'001;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals,
              ElementsAre(HasSubstr("0..100001 ends behind the drive's 100000 blocks")));
  test.firstLba = 99'993;
  test.endLba = 100'000;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, ElementsAre(HasSubstr("has no room for a command")));
  test.firstLba = 99'992;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty());
  options.slideReads = true;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, ElementsAre(HasSubstr("end the range at 99993")));
  test.firstLba = 0;
  test.endLba = 99'993;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty());
  test.endLba = 0;
  test.firstLba = 99'999;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals,
              ElementsAre(HasSubstr("has no room for a command over 8 LBAs of 512 bytes")));
  for (const uint64_t behind : {100'000U, 99'999'999U}) {
    test.firstLba = behind;
    EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals,
                ElementsAre(HasSubstr(".. begins behind the drive's 100000 blocks; choose a start below that")));
  }
}

TEST(ContractCheckOnDrive, RefusesPowerCutsThatAnHonestDriveMayNotSurvive) {
  FakeDrive drive;
  drive.offers.volatileCache = true;
  TestDefinition test = plainTest();
  test.powerToggle = PowerToggle::withoutSync;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, ElementsAre(HasSubstr("volatile cache")));
  test.forceUnitAccess = true;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, IsEmpty());
  test.forceUnitAccess = false;
  test.powerToggle = PowerToggle::withSync;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, IsEmpty());
  test.powerToggle = PowerToggle::withoutSync;
  drive.offers.volatileCache = false;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, IsEmpty());
}

TEST(ContractCheckOnDrive, WarnsOfARangeThatIsSmallForTheQueue) {
  FakeDrive drive;
  TestDefinition test = plainTest();
  test.minBlocks = test.maxBlocks = 8;
  test.endLba = 32'768;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).warnings, IsEmpty());
  test.endLba -= 1;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).warnings,
              ElementsAre(HasSubstr("is small for \"Max Queue Size\" 4096")));
}

TEST(ContractCheckOnDrive, ZoneResetsNeedAWholeZoneInTheRange) {
  FakeDrive drive;
  drive.shape.zoneBlocks = 1000;
  drive.offers.zoneReset = true;
  TestDefinition test = plainTest();
  test.firstLba = 100;
  test.endLba = 1999;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, IsEmpty()) << "no zone is reset";
  test.zoneResetEveryCommands = 10;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals,
              ElementsAre(HasSubstr("zones have 1000 blocks; widen the range or leave zone resets out")));
  test.endLba = 2000;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, IsEmpty());
}

TEST(ContractCheckOnDrive, AZoneFitsIntoOneCommand) {
  FakeDrive drive;
  drive.shape.blocks = uint64_t{1} << 40;
  drive.shape.zoneBlocks = uint64_t{1} << 32;
  TestDefinition test = plainTest();
  test.zoneResetEveryCommands = 10;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, ElementsAre(HasSubstr("leave zone resets out")));
  drive.shape.zoneBlocks -= 1;
  EXPECT_THAT(checkTestOnDrive(test, defaults(), drive).refusals, IsEmpty());
}

class HostManaged : public ::testing::TestWithParam<Case> {
 protected:
  HostManaged() {
    drive.shape.zoneBlocks = 1000;
    drive.offers.zoneReset = true;
    drive.offers.hostManaged = true;
  }

  FakeDrive drive;
};

TEST_P(HostManaged, RefusalSaysWhyAndWhatToChange) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  test.zoneResetEveryCommands = 10;
  test.firstLba = 1000;
  test.endLba = 3000;
  ASSERT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty());
  GetParam().change(test, options);
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, ElementsAre(HasSubstr(GetParam().why)));
  drive.offers.hostManaged = false;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty()) << "other drives with zones can do it";
}

const Case hostManagedRefusals[] = {
    {"Atomic", [](auto& test, auto&) { test.mix.writeAtomic = 1; }, "select write alone"},
    {"WriteSame", [](auto& test, auto&) { test.mix.writeSame = 1; }, "select write alone"},
    {"Trim", [](auto& test, auto&) { test.mix.trim = 1; }, "a host-managed drive is written at its zones'"},
    {"SkipCommands", [](auto&, auto& options) { options.skipCommands = true; }, "switch \"Use Skip Commands\" off"},
    {"NoZoneResets", [](auto& test, auto&) { test.zoneResetEveryCommands = 0; }, "switch zone resets on"},
    {"OneZone", [](auto& test, auto&) { test.endLba = 2999; },
     "needs at least two zones of 1000 blocks wholly in the LBA range"},
    {"LongTransfers", [](auto& test, auto&) { test.maxBlocks = 1001; },
     "transfers of 1001 blocks do not fit into a zone of 1000; shorten the transfers"},
};

INSTANTIATE_TEST_SUITE_P(All, HostManaged, ::testing::ValuesIn(hostManagedRefusals),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(ContractCheckOnDrive, AtomicWritesNeedSegmentsThatTheDriveTakes) {
  FakeDrive drive;
  drive.offers.atomicSegments = {.leastBlocks = 4, .mostBlocks = 16};
  TestDefinition test = plainTest();
  const AgentOptionValues options = defaults();
  test.maxAtomicBound = 3;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty()) << "there are no atomic writes";
  test.mix.writeAtomic = 1;
  EXPECT_THAT(
      checkTestOnDrive(test, options, drive).refusals,
      ElementsAre("the drive writes 4 to 16 blocks atomically, a power of two at a multiple of itself, and none "
                  "of these fits atomic bounds of 1..3, transfers of 1..8 blocks and the LBA range 0..100000; "
                  "let the bounds include such a power and the transfers a multiple of it, or leave atomic "
                  "out"));
  test.maxAtomicBound = 4;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty());
  test.maxBlocks = 3;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, ElementsAre(HasSubstr("transfers of 1..3 blocks")));
  drive.offers.atomicSegments = {};
  EXPECT_THAT(checkTestOnDrive(test, options, drive).refusals, IsEmpty());
}

TEST(ContractCheckOnDrive, AConnectionThatCanBreakIsWarnedOfWhereALossWouldEndTheTest) {
  FakeDrive drive;
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  options.spliceDetection = true;
  options.minQueueSize = test.queueDepth - 1;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).warnings, IsEmpty());
  drive.offers.connectionCanBreak = true;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).warnings,
              ElementsAre(HasSubstr("should the connection to the drive be lost, the test ends there, because with "
                                    "\"Min Queue Size\" 31 below the queue depth 32")));
  options.minQueueSize = test.queueDepth;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).warnings, IsEmpty());
  options.spliceDetection = false;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).warnings, ElementsAre(HasSubstr("that a lost connection takes")));
  test.resetEveryCommands = 100;
  EXPECT_THAT(checkTestOnDrive(test, options, drive).warnings, IsEmpty()) << "the resets were warned of already";
}

TEST(WhyLossEndsTest, IsSaidOfTestsThatALossWouldTurnIntoAFalseAlarmOrAnError) {
  TestDefinition test = plainTest();
  AgentOptionValues options = defaults();
  EXPECT_EQ(whyLossEndsTest(test, options), "");
  options.userDefinedData = true;
  EXPECT_EQ(whyLossEndsTest(test, options), "");
  test.mix.writeAtomic = 1;
  EXPECT_THAT(whyLossEndsTest(test, options), HasSubstr("\"User Defined Data\" off, or leave atomic out"));
  options.userDefinedData = false;
  options.minQueueSize = 31;
  EXPECT_THAT(whyLossEndsTest(test, options), HasSubstr("set it to at least the queue depth"));
}

TEST(MissingCapability, ZoneResetsNeedADriveWithZones) {
  FakeDrive drive;
  TestDefinition test = plainTest();
  test.zoneResetEveryCommands = 10;
  test.invalidateEveryCommands = 10;
  EXPECT_EQ(missingCapability(test, drive, "sim:1m"),
            "drive 'sim:1m' does not offer zone resets, invalidation of ranges; leave that out or use another "
            "drive; it is: fake drive");
  drive.offers.zoneReset = true;
  drive.offers.invalidate = true;
  EXPECT_THAT(missingCapability(test, drive, "sim:1m"), HasSubstr("zone resets")) << "it has no zones";
  drive.shape.zoneBlocks = 1000;
  EXPECT_EQ(missingCapability(test, drive, "sim:1m"), "");
}

TEST(MissingCapability, NamesEverythingThatTheTestNeeds) {
  FakeDrive drive;
  TestDefinition test = plainTest();
  test.mix = {.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
  test.powerToggle = PowerToggle::withSync;
  test.resetEveryCommands = 5;
  EXPECT_EQ(missingCapability(test, drive, "sim:1m"), "");
  drive.offers = {};
  EXPECT_EQ(missingCapability(test, drive, "sim:1m"),
            "drive 'sim:1m' does not offer atomic writes, write-same, trim, verify with byte check, cache "
            "flush, power toggle, device reset; leave that out or use another drive; it is: fake drive");
  EXPECT_EQ(missingCapability(plainTest(), drive, "sim:1m"), "");
}

}  // namespace
}  // namespace corvane::host
