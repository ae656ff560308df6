#include "host/run/ZoneMap.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

DriveGeometry zoned(uint64_t blocks, uint64_t zoneBlocks) { return {.blocks = blocks, .zoneBlocks = zoneBlocks}; }

TEST(ZoneMap, ADriveWithoutZonesHasNone) {
  EXPECT_EQ(ZoneMap(zoned(1000, 0), 0, 1000).count(), 0U);
  EXPECT_EQ(ZoneMap().count(), 0U);
  EXPECT_FALSE(ZoneMap().contains(0));
}

TEST(ZoneMap, KnowsWhereZonesBeginAndEnd) {
  const ZoneMap zones(zoned(1000, 100), 0, 1000);
  ASSERT_EQ(zones.count(), 10U);
  EXPECT_EQ(zones.zoneBlocks(), 100U);
  EXPECT_EQ(zones.first(0), 0U);
  EXPECT_EQ(zones.end(0), 100U);
  EXPECT_EQ(zones.first(9), 900U);
  EXPECT_EQ(zones.end(9), 1000U);
  EXPECT_EQ(zones.zoneOf(99), 0U);
  EXPECT_EQ(zones.zoneOf(100), 1U);
}

TEST(ZoneMap, LeavesOutZonesThatTheRangeCuts) {
  const ZoneMap zones(zoned(1000, 100), 1, 399);
  ASSERT_EQ(zones.count(), 2U);
  EXPECT_EQ(zones.first(0), 100U);
  EXPECT_EQ(zones.end(1), 300U);
  EXPECT_FALSE(zones.contains(99));
  EXPECT_TRUE(zones.contains(100));
  EXPECT_TRUE(zones.contains(299));
  EXPECT_FALSE(zones.contains(300));
  EXPECT_EQ(zones.zoneOf(299), 1U);
  EXPECT_EQ(ZoneMap(zoned(1000, 100), 1, 199).count(), 0U);
}

TEST(ZoneMap, AShortLastZoneCountsWhenTheRangeReachesTheDrivesEnd) {
  const ZoneMap whole(zoned(950, 100), 0, 950);
  ASSERT_EQ(whole.count(), 10U);
  EXPECT_EQ(whole.end(9), 950U);
  EXPECT_EQ(ZoneMap(zoned(950, 100), 0, 949).count(), 9U);
}

TEST(ZoneMap, SaysWhenThereAreMoreZonesThanNumbers) {
  const uint64_t numbers = 0xFFFFFFFF;
  EXPECT_FALSE(ZoneMap({.blocks = UINT64_MAX, .zoneBlocks = 1}, 0, numbers).tooMany());
  const ZoneMap tooMany({.blocks = UINT64_MAX, .zoneBlocks = 1}, 0, numbers + 1);
  EXPECT_TRUE(tooMany.tooMany());
  EXPECT_EQ(tooMany.count(), numbers) << "not what is left of the number";
  EXPECT_TRUE(ZoneMap({.blocks = UINT64_MAX, .zoneBlocks = 2}, 0, UINT64_MAX).tooMany());
}

}  // namespace
}  // namespace corvane::host
