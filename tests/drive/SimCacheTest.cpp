#include "host/drive/SimCache.h"

#include <gtest/gtest.h>

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

  SimMedium medium{512};
  SimCache cache{medium, 100};
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

TEST_F(SimCacheTest, AFullCacheWritesItsOldestBlockOut) {
  for (uint64_t lba = 0; lba < 130; ++lba) {
    put(lba, 1);
    write(lba, 2);
  }
  EXPECT_EQ(cache.dirtyBlocks(), 100U);
  cache.lose(random);
  for (uint64_t lba = 0; lba < 30; ++lba) {
    EXPECT_EQ(content(lba), 2) << lba;
  }
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

}  // namespace
}  // namespace corvane::host
