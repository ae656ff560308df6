#include "host/base/Probability.h"

#include <gtest/gtest.h>

#include "host/base/Random.h"

namespace corvane::host {
namespace {

TEST(Probability, IsANumberFromZeroToOne) {
  EXPECT_EQ(parseProbability("0"), 0.0);
  EXPECT_EQ(parseProbability("1"), 1.0);
  EXPECT_EQ(parseProbability("0.25"), 0.25);
  EXPECT_EQ(parseProbability("1e-4"), 1e-4);
  for (const char* wrong : {"", "-0.1", "1.01", "nan", "inf", "0.5x", " 0.5", "0,5", "often"}) {
    EXPECT_EQ(parseProbability(wrong), std::nullopt) << wrong;
  }
}

TEST(Probability, DecidesHowOftenSomethingHappens) {
  Random random(7);
  int often = 0;
  for (int i = 0; i < 10'000; ++i) {
    EXPECT_FALSE(random.happens(0));
    EXPECT_TRUE(random.happens(1));
    often += random.happens(0.25) ? 1 : 0;
  }
  EXPECT_GT(often, 2300);
  EXPECT_LT(often, 2700);
}

}  // namespace
}  // namespace corvane::host
