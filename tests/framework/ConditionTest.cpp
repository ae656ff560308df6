#include "vdl/Condition.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace vdl {
namespace {

TEST(Condition, HasTheLayoutOfTheBoundary) {
  EXPECT_EQ(sizeof(Condition), 32U);
  EXPECT_EQ(offsetof(Condition, anyMask), 0U);
  EXPECT_EQ(offsetof(Condition, allMask), 8U);
  EXPECT_EQ(offsetof(Condition, noneMask), 16U);
  EXPECT_EQ(offsetof(Condition, replace), 24U);
  EXPECT_TRUE(std::is_standard_layout_v<Condition>);
  EXPECT_TRUE(std::is_trivially_copyable_v<Condition>);
}

TEST(Condition, IsNotConfiguredAtFirst) {
  const Condition condition;
  EXPECT_EQ(condition.anyMask | condition.allMask | condition.noneMask, 0U);
  EXPECT_FALSE(condition.replace);
}

TEST(Condition, HasARoomForEachOfThe64Bits) {
  constexpr uint64_t topBit = uint64_t{1} << 63;
  const Condition condition{topBit, topBit | 1, topBit | 2, true};
  EXPECT_EQ(condition.anyMask, topBit);
  EXPECT_EQ(condition.allMask, topBit | 1);
  EXPECT_EQ(condition.noneMask, topBit | 2);
}

}  // namespace
}  // namespace vdl
