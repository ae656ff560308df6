#include "host/run/ZoneWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr uint64_t zoneBlocks = 64;

ZoneMap map(uint32_t count) {
  const uint64_t blocks = count * zoneBlocks;
  return {DriveGeometry{.blocks = blocks, .zoneBlocks = zoneBlocks}, 0, blocks};
}

/// Writes until a zone has room for no more; gives the zones in the order in which they were full.
std::vector<uint32_t> fillAll(ZoneWriter& writer) {
  std::vector<uint32_t> filled;
  while (writer.hasRoom()) {
    const ZonePosition at = writer.next();
    writer.used();
    const uint32_t zone = writer.zones().zoneOf(at.lba);
    if (at.lba + at.blocks == writer.zones().end(zone)) {
      filled.push_back(zone);
    }
  }
  return filled;
}

TEST(ZoneWriter, EveryZoneIsWrittenFromItsBeginningToItsEndWithoutGaps) {
  ZoneWriter writer(map(7), 1, 8, 3);
  std::vector<uint64_t> pointers;
  for (uint32_t zone = 0; zone < 7; ++zone) {
    pointers.push_back(zone * zoneBlocks);
  }
  std::set<uint32_t> lengths;
  while (writer.hasRoom()) {
    const ZonePosition at = writer.next();
    const uint32_t zone = writer.zones().zoneOf(at.lba);
    ASSERT_EQ(at.lba, pointers[zone]);
    ASSERT_GE(at.blocks, 1U);
    ASSERT_LE(at.blocks, 8U);
    pointers[zone] += at.blocks;
    ASSERT_LE(pointers[zone], writer.zones().end(zone));
    lengths.insert(at.blocks);
    writer.used();
  }
  for (uint32_t zone = 0; zone < 7; ++zone) {
    EXPECT_EQ(pointers[zone], (zone + 1) * zoneBlocks);
  }
  EXPECT_THAT(lengths, SizeIs(8));
}

TEST(ZoneWriter, ThePlaceStaysUntilItIsUsed) {
  ZoneWriter writer(map(4), 1, 64, 1);
  const ZonePosition first = writer.next();
  EXPECT_EQ(writer.next().lba, first.lba);
  EXPECT_EQ(writer.next().blocks, first.blocks);
}

TEST(ZoneWriter, WritesTakeTurnsOverAFewOpenZones) {
  ZoneWriter writer(map(20), 1, 1, 1);
  std::vector<uint32_t> zones;
  for (int i = 0; i < 5; ++i) {
    zones.push_back(writer.zones().zoneOf(writer.next().lba));
    writer.used();
  }
  EXPECT_THAT(zones, ElementsAre(0, 1, 2, 3, 0));
}

TEST(ZoneWriter, OfTwoZonesOneIsFullBeforeTheOtherIsBegun) {
  ZoneWriter writer(map(2), 1, 8, 1);
  while (!writer.isEmpty(1) || writer.zones().zoneOf(writer.next().lba) == 0) {
    ASSERT_TRUE(writer.isEmpty(1));
    writer.used();
  }
  EXPECT_EQ(writer.next().lba, zoneBlocks);
  EXPECT_FALSE(writer.isEmpty(0));
}

TEST(ZoneWriter, LengthsAreCutAtTheZonesEndOnly) {
  ZoneWriter writer(map(2), 48, 48, 1);
  EXPECT_EQ(writer.next().blocks, 48U);
  writer.used();
  EXPECT_EQ(writer.next().lba, 48U);
  EXPECT_EQ(writer.next().blocks, 16U);
}

TEST(ZoneWriter, AResetZoneIsWrittenFromItsBeginningAgain) {
  ZoneWriter writer(map(3), 1, 8, 5);
  EXPECT_THAT(fillAll(writer), ElementsAre(0, 1, 2));
  EXPECT_FALSE(writer.hasRoom());
  writer.emptied(1);
  EXPECT_TRUE(writer.isEmpty(1));
  ASSERT_TRUE(writer.hasRoom());
  EXPECT_EQ(writer.next().lba, zoneBlocks);
  EXPECT_THAT(fillAll(writer), ElementsAre(1));
}

TEST(ZoneWriter, AnOpenZoneThatIsResetStartsAgainAtOnce) {
  ZoneWriter writer(map(2), 4, 4, 5);
  writer.used();
  ASSERT_EQ(writer.next().lba, 4U);
  writer.emptied(0);
  EXPECT_EQ(writer.next().lba, 0U);
}

TEST(ZoneWriter, AClosedZoneIsLeftAloneUntilItIsReset) {
  ZoneWriter writer(map(2), 4, 4, 5);
  writer.used();
  writer.closeZoneOf(2);
  EXPECT_EQ(writer.next().lba, zoneBlocks);
  EXPECT_FALSE(writer.isEmpty(0));
  writer.takeBackTo(0);
  EXPECT_EQ(writer.next().lba, zoneBlocks) << "nobody knows where the drive's pointer is";
  fillAll(writer);
  EXPECT_FALSE(writer.hasRoom());
  writer.emptied(0);
  EXPECT_EQ(writer.next().lba, 0U);
}

TEST(ZoneWriter, WritesThatTheDriveNeverSawAreTakenBack) {
  ZoneWriter writer(map(2), 8, 8, 5);
  for (int i = 0; i < 3; ++i) {
    writer.used();
  }
  ASSERT_EQ(writer.next().lba, 24U);
  writer.takeBackTo(16);
  EXPECT_EQ(writer.next().lba, 16U);
  writer.takeBackTo(8);
  EXPECT_EQ(writer.next().lba, 8U);
  writer.takeBackTo(16);
  EXPECT_EQ(writer.next().lba, 8U) << "never forward";
}

TEST(ZoneWriter, AFullZoneThatLosesItsLastWriteIsWrittenToItsEnd) {
  ZoneWriter writer(map(2), 32, 32, 5);
  fillAll(writer);
  ASSERT_FALSE(writer.hasRoom());
  writer.takeBackTo(32);
  ASSERT_TRUE(writer.hasRoom());
  EXPECT_EQ(writer.next().lba, 32U);
  EXPECT_THAT(fillAll(writer), ElementsAre(0));
}

}  // namespace
}  // namespace corvane::host
