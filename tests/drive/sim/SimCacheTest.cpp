#include "host/drive/sim/SimCache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

class SimCacheTest : public testing::Test {
 protected:
  void write(uint64_t lba, uint8_t content) {
    cache.beforeChange(lba, 1);
    put(lba, content);
  }
  void put(uint64_t lba, uint8_t content) {
    const Bytes sector(512, content);
    medium.write(lba, 1, sector.data());
  }
  uint8_t content(uint64_t lba) { return medium.sector(lba)[10]; }

  DriveGeometry geometry{.blocks = 10'000};
  SimMedium medium{512};
  SimCache cache{medium, geometry, 100, TearUnit::block, 7};
  Random random{1};
};

TEST_F(SimCacheTest, APowerCutLosesSomeDirtyBlocksAndKeepsOthers) {
  int lost = 0;
  for (uint64_t lba = 0; lba < 100; ++lba) {
    put(lba, 1);
    write(lba, 2);
  }
  EXPECT_EQ(cache.dirtyBlocks(), 100U);
  cache.lose(random);
  for (uint64_t lba = 0; lba < 100; ++lba) {
    ASSERT_TRUE(content(lba) == 1 || content(lba) == 2);
    lost += content(lba) == 1 ? 1 : 0;
  }
  EXPECT_GT(lost, 20);
  EXPECT_LT(lost, 80);
  EXPECT_EQ(cache.dirtyBlocks(), 0U);
}

TEST_F(SimCacheTest, WhatThePlatterHeldIsTheContentBeforeTheFirstUnflushedWrite) {
  int lost = 0;
  for (uint64_t lba = 0; lba < 40; ++lba) {
    put(lba, 1);
    write(lba, 2);
    write(lba, 3);
  }
  cache.lose(random);
  for (uint64_t lba = 0; lba < 40; ++lba) {
    ASSERT_TRUE(content(lba) == 1 || content(lba) == 3) << int{content(lba)};
    lost += content(lba) == 1 ? 1 : 0;
  }
  EXPECT_GT(lost, 0);
}

TEST_F(SimCacheTest, AFlushMakesEverythingSafe) {
  for (uint64_t lba = 0; lba < 50; ++lba) {
    write(lba, 2);
  }
  cache.flush();
  cache.lose(random);
  for (uint64_t lba = 0; lba < 50; ++lba) {
    EXPECT_EQ(content(lba), 2);
  }
}

TEST_F(SimCacheTest, AWriteThroughMakesItsBlocksSafe) {
  for (uint64_t lba = 0; lba < 50; ++lba) {
    write(lba, 2);
    put(lba, 3);
    cache.writtenThrough(lba, 1);
  }
  EXPECT_EQ(cache.dirtyBlocks(), 0U);
  cache.lose(random);
  for (uint64_t lba = 0; lba < 50; ++lba) {
    EXPECT_EQ(content(lba), 3);
  }
}

/// Which of the first `dirtied` blocks a power cut may still take, in 60 of them.
std::vector<bool> stillDirty(uint64_t seed, uint64_t dirtied) {
  const DriveGeometry geometry{.blocks = 10'000};
  std::vector<bool> lost(dirtied);
  for (uint64_t chance = 0; chance < 60; ++chance) {
    SimMedium medium(512);
    SimCache cache(medium, geometry, 100, TearUnit::block, seed);
    Random random(chance);
    const Bytes old(512, 1);
    const Bytes fresh(512, 2);
    for (uint64_t lba = 0; lba < dirtied; ++lba) {
      medium.write(lba, 1, old.data());
      cache.beforeChange(lba, 1);
      medium.write(lba, 1, fresh.data());
    }
    EXPECT_EQ(cache.dirtyBlocks(), std::min<uint64_t>(dirtied, 100));
    cache.lose(random);
    for (uint64_t lba = 0; lba < dirtied; ++lba) {
      lost[lba] = lost[lba] || medium.sector(lba)[0] == 1;
    }
  }
  return lost;
}

TEST(SimCacheChoice, AFullCacheWritesAnyBlockOutAndASeedAlwaysTheSame) {
  const std::vector<bool> lost = stillDirty(1, 130);
  EXPECT_EQ(std::count(lost.begin(), lost.end(), true), 100);
  // Not the oldest ones, as a drive that works in order would.
  EXPECT_GT(std::count(lost.begin(), lost.begin() + 30, true), 10);
  EXPECT_EQ(stillDirty(1, 130), lost);
  EXPECT_NE(stillDirty(2, 130), lost);
}

TEST_F(SimCacheTest, ABlockThatIsWrittenThroughAndDirtiedAgainCountsFromThen) {
  for (uint64_t round = 0; round < 1000; ++round) {
    write(7, 2);
    cache.writtenThrough(7, 1);
  }
  write(7, 3);
  EXPECT_EQ(cache.dirtyBlocks(), 1U);
  cache.lose(random);
  EXPECT_TRUE(content(7) == 2 || content(7) == 3);
}

TEST_F(SimCacheTest, CleanBlocksAreNobodysConcern) {
  put(1, 1);
  write(2, 2);
  cache.writtenThrough(0, 2);
  EXPECT_EQ(cache.dirtyBlocks(), 1U);
  cache.writtenThrough(2, 5);
  EXPECT_EQ(cache.dirtyBlocks(), 0U);
}

/// Blocks of 512 bytes in units of 4 KiB.
class SimCacheOf4Kib : public SimCacheTest {
 protected:
  void writeRange(uint64_t lba, uint64_t blocks, uint8_t to) {
    grouped.beforeChange(lba, blocks);
    for (uint64_t i = 0; i < blocks; ++i) {
      put(lba + i, to);
    }
  }

  SimCache grouped{medium, geometry, 100, TearUnit::fourKiB, 7};
};

TEST_F(SimCacheOf4Kib, BlocksOfAGroupAreLostTogether) {
  for (uint64_t lba = 0; lba < 100; ++lba) {
    put(lba, 1);
  }
  // From the middle of a group to the middle of another, by single blocks and by ranges.
  for (uint64_t lba = 4; lba < 50; ++lba) {
    writeRange(lba, 1, 2);
  }
  writeRange(50, 50, 2);
  grouped.lose(random);
  int lost = 0;
  for (uint64_t lba = 4; lba < 100; ++lba) {
    ASSERT_EQ(content(lba), content(std::max<uint64_t>(lba / 8 * 8, 4))) << lba;
    lost += content(lba) == 1 ? 1 : 0;
  }
  EXPECT_GT(lost, 0);
  EXPECT_LT(lost, 96);
}

TEST_F(SimCacheOf4Kib, BlocksOfAGroupLeaveAFullCacheTogetherAndStayTogetherInIt) {
  for (uint64_t round = 0; round < 20; ++round) {
    for (uint64_t lba = 0; lba < 400; ++lba) {
      put(lba, 1);
    }
    grouped.flush();
    writeRange(0, 400, 2);
    EXPECT_LE(grouped.dirtyBlocks(), 100U);
    EXPECT_GT(grouped.dirtyBlocks(), 90U);
    grouped.lose(random);
    for (uint64_t lba = 0; lba < 400; ++lba) {
      ASSERT_EQ(content(lba), content(lba / 8 * 8)) << lba;
    }
  }
}

}  // namespace
}  // namespace corvane::host
