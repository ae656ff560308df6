#include "host/drive/scsi/ScsiPages.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

using Reply = std::vector<uint8_t>;

Reply withText(Reply bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

TEST(ScsiPages, AnInquirySaysWhatTheDeviceIs) {
  const Reply bytes = withText({0x61, 0, 6, 2, 31, 0, 0, 0}, "ACME    Sp\tinning Rust 1.5 ");
  ASSERT_EQ(bytes.size(), 35U);
  EXPECT_FALSE(parseInquiry(bytes));
  const std::optional<InquiryData> data = parseInquiry(withText(bytes, " "));
  ASSERT_TRUE(data);
  EXPECT_EQ(data->qualifier, 3);
  EXPECT_EQ(data->deviceType, 1);
  EXPECT_EQ(data->vendor, "ACME");
  EXPECT_EQ(data->product, "Sp?inning Rust 1");
  EXPECT_EQ(data->revision, ".5");
}

TEST(ScsiPages, ACapacitySaysHowTheUnitIsFormatted) {
  Reply bytes{0, 0, 0, 1, 2, 3, 4, 5, 0, 0, 16, 0, 0x05, 0x23, 0xC0, 0x07};
  const std::optional<CapacityData> data = parseCapacity(bytes);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->lastLba, 0x0102030405U);
  EXPECT_EQ(data->blockBytes, 4096U);
  EXPECT_EQ(data->protectionType, 3);
  EXPECT_EQ(data->protectionIntervalExponent, 2);
  EXPECT_EQ(data->physicalExponent, 3);
  EXPECT_TRUE(data->provisioned);
  EXPECT_TRUE(data->readsZeros);
  bytes[12] = 0x04;  // without PROT_EN the type says nothing
  bytes[14] = 0x80;
  EXPECT_EQ(parseCapacity(bytes)->protectionType, 0);
  EXPECT_FALSE(parseCapacity(bytes)->readsZeros);
  bytes.resize(11);
  EXPECT_FALSE(parseCapacity(bytes));
}

TEST(ScsiPages, APageIsListedOrNot) {
  const Reply list{0, 0, 0, 2, 0x80, 0xB0, 0xB2};
  EXPECT_TRUE(listsPage(list, 0xB0));
  EXPECT_FALSE(listsPage(list, 0xB2));  // behind the end that the page states
  EXPECT_FALSE(listsPage(Reply{0, 0x80, 0, 1, 0xB0}, 0xB0));
}

TEST(ScsiPages, ASerialNumberStandsWithoutItsBlanks) {
  EXPECT_EQ(parseSerial(withText({0, 0x80, 0, 6}, "  A 1 ")), "A 1");
  EXPECT_EQ(parseSerial(withText({0, 0x80, 0, 2}, "  ")), "");
  EXPECT_EQ(parseSerial(withText({0, 0x83, 0, 2}, "A1")), "");
}

TEST(ScsiPages, TheDesignatorIsTheUnitsAndPrefersNaa) {
  const Reply both{0,    0x83, 0, 28,                            // three designators
                   1,    0x12, 0, 0x02, 1,    2,                 // EUI of the target's port
                   1,    0x02, 0, 0x04, 0xAB, 0xCD, 0x01, 0x23,  // EUI of the unit
                   0x61, 0x03, 0, 0x02, 0x50, 0x01,              // NAA of the unit
                   1,    0x03, 0, 0xF0, 0,    0,    0,    0};    // one that does not fit
  EXPECT_EQ(parseDesignator(both), "naa.5001");
  EXPECT_EQ(parseDesignator(Reply(both.begin(), both.begin() + 18)), "eui.abcd0123");
  EXPECT_EQ(parseDesignator(Reply(both.begin(), both.begin() + 10)), "");
}

TEST(ScsiPages, BlockLimitsStandWhereTheStandardPutsThem) {
  Reply bytes(64);
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<uint8_t>(i);
  }
  bytes[1] = 0xB0;
  bytes[2] = 0;
  bytes[3] = 60;
  const std::optional<BlockLimits> limits = parseBlockLimits(bytes);
  ASSERT_TRUE(limits);
  EXPECT_EQ(limits->mostTransfer, 0x08090A0BU);
  EXPECT_EQ(limits->mostUnmap, 0x14151617U);
  EXPECT_EQ(limits->unmapGranularity, 0x1C1D1E1FU);
  EXPECT_EQ(limits->unmapAlignment, 0U);  // its valid bit is clear
  EXPECT_EQ(limits->mostWriteSame, 0x2425262728292A2BU);
  EXPECT_EQ(limits->mostAtomic, 0x2C2D2E2FU);
  EXPECT_EQ(limits->atomicAlignment, 0x30313233U);
  EXPECT_EQ(limits->atomicGranularity, 0x34353637U);
  EXPECT_EQ(limits->mostAtomicWithBoundary, 0x38393A3BU);
  EXPECT_EQ(limits->mostAtomicBoundary, 0x3C3D3E3FU);
  bytes[32] |= 0x80;
  EXPECT_EQ(parseBlockLimits(bytes)->unmapAlignment, 0x20212223U);
}

