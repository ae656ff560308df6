#include "RandomNumberGenerator.h"

#include <gtest/gtest.h>

#include <random>

namespace vdl {
namespace {

constexpr unsigned long noLimit = ~0UL;

RandomNumberGenerator<unsigned long> seeded(uint64_t seed) {
  RandomNumberGenerator<unsigned long> rng;
  rng.init(seed, 0, noLimit);
  return rng;
}

TEST(RandomNumberGenerator, FirstDrawsOfSeedOne) {
  auto rng = seeded(1);
  EXPECT_EQ(rng(), 0xff4780eb6ac1f425U);
  EXPECT_EQ(rng(), 0xeebc1448b8672f8cU);
  EXPECT_EQ(rng(), 0x20ccc38900077effU);
  EXPECT_EQ(rng(), 0xffc11e854d65aacbU);
}

TEST(RandomNumberGenerator, FirstDrawsOfOtherSeeds) {
  EXPECT_EQ(seeded(5489)(), 0x22ae9ef6d091bb5cU);
  EXPECT_EQ(seeded(12345)(), 0xe3e12de5edfb51e2U);
}

TEST(RandomNumberGenerator, OnlyTheLowHalfOfTheSeedCounts) {
  auto wide = seeded(0x100000001);
  auto narrow = seeded(1);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(wide(), narrow());
  }
}

TEST(RandomNumberGenerator, ADrawIsTwoOutputsOfTheEngineLowHalfFirst) {
  auto rng = seeded(77);
  std::mt19937 engine(77);
  for (int i = 0; i < 10000; ++i) {
    const uint64_t low = engine();
    const uint64_t high = engine();
    ASSERT_EQ(rng(), low | high << 32);
  }
}

TEST(RandomNumberGenerator, InitStartsOver) {
  auto rng = seeded(1);
  rng();
  rng();
  rng.init(1, 0, noLimit);
  EXPECT_EQ(rng(), 0xff4780eb6ac1f425U);
}

TEST(RandomNumberGenerator, IsReadyAfterInitOnly) {
  RandomNumberGenerator<unsigned long> rng;
  EXPECT_FALSE(rng.ready());
  rng.init(1, 0, noLimit);
  EXPECT_TRUE(rng.ready());
}

TEST(RandomNumberGenerator, KeepsToItsRange) {
  RandomNumberGenerator<unsigned long> rng;
  rng.init(1, 5, 7);
  bool seen[3] = {};
  for (int i = 0; i < 1000; ++i) {
    const unsigned long draw = rng();
    ASSERT_GE(draw, 5UL);
    ASSERT_LE(draw, 7UL);
    seen[draw - 5] = true;
  }
  EXPECT_TRUE(seen[0] && seen[1] && seen[2]);
}

}  // namespace
}  // namespace vdl
