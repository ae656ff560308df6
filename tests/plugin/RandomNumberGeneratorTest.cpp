#include "RandomNumberGenerator.h"

#include <gtest/gtest.h>

#include <boost/random/mersenne_twister.hpp>
#include <boost/random/uniform_int_distribution.hpp>
#include <cstring>
#include <random>
#include <vector>

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

/// Draws of Boost's engine through Boost's distribution, which define what a seed stands for.
class DrawsOfBoost {
 public:
  DrawsOfBoost(uint64_t seed, unsigned long min, unsigned long max)
      : engine_(static_cast<uint32_t>(seed)), range_(min, max) {}
  unsigned long operator()() { return range_(engine_); }

 private:
  boost::random::mt19937 engine_;
  boost::random::uniform_int_distribution<unsigned long> range_;
};

void expectDrawsOfBoost(uint64_t seed, unsigned long min, unsigned long max, int draws) {
  SCOPED_TRACE(::testing::Message() << "seed " << seed << ", " << min << " to " << max);
  RandomNumberGenerator<unsigned long> rng;
  rng.init(seed, min, max);
  DrawsOfBoost expected(seed, min, max);
  for (int i = 0; i < draws; ++i) {
    ASSERT_EQ(rng(), expected()) << "draw " << i;
  }
}

TEST(RandomNumberGenerator, DrawsFromEveryNumberAreThoseOfBoost) {
  for (const uint64_t seed : {0UL, 1UL, 5489UL, 0x80000000UL, 0xFFFFFFFFUL}) {
    expectDrawsOfBoost(seed, 0, noLimit, 2'000'000);
  }
}

TEST(RandomNumberGenerator, DrawsFromARangeAreThoseOfBoost) {
  constexpr unsigned long half = 1UL << 63;
  for (const uint64_t seed : {0UL, 1UL, 77UL}) {
    expectDrawsOfBoost(seed, 0, 0, 10'000);
    expectDrawsOfBoost(seed, 5, 7, 100'000);
    expectDrawsOfBoost(seed, 0, 0xFFFFFFFE, 100'000);
    expectDrawsOfBoost(seed, 0, 0xFFFFFFFF, 100'000);
    expectDrawsOfBoost(seed, 0, 0x100000000, 100'000);
    expectDrawsOfBoost(seed, 0, noLimit - 1, 100'000);
    expectDrawsOfBoost(seed, 1, noLimit, 100'000);
    expectDrawsOfBoost(seed, half - 1, half + 3, 100'000);
  }
}

TEST(RandomNumberGenerator, SourcesThatAreDrawnInTurnsDoNotDisturbEachOther) {
  auto first = seeded(3);
  auto second = seeded(4);
  DrawsOfBoost expectedFirst(3, 0, noLimit);
  DrawsOfBoost expectedSecond(4, 0, noLimit);
  for (int i = 0; i < 100'000; ++i) {
    ASSERT_EQ(first(), expectedFirst());
    for (int more = 0; more < i % 3; ++more) {
      ASSERT_EQ(second(), expectedSecond());
    }
  }
}

TEST(RandomNumberGenerator, CopiesAreTheDrawsOfTheirTurn) {
  for (const unsigned long max : {noLimit, 1000UL}) {
    RandomNumberGenerator<unsigned long> rng;
    rng.init(9, 0, max);
    DrawsOfBoost expected(9, 0, max);
    for (uint64_t draws = 0; draws < 700; draws += 13) {
      std::vector<uint8_t> bytes(draws * 8);
      rng.copy(bytes.data(), draws);
      for (uint64_t i = 0; i < draws; ++i) {
        unsigned long draw = 0;
        std::memcpy(&draw, bytes.data() + i * 8, 8);
        ASSERT_EQ(draw, expected()) << draws << " " << i;
      }
      ASSERT_EQ(rng(), expected());
    }
  }
}

/// A range that takes one output a draw leaves an odd place in the engine's batch.
TEST(RandomNumberGenerator, PairsOfOutputsMayStandAcrossTwoBatches) {
  MersenneTwister engine(5);
  std::mt19937 expected(5);
  for (int round = 0; round < 1000; ++round) {
    ASSERT_EQ(engine(), expected());
    for (int i = 0; i < 400; ++i) {
      const uint64_t low = expected();
      ASSERT_EQ(engine.pair(), low | uint64_t{expected()} << 32);
    }
  }
}

TEST(RandomNumberGenerator, InitStartsOver) {
  auto rng = seeded(1);
  rng();
  rng();
  rng.init(1, 0, noLimit);
  EXPECT_EQ(rng(), 0xff4780eb6ac1f425U);
}

TEST(RandomNumberGenerator, InitChangesTheRange) {
  auto rng = seeded(1);
  rng();
  rng.init(1, 5, 7);
  DrawsOfBoost expected(1, 5, 7);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(rng(), expected());
  }
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
