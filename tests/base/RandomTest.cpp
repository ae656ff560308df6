#include "host/base/Random.h"

#include <gtest/gtest.h>

#include <array>

namespace corvane::host {
namespace {

TEST(Random, SeedZeroGivesTheSplitMixAndXoshiroReferenceNumbers) {
  uint64_t state = 0;
  EXPECT_EQ(Random::splitMix(state), 0xE220A8397B1DCDAFU);
  EXPECT_EQ(Random::splitMix(state), 0x6E789E6AA1B965F4U);
  Random random(0);
  EXPECT_EQ(random.next(), 0x99EC5F36CB75F2B4U);
  EXPECT_EQ(random.next(), 0xBF6E1F784956452AU);
  EXPECT_EQ(random.next(), 0x1A5F849D4933E6E0U);
}

TEST(Random, BelowReachesEveryValueAndNoOther) {
  Random random(7);
  std::array<int, 5> seen{};
  for (int i = 0; i < 5000; ++i) {
    const uint64_t value = random.below(5);
    ASSERT_LT(value, 5U);
    ++seen[value];
  }
  for (const int count : seen) {
    EXPECT_GT(count, 850);
    EXPECT_LT(count, 1150);
  }
}

TEST(Random, BetweenIncludesBothEndsAlsoOfTheWholeRange) {
  Random random(3);
  bool first = false;
  bool last = false;
  for (int i = 0; i < 200; ++i) {
    const uint64_t value = random.between(10, 12);
    ASSERT_GE(value, 10U);
    ASSERT_LE(value, 12U);
    first = first || value == 10;
    last = last || value == 12;
  }
  EXPECT_TRUE(first);
  EXPECT_TRUE(last);
  Random a(9);
  Random b(9);
  EXPECT_EQ(a.between(0, ~uint64_t{0}), b.next());
}

}  // namespace
}  // namespace corvane::host
