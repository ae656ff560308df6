#include "host/run/RangeAgents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "host/run/ZoneWriter.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

const DriveGeometry zoned{.blocks = 1000, .zoneBlocks = 100};

TEST(ZoneResetSource, PicksEveryZone) {
  const ZoneMap zones(zoned, 100, 800);
  ZoneResetSource source(zones, nullptr, 1);
  std::set<uint32_t> picked;
  for (int i = 0; i < 200; ++i) {
    picked.insert(source.pick());
  }
  EXPECT_THAT(picked, ElementsAre(0, 1, 2, 3, 4, 5, 6));
}

TEST(ZoneResetSource, PrefersZonesThatHoldSomething) {
  const ZoneMap zones(zoned, 0, 1000);
  ZoneWriter writer(zones, 1, 1, 1);
  ZoneResetSource source(zones, &writer, 1);
  std::set<uint32_t> picked;
  for (int i = 0; i < 200; ++i) {
    picked.insert(source.pick());
  }
  EXPECT_THAT(picked, SizeIs(10)) << "all are empty";
  writer.used();
  writer.used();
  picked.clear();
  for (int i = 0; i < 200; ++i) {
    picked.insert(source.pick());
  }
  EXPECT_THAT(picked, ElementsAre(0, 1));
}

TEST(ZoneResetSource, FollowsFromItsSeed) {
  const ZoneMap zones(zoned, 0, 1000);
  ZoneResetSource one(zones, nullptr, 7);
  ZoneResetSource same(zones, nullptr, 7);
  ZoneResetSource other(zones, nullptr, 8);
  bool differs = false;
  for (int i = 0; i < 50; ++i) {
    const uint32_t zone = one.pick();
    EXPECT_EQ(same.pick(), zone);
    differs = differs || other.pick() != zone;
  }
  EXPECT_TRUE(differs);
}

TEST(InvalidateSource, PicksShortRangesUpToBothEnds) {
  InvalidateSource source(50, 60, 3, 1);
  std::set<uint64_t> firsts;
  std::set<uint64_t> ends;
  std::set<uint64_t> lengths;
  for (int i = 0; i < 500; ++i) {
    const vdl::LBARange range = source.pick();
    firsts.insert(range.first);
    ends.insert(range.end);
    lengths.insert(range.end - range.first);
  }
  EXPECT_EQ(*firsts.begin(), 50U);
  EXPECT_EQ(*ends.rbegin(), 60U);
  EXPECT_THAT(lengths, ElementsAre(1, 2, 3));
}

TEST(InvalidateSource, FollowsFromItsSeed) {
  InvalidateSource one(0, 1000, 8, 7);
  InvalidateSource same(0, 1000, 8, 7);
  InvalidateSource other(0, 1000, 8, 8);
  bool differs = false;
  for (int i = 0; i < 50; ++i) {
    const vdl::LBARange range = one.pick();
    const vdl::LBARange again = same.pick();
    EXPECT_EQ(again.first, range.first);
    EXPECT_EQ(again.end, range.end);
    differs = differs || other.pick().first != range.first;
  }
  EXPECT_TRUE(differs);
}

}  // namespace
}  // namespace corvane::host
