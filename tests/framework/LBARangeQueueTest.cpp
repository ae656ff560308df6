#include "vdl/LBARangeQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <thread>
#include <vector>

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

TEST(LBARangeQueue, EveryRangeIsPoppedOnceByOneOfSeveralThreads) {
  constexpr uint64_t rangesEach = 1000;
  SharedVariables variables(1);
  vdl::LBARangeQueue& queue = variables.ranges("Ranges");
  std::array<std::vector<uint64_t>, 2> popped;
  std::vector<std::thread> threads;
  threads.reserve(8);
  threads.reserve(popped.size());
  for (std::vector<uint64_t>& mine : popped) {
    threads.emplace_back([&queue, &mine, first = &mine == popped.data() ? 0 : rangesEach] {
      vdl::LBARange range{};
      for (uint64_t i = 0; i < rangesEach; ++i) {
        queue.push({first + i, first + i + 1});
        // Each thread pushes before it pops, so there is never less than one range for each of them.
        if (queue.tryPop(range)) {
          mine.push_back(range.first);
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  std::set<uint64_t> distinct(popped[0].begin(), popped[0].end());
  distinct.insert(popped[1].begin(), popped[1].end());
  EXPECT_EQ(popped[0].size() + popped[1].size(), 2 * rangesEach);
  EXPECT_EQ(distinct.size(), 2 * rangesEach);
  EXPECT_TRUE(queue.empty());
}

}  // namespace
}  // namespace corvane::host
