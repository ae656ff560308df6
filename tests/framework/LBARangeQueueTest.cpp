#include "vdl/LBARangeQueue.h"

#include <gtest/gtest.h>

#include <thread>

#include "host/framework/SharedVariables.h"

namespace corvane::host {
namespace {

TEST(LBARangeQueue, IsFirstInFirstOut) {
  SharedVariables variables(1);
  vdl::LBARangeQueue& queue = variables.ranges("CSZoneReset");
  EXPECT_TRUE(queue.empty());
  queue.push({1, 2});
  queue.push({3, 4});
  EXPECT_FALSE(queue.empty());
  vdl::LBARange range{};
  ASSERT_TRUE(queue.tryPop(range));
  EXPECT_EQ(range.first, 1U);
  EXPECT_EQ(range.end, 2U);
  ASSERT_TRUE(queue.tryPop(range));
  EXPECT_EQ(range.first, 3U);
  EXPECT_FALSE(queue.tryPop(range));
  EXPECT_EQ(range.first, 3U) << "untouched when there is nothing to pop";
}

TEST(LBARangeQueue, OneThreadPushesWhileAnotherPops) {
  SharedVariables variables(1);
  vdl::LBARangeQueue& queue = variables.ranges("CVNInvalidateRanges");
  std::thread writer([&queue] {
    for (uint64_t i = 0; i < 5000; ++i) {
      queue.push({i, i + 1});
    }
  });
  uint64_t expected = 0;
  while (expected < 5000) {
    vdl::LBARange range{};
    if (!queue.empty() && queue.tryPop(range)) {
      ASSERT_EQ(range.first, expected);
      ++expected;
    }
  }
  writer.join();
  EXPECT_TRUE(queue.empty());
}

}  // namespace
}  // namespace corvane::host
