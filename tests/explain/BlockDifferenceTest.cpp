#include "host/explain/BlockDifference.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

TEST(BlockDifferenceTest, CountsBytesAndBits) {
  std::vector<uint8_t> a(64, 0x00);
  std::vector<uint8_t> b = a;
  b[10] = 0x81;
  b[12] = 0x01;
  const BlockDifference difference = differenceOf(a, b).value();
  EXPECT_EQ(difference.first, 10U);
  EXPECT_EQ(difference.last, 12U);
  EXPECT_EQ(difference.bytes, 2U);
  EXPECT_EQ(difference.bits, 3U);
  EXPECT_TRUE(difference.isFewBits());
  EXPECT_FALSE(difference.isDense());
}

TEST(BlockDifferenceTest, TellsOtherDataFromFlippedBits) {
  const std::vector<uint8_t> a(64, 0x00);
  const std::vector<uint8_t> b(64, 0x5A);
  const BlockDifference difference = differenceOf(a, b).value();
  EXPECT_FALSE(difference.isFewBits());
  EXPECT_TRUE(difference.isDense());
}

TEST(BlockDifferenceTest, FindsNoneInEqualBlocksNorInBlocksOfOtherLength) {
  const std::vector<uint8_t> a(64, 1);
  EXPECT_FALSE(differenceOf(a, a));
  EXPECT_FALSE(differenceOf(a, std::vector<uint8_t>(63, 2)));
  EXPECT_FALSE(differenceOf({}, {}));
}

}  // namespace
}  // namespace corvane::host
