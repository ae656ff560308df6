#include "LbaSpan.h"

#include <gtest/gtest.h>

#include <vector>

namespace vdl::agent {
namespace {

std::vector<uint64_t> blocks(const LbaSpan& span) {
  std::vector<uint64_t> found;
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    found.push_back(lba);
  }
  return found;
}

TEST(LbaSpan, OrdinaryCommandsTouchEveryBlock) {
  const LbaSpan span = spanOf(10, 4, false);
  EXPECT_EQ(span.first, 10U);
  EXPECT_EQ(span.end, 14U);
  EXPECT_EQ(span.step, 1U);
  EXPECT_EQ(blocks(span), (std::vector<uint64_t>{10, 11, 12, 13}));
}

TEST(LbaSpan, SkipCommandsTouchEveryOtherBlock) {
  const LbaSpan span = spanOf(10, 4, true);
  EXPECT_EQ(span.end, 18U);
  EXPECT_EQ(span.step, 2U);
  EXPECT_EQ(blocks(span), (std::vector<uint64_t>{10, 12, 14, 16}));
}

TEST(LbaSpan, ADoubledLengthWrapsInThirtyTwoBits) {
  EXPECT_EQ(spanOf(10, 0x80000001, true).end, 12U);
  EXPECT_EQ(spanOf(10, 0x80000000, true).end, 10U);
  EXPECT_EQ(spanOf(10, 0x80000001, false).end, 10U + 0x80000001U);
}

TEST(LbaSpan, LargeLbasStayWhole) { EXPECT_EQ(spanOf(0xFFFFFFFF00000000, 8, false).end, 0xFFFFFFFF00000008U); }

TEST(LbaSpan, NoBlocksIsAnEmptySpan) {
  EXPECT_TRUE(blocks(spanOf(10, 0, false)).empty());
  EXPECT_TRUE(blocks(spanOf(10, 0, true)).empty());
}

TEST(LbaSpan, ContainsItsFirstAndNotItsEnd) {
  const LbaSpan span = spanOf(10, 4, false);
  EXPECT_FALSE(span.contains(9));
  EXPECT_TRUE(span.contains(10));
  EXPECT_TRUE(span.contains(13));
  EXPECT_FALSE(span.contains(14));
}

TEST(LbaSpan, OverlapNeedsAtLeastOneSharedBlock) {
  const LbaSpan span = spanOf(10, 4, false);
  EXPECT_FALSE(span.overlaps(6, 10));
  EXPECT_TRUE(span.overlaps(6, 11));
  EXPECT_TRUE(span.overlaps(11, 12));
  EXPECT_TRUE(span.overlaps(0, 100));
  EXPECT_TRUE(span.overlaps(13, 20));
  EXPECT_FALSE(span.overlaps(14, 20));
}

}  // namespace
}  // namespace vdl::agent
