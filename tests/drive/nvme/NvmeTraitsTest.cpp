#include "host/drive/nvme/NvmeTraits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/drive/DriveError.h"
#include "tests/drive/nvme/FakeNvme.h"

namespace corvane::host {
namespace {

using testing::HasSubstr;
using Trim = NvmeOptions::Trim;
using Verify = NvmeOptions::Verify;

/// Through the bytes of Identify, as a drive is opened.
NvmeTraits traitsOf(const FakeNvmeSettings& settings, const NvmeOptions& options = {}) {
  FakeNvme fake(settings);
  return nvmeTraits(identifyNvme(fake, "/dev/x"), options, settings.kernelBytes, true, "/dev/x");
}

std::string complaint(const FakeNvmeSettings& settings, const NvmeOptions& options = {}) {
  try {
    traitsOf(settings, options);
  } catch (const DriveError& error) {
    return error.what();
  }
  return "accepted";
}

AtomicSegments segmentsOf(const FakeNvmeSettings& settings) { return traitsOf(settings).capabilities.atomicSegments; }

constexpr FakeNvmeSettings protectedBlocks{.metadataBytes = 8, .protectionType = 1};

TEST(NvmeTraits, GeometryComesFromTheFormatInUse) {
  const DriveGeometry geometry = traitsOf({.blocks = 999, .blockExponent = 12, .nsfeat = 0x10, .npwg = 3}).geometry;
  EXPECT_EQ(geometry.blocks, 999U);
  EXPECT_EQ(geometry.blockSize, 4096U);
  EXPECT_EQ(geometry.protectionBytes, 0U);
  EXPECT_EQ(geometry.physicalExponent, 2U);
  EXPECT_EQ(geometry.zoneBlocks, 0U);
}

TEST(NvmeTraits, APreferredGranularityThatIsNoPowerOfTwoOrNotSaidIsLeftOut) {
  EXPECT_EQ(traitsOf({.nsfeat = 0x10, .npwg = 2}).geometry.physicalExponent, 0U);
  EXPECT_EQ(traitsOf({.nsfeat = 0x10, .npwg = 65535}).geometry.physicalExponent, 0U);
  EXPECT_EQ(traitsOf({.npwg = 7}).geometry.physicalExponent, 0U);
}

TEST(NvmeTraits, TheVolatileCacheCountsWhenItIsThereAndOn) {
  EXPECT_TRUE(traitsOf({}).capabilities.volatileCache);
  EXPECT_FALSE(traitsOf({.volatileCache = 0}).capabilities.volatileCache);
  EXPECT_FALSE(traitsOf({.cacheFeature = 0}).capabilities.volatileCache);
}

TEST(NvmeTraits, ATransferIsAsLongAsDriveAndKernelAllow) {
  EXPECT_EQ(traitsOf({.kernelBytes = 65536}).transfers.mostBlocks, 128U);
  EXPECT_EQ(traitsOf({.mdts = 2, .kernelBytes = 65536}).transfers.mostBlocks, 32U);
  EXPECT_EQ(traitsOf({.mdts = 9, .kernelBytes = 65536}).transfers.mostBlocks, 128U);
  EXPECT_EQ(traitsOf({.kernelBytes = uint64_t{1} << 40}).transfers.mostBlocks, 65536U);
  // Extended metadata are data, too: 65536 bytes hold 126 sectors of 520.
  EXPECT_EQ(traitsOf({.metadataBytes = 8, .kernelBytes = 65536}).transfers.mostBlocks, 126U);
}

TEST(NvmeTraits, WriteZeroesHasItsOwnLimit) {
  EXPECT_EQ(traitsOf({}).mostZeroBlocks, 65536U);
  EXPECT_EQ(traitsOf({.wzsl = 1}).mostZeroBlocks, 16U);
}

TEST(NvmeTraits, AtomicSegmentsAreThePowerOfTwoWithinThePowerFailUnit) {
  EXPECT_EQ(segmentsOf({.awupf = 0}).mostBlocks, 1U);
  EXPECT_EQ(segmentsOf({.awupf = 7}).mostBlocks, 8U);
  EXPECT_EQ(segmentsOf({.awupf = 11}).mostBlocks, 8U);
  EXPECT_EQ(segmentsOf({.awupf = 11}).leastBlocks, 1U);
}

TEST(NvmeTraits, TheNamespacesAtomicValuesWinWhereItSaysThatItHasThem) {
  EXPECT_EQ(segmentsOf({.nsfeat = 2, .awupf = 7, .nawupf = 31}).mostBlocks, 32U);
  EXPECT_EQ(segmentsOf({.nsfeat = 0, .awupf = 7, .nawupf = 31}).mostBlocks, 8U);
}

TEST(NvmeTraits, AtomicSegmentsNeverCrossABoundary) {
  EXPECT_EQ(segmentsOf({.nsfeat = 2, .nawupf = 31, .nabspf = 15}).mostBlocks, 16U);
  EXPECT_EQ(segmentsOf({.nsfeat = 2, .nawupf = 31, .nabspf = 23}).mostBlocks, 8U);
  // The first boundary at LBA 4: natural alignment is kept by segments of 4 only.
  EXPECT_EQ(segmentsOf({.nsfeat = 2, .nawupf = 31, .nabspf = 15, .nabo = 4}).mostBlocks, 4U);
  EXPECT_EQ(segmentsOf({.nsfeat = 2, .nawupf = 31, .nabspf = 15, .nabo = 16}).mostBlocks, 16U);
  // Without boundaries an offset means nothing.
  EXPECT_EQ(segmentsOf({.nsfeat = 2, .nawupf = 31, .nabo = 3}).mostBlocks, 32U);
}

TEST(NvmeTraits, AnAtomicSegmentFitsIntoOneCommand) { EXPECT_EQ(segmentsOf({.mdts = 1, .awupf = 63}).mostBlocks, 16U); }

TEST(NvmeTraits, AVerifyIsACompareWhereThatJudgesEveryByte) {
  EXPECT_TRUE(traitsOf({}).transfers.comparesData);
  EXPECT_FALSE(traitsOf({.oncs = 0x0C}).transfers.comparesData);
  EXPECT_TRUE(traitsOf({.metadataBytes = 8}).transfers.comparesData);
  EXPECT_FALSE(traitsOf(protectedBlocks).transfers.comparesData);
  EXPECT_FALSE(traitsOf({}, {.verify = Verify::read}).transfers.comparesData);
  EXPECT_THAT(complaint({.oncs = 0x0C}, {.verify = Verify::compare}), HasSubstr("has no Compare command"));
  EXPECT_THAT(complaint(protectedBlocks, {.verify = Verify::compare}), HasSubstr("Compare leaves out"));
}

TEST(NvmeTraits, ATrimIsWriteZeroesUnlessThereIsNone) {
  EXPECT_EQ(traitsOf({}).trim, Trim::writeZeroes);
  EXPECT_TRUE(traitsOf({}).zeroesDeallocate);
  EXPECT_FALSE(traitsOf({.dlfeat = 0x01}).zeroesDeallocate);
  // Blocks that may read as anything after they were freed must not be freed.
  EXPECT_FALSE(traitsOf({.dlfeat = 0x08}).zeroesDeallocate);
  EXPECT_FALSE(traitsOf({.oncs = 0x05}).capabilities.trim);
  EXPECT_FALSE(traitsOf({}, {.trim = Trim::off}).capabilities.trim);
  EXPECT_THAT(complaint({.oncs = 0x05}, {.trim = Trim::writeZeroes}), HasSubstr("has no Write Zeroes command"));
}

TEST(NvmeTraits, WithTransferredProtectionATrimHasToBeAskedFor) {
  EXPECT_FALSE(traitsOf(protectedBlocks).capabilities.trim);
  EXPECT_TRUE(traitsOf(protectedBlocks, {.trim = Trim::writeZeroes}).capabilities.trim);
  EXPECT_TRUE(traitsOf(protectedBlocks, {.protection = false}).capabilities.trim);
  EXPECT_TRUE(traitsOf({.metadataBytes = 8}).capabilities.trim);
}

TEST(NvmeTraits, ADeallocationIsATrimOnlyWhereItLeavesZeros) {
  const NvmeOptions options{.trim = Trim::deallocate};
  EXPECT_EQ(traitsOf({}, options).trim, Trim::deallocate);
  EXPECT_THAT(complaint({.dlfeat = 0x0A}, options), HasSubstr("does not promise"));
  EXPECT_THAT(complaint({.oncs = 0x09}, options), HasSubstr("has no Dataset Management"));
  EXPECT_THAT(complaint(protectedBlocks, options), HasSubstr("not zero for deallocated blocks"));
}

TEST(NvmeTraits, ProtectionInformationIsTransferredUnlessTheControllerIsToHandleIt) {
  const NvmeTraits transferred = traitsOf(protectedBlocks);
  EXPECT_EQ(transferred.geometry.protectionBytes, 8U);
  EXPECT_EQ(transferred.protection, 0);
  EXPECT_FALSE(transferred.separateMetadata);
  const NvmeTraits handled = traitsOf(protectedBlocks, {.protection = false});
  EXPECT_EQ(handled.geometry.protectionBytes, 0U);
  EXPECT_EQ(handled.protection, 0x8);
  EXPECT_TRUE(handled.referenceIsLba);
  FakeNvmeSettings third = protectedBlocks;
  third.protectionType = 3;
  EXPECT_FALSE(traitsOf(third, {.protection = false}).referenceIsLba);
  EXPECT_THAT(complaint({}, {.protection = false}), HasSubstr("leave pi=off out"));
  EXPECT_THAT(complaint({.metadataBytes = 8}, {.protection = false}), HasSubstr("leave pi=off out"));
}

TEST(NvmeTraits, MetadataApartFromTheDataGoThroughMemoryOfTheirOwn) {
  EXPECT_TRUE(traitsOf({.metadataBytes = 8, .metadataExtended = false}).separateMetadata);
}

TEST(NvmeTraits, FormatsThatCannotBeTestedAreRefusedWithTheRemedy) {
  EXPECT_THAT(complaint({.metadataBytes = 16}), testing::StrEq("NVMe device '/dev/x' is formatted with 16 bytes of "
                                                               "metadata a block; format it with none or 8"));
  EXPECT_THAT(complaint({.blocks = 8, .blockExponent = 16}), HasSubstr("logical blocks of 65536 bytes"));
  EXPECT_THAT(complaint({.commandSet = 1}), HasSubstr("command set 1"));
  EXPECT_THAT(complaint({.blocks = 0}), HasSubstr("namespace 1 is not there any more"));
}

constexpr FakeNvmeSettings zoned{.commandSet = 2, .zoneBlocks = 1024};

TEST(NvmeTraits, ZonesMakeAHostManagedDrive) {
  const NvmeTraits traits = traitsOf(zoned);
  EXPECT_EQ(traits.geometry.zoneBlocks, 1024U);
  EXPECT_TRUE(traits.capabilities.hostManaged);
  EXPECT_TRUE(traits.capabilities.zoneReset);
  EXPECT_FALSE(traits.capabilities.trim);
  EXPECT_TRUE(traits.readsStayInZones);
  EXPECT_THAT(complaint(zoned, {.trim = Trim::writeZeroes}), HasSubstr("emptied by resets alone"));
}

TEST(NvmeTraits, ZonesThatCannotBeWrittenToTheirEndsAreRefused) {
  FakeNvmeSettings settings = zoned;
  settings.zoneCapacity = 1000;
  EXPECT_THAT(complaint(settings), HasSubstr("zones of 1024 blocks of which only 1000 can be written"));
}

TEST(NvmeTraits, AllZonesAreLookedAt) {
  // More than one report holds.
  const FakeNvmeSettings settings{.blocks = 16384, .commandSet = 2, .zoneBlocks = 8, .zoneCapacity = 7};
  EXPECT_THAT(complaint(settings), HasSubstr("only 7"));
  FakeNvmeSettings good = settings;
  good.zoneCapacity = 0;
  EXPECT_EQ(complaint(good), "accepted");
}

TEST(NvmeTraits, TooFewActiveZonesAreRefused) {
  FakeNvmeSettings settings = zoned;
  settings.mostActive = 6;  // of which NVMe means seven
  EXPECT_THAT(complaint(settings), HasSubstr("only 7 zones be active at once; a test needs 8"));
  settings.mostActive = 7;
  EXPECT_EQ(complaint(settings), "accepted");
}

}  // namespace
}  // namespace corvane::host
