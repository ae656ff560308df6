#include "host/framework/TagPool.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace corvane::host {
namespace {

TEST(TagPool, GivesEveryTagOnceInOrder) {
  TagPool pool(3);
  EXPECT_EQ(pool.size(), 3U);
  for (uint32_t tag = 0; tag < 3; ++tag) {
    EXPECT_EQ(pool.front(), tag);
    EXPECT_EQ(pool.platform().peekNextFreeTag(), tag);
    EXPECT_EQ(pool.take(), tag);
    EXPECT_TRUE(pool.isOutstanding(tag));
  }
  EXPECT_EQ(pool.front(), TagPool::none);
  EXPECT_EQ(pool.platform().peekNextFreeTag(), 0xFFFFFFFFU);
  EXPECT_EQ(pool.take(), TagPool::none);
  EXPECT_EQ(pool.outstanding(), 3U);
}

TEST(TagPool, FreedTagsComeBackFirstInFirstOut) {
  TagPool pool(3);
  pool.take();
  pool.take();
  pool.release(1);
  pool.release(0);
  EXPECT_EQ(pool.take(), 2U);
  EXPECT_EQ(pool.take(), 1U);
  EXPECT_EQ(pool.take(), 0U);
}

TEST(TagPool, FreeingDoesNotChangeWhichTagIsNext) {
  TagPool pool(4);
  pool.take();
  const uint32_t next = pool.front();
  pool.release(0);
  EXPECT_EQ(pool.front(), next);
}

TEST(TagPool, AnAgentTakesEachOutstandingTagBackOnce) {
  TagPool pool(8);
  for (int i = 0; i < 5; ++i) {
    pool.take();
  }
  pool.release(2);
  std::vector<int32_t> taken;
  for (int32_t tag = pool.platform().getNotFreeTag(0, false); tag >= 0; tag = pool.platform().getNotFreeTag(0, false)) {
    taken.push_back(tag);
    EXPECT_FALSE(pool.isOutstanding(static_cast<uint32_t>(tag)));
    EXPECT_EQ(pool.generation(static_cast<uint32_t>(tag)), 1U);
  }
  EXPECT_EQ(taken, (std::vector<int32_t>{0, 1, 3, 4}));
  EXPECT_EQ(pool.outstanding(), 0U);
  EXPECT_EQ(pool.generation(2), 0U);
}

TEST(TagPool, ATagThatWasTakenBackIsFreeOnlyWhenItIsPushed) {
  TagPool pool(1);
  pool.take();
  EXPECT_EQ(pool.platform().getNotFreeTag(0, false), 0);
  EXPECT_EQ(pool.front(), TagPool::none);
  pool.platform().pushFreeTag(0, 0);
  EXPECT_EQ(pool.front(), 0U);
}

TEST(TagPool, APushOfATagThatIsNotTakenBackIsIgnored) {
  TagPool pool(2);
  pool.platform().pushFreeTag(0, 0);
  pool.platform().pushFreeTag(7, 0);
  EXPECT_EQ(pool.take(), 0U);
  pool.platform().pushFreeTag(0, 0);
  EXPECT_EQ(pool.take(), 1U);
  EXPECT_EQ(pool.take(), TagPool::none);
}

TEST(TagPool, HasOneTo1024Tags) {
  EXPECT_THROW(TagPool(0), std::invalid_argument);
  EXPECT_THROW(TagPool(1025), std::invalid_argument);
  TagPool most(1024);
  for (uint32_t i = 0; i < 1024; ++i) {
    most.take();
  }
  EXPECT_TRUE(most.isOutstanding(1023));
  EXPECT_FALSE(most.isOutstanding(1024));
}

TEST(TagPool, KeepsItsOrderOverManyRounds) {
  TagPool pool(3);
  pool.take();
  for (uint32_t round = 0; round < 100; ++round) {
    const uint32_t next = pool.take();
    EXPECT_EQ(next, (round + 1) % 3);
    pool.release(round % 3);
    EXPECT_EQ(pool.outstanding(), 1U);
  }
}

TEST(TagPool, OnlyTakingBackRaisesTheGeneration) {
  TagPool pool(1);
  pool.take();
  pool.release(0);
  EXPECT_EQ(pool.generation(0), 0U);
  for (uint32_t times = 1; times <= 3; ++times) {
    ASSERT_EQ(pool.take(), 0U);
    ASSERT_EQ(pool.platform().getNotFreeTag(0, false), 0);
    EXPECT_EQ(pool.generation(0), times);
    pool.platform().pushFreeTag(0, 0);
    EXPECT_EQ(pool.generation(0), times);
  }
}

}  // namespace
}  // namespace corvane::host