TEST(ScsiPages, WhatAShortBlockLimitsPageLacksIsNotLimited) {
  Reply bytes(64, 0x11);
  bytes[1] = 0xB0;
  bytes[2] = 0;
  bytes[3] = 12;  // as before limits of UNMAP were added
  const std::optional<BlockLimits> limits = parseBlockLimits(bytes);
  ASSERT_TRUE(limits);
  EXPECT_EQ(limits->mostTransfer, 0x11111111U);
  EXPECT_EQ(limits->mostUnmap, 0U);
  EXPECT_EQ(limits->mostWriteSame, 0U);
  bytes[1] = 0xB1;
  EXPECT_FALSE(parseBlockLimits(bytes));
}

TEST(ScsiPages, ProvisioningSaysWhatUnmapsAndWhatIsReadThen) {
  std::optional<ProvisioningData> data = parseProvisioning(Reply{0, 0xB2, 0, 4, 0, 0xC4, 2, 0});
  ASSERT_TRUE(data);
  EXPECT_TRUE(data->unmaps && data->writeSameUnmaps && data->readsZeros);
  data = parseProvisioning(Reply{0, 0xB2, 0, 4, 0, 0x28, 2, 0});  // WRITE SAME(10), and LBPRZ 010b: a pattern
  EXPECT_FALSE(data->unmaps || data->writeSameUnmaps || data->readsZeros);
  EXPECT_FALSE(parseProvisioning(Reply{0, 0xB2, 0, 1, 0, 0xC4}));
}

TEST(ScsiPages, AModePageStandsBehindItsHeaderAndBlockDescriptors) {
  Reply shortForm{0, 0, 0x90, 0, 0x88, 18, 0x04};
  std::optional<ModeData> data = parseMode(shortForm, cachingPage, 4);
  ASSERT_TRUE(data);
  EXPECT_TRUE(data->writeProtected && data->forcesUnitAccess && data->writeBackCache);
  EXPECT_FALSE(parseMode(shortForm, controlPage, 4));

  Reply withDescriptor{0, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8, 0x08, 18, 0x04};
  EXPECT_TRUE(parseMode(withDescriptor, cachingPage, 4)->writeBackCache);
  EXPECT_FALSE(parseMode(withDescriptor, cachingPage, 4)->writeProtected);

  Reply longForm{0, 0, 0, 0x10, 0, 0, 0, 0, 0x0A, 10, 0, 0, 0, 0x80};
  data = parseMode(longForm, controlPage, 8);
  ASSERT_TRUE(data);
  EXPECT_TRUE(data->forcesUnitAccess && data->keepsApplicationTags);
  EXPECT_FALSE(data->writeProtected || data->writeBackCache);
  EXPECT_FALSE(parseMode(Reply{0, 0, 0}, cachingPage, 4));
}

TEST(ScsiPages, AnOperationIsSupportedOrNotOrNobodyKnows) {
  const auto parse = [](uint8_t support) { return parseOperationSupport(Reply{0, support, 0, 16, 0x93, 0xE8}); };
  EXPECT_FALSE(parse(0));
  EXPECT_FALSE(parse(1)->supported);
  EXPECT_TRUE(parse(3)->supported);
  EXPECT_EQ(parse(3)->flags, 0xE8);
  EXPECT_TRUE(parse(0x83)->supported);  // with command timeouts behind
  EXPECT_FALSE(parse(5)->supported);    // in a way of the maker's own
  EXPECT_EQ(parseOperationSupport(Reply{0, 3, 0, 16})->flags, 0);
  EXPECT_FALSE(parseOperationSupport(Reply{0, 3, 0}));
}

TEST(ScsiPages, AtomicSegmentsSatisfyEveryLimit) {
  const auto segments = [](const BlockLimits& limits, uint64_t mostTransfer = 1 << 20) {
    return atomicWritingOf(limits, mostTransfer).segments;
  };
  BlockLimits limits;
  EXPECT_FALSE(segments(limits).limited());
  limits.mostAtomic = 100;
  EXPECT_EQ(segments(limits).leastBlocks, 1U);
  EXPECT_EQ(segments(limits).mostBlocks, 64U);
  EXPECT_EQ(segments(limits, 48).mostBlocks, 32U);
  limits.atomicAlignment = 8;
  limits.atomicGranularity = 4;
  EXPECT_EQ(segments(limits).leastBlocks, 8U);
  limits.atomicGranularity = 128;
  EXPECT_FALSE(segments(limits).limited());
  EXPECT_NE(atomicWritingOf(limits, 1000).whyNot, "");
  limits.atomicGranularity = 6;
  EXPECT_FALSE(segments(limits).limited());
  limits = {};
  limits.mostAtomic = 1 << 20;
  EXPECT_EQ(segments(limits).mostBlocks, 32768U);  // the command block has 16 bits for it
  limits = {};
  limits.mostAtomicWithBoundary = 6;
  EXPECT_FALSE(segments(limits).limited());
  limits.mostAtomicBoundary = 16;
  EXPECT_EQ(segments(limits).mostBlocks, 4U);
  EXPECT_TRUE(atomicWritingOf(limits, 1000).bySegmentBound);
}

TEST(ScsiPages, DeviceTypesHaveNames) {
  EXPECT_EQ(deviceTypeName(0x01), "a tape drive");
  EXPECT_EQ(deviceTypeName(0x1E), "a device of type 1eh");
}

}  // namespace
}  // namespace corvane::host
