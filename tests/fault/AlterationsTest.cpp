#include "host/fault/Alterations.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

TEST(Alterations, ThereAreNoneAtFirst) {
  Alterations alterations;
  EXPECT_TRUE(alterations.empty());
  EXPECT_FALSE(alterations.touches(0, UINT64_MAX));
  EXPECT_EQ(alterations.find(0), nullptr);
}

TEST(Alterations, ABlockIsFoundUntilItIsErased) {
  Alterations alterations;
  alterations.set(7, {.content = {1, 2, 3}, .injection = 4, .life = Alterations::Life::once});
  EXPECT_FALSE(alterations.empty());
  Alterations::Entry* entry = alterations.find(7);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->content, (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_EQ(entry->injection, 4U);
  EXPECT_EQ(entry->life, Alterations::Life::once);
  EXPECT_EQ(alterations.find(6), nullptr);
  EXPECT_EQ(alterations.find(8), nullptr);
  alterations.erase(8);
  EXPECT_FALSE(alterations.empty());
  alterations.erase(7);
  EXPECT_TRUE(alterations.empty());
  EXPECT_EQ(alterations.find(7), nullptr);
}

TEST(Alterations, AnAlterationLastsUntilOverwrittenUnlessSaidOtherwise) {
  Alterations alterations;
  alterations.set(7, {.content = {1}, .injection = 0});
  ASSERT_NE(alterations.find(7), nullptr);
  EXPECT_EQ(alterations.find(7)->life, Alterations::Life::untilOverwritten);
}

TEST(Alterations, TheLatestOfABlockCounts) {
  Alterations alterations;
  alterations.set(7, {.content = {1}, .injection = 1});
  alterations.set(7, {.content = {2}, .injection = 2});
  ASSERT_NE(alterations.find(7), nullptr);
  EXPECT_EQ(alterations.find(7)->content, std::vector<uint8_t>{2});
  EXPECT_EQ(alterations.find(7)->injection, 2U);
  alterations.erase(7);
  EXPECT_TRUE(alterations.empty());
}

TEST(Alterations, ARangeIsTouchedFromItsFirstBlockToBelowItsEnd) {
  Alterations alterations;
  alterations.set(10, {.content = {1}, .injection = 0});
  alterations.set(20, {.content = {1}, .injection = 0});
  EXPECT_FALSE(alterations.touches(0, 10));
  EXPECT_TRUE(alterations.touches(0, 11));
  EXPECT_TRUE(alterations.touches(10, 11));
  EXPECT_FALSE(alterations.touches(11, 20));
  EXPECT_TRUE(alterations.touches(11, 21));
  EXPECT_FALSE(alterations.touches(21, 100));
  EXPECT_FALSE(alterations.touches(10, 10));
}

}  // namespace
}  // namespace corvane::host
