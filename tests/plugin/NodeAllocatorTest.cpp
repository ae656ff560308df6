#include "NodeAllocator.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <list>
#include <map>
#include <new>

#include "support_model/Allocations.h"

namespace vdl {
namespace {

using Map = std::map<uint64_t, uint64_t, std::less<>, NodeAllocator<std::pair<const uint64_t, uint64_t>>>;

Map mapIn(NodeStore& store) { return Map(NodeAllocator<std::pair<const uint64_t, uint64_t>>(store)); }

TEST(NodeAllocator, AMapLivesInItsStore) {
  NodeStore store;
  Map map = mapIn(store);
  for (uint64_t i = 0; i < 10000; ++i) {
    map[i * 7919 % 10007] = i;
  }
  ASSERT_EQ(map.size(), 10000U);
  for (uint64_t i = 0; i < 10000; ++i) {
    EXPECT_EQ(map.at(i * 7919 % 10007), i);
  }
}

TEST(NodeAllocator, FreedNodesServeAgain) {
  NodeStore store;
  Map map = mapIn(store);
  for (uint64_t i = 0; i < 1000; ++i) {
    map[i] = i;
  }
  const uint64_t before = modeltest::allocations();
  for (uint64_t i = 1000; i < 200000; ++i) {
    map.erase(i - 1000);
    map[i] = i;
  }
  EXPECT_EQ(modeltest::allocations(), before);
  EXPECT_EQ(map.begin()->first, 199000U);
}

TEST(NodeAllocator, NodesAreAlignedForAnything) {
  NodeStore store;
  std::list<char, NodeAllocator<char>> list{NodeAllocator<char>(store)};
  for (int i = 0; i < 5000; ++i) {
    list.push_back('x');
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&list.back()) % alignof(void*), 0U);
  }
  EXPECT_EQ(reinterpret_cast<uintptr_t>(store.take(1)) % alignof(std::max_align_t), 0U);
}

TEST(NodeAllocator, ThrowsWithoutMemoryAndLeavesTheMapAsItWas) {
  NodeStore store;
  Map map = mapIn(store);
  {
    const modeltest::FailNothrow noMemory;
    EXPECT_THROW(map[1] = 1, std::bad_alloc);
  }
  EXPECT_TRUE(map.empty());
  map[1] = 1;
  EXPECT_EQ(map.size(), 1U);
}

TEST(NodeAllocator, ServesSingleNodesOnly) {
  NodeStore store;
  NodeAllocator<uint64_t> allocator(store);
  EXPECT_THROW((void)allocator.allocate(2), std::bad_alloc);
}

TEST(NodeAllocator, IsEqualForOneStoreOnly) {
  NodeStore store;
  NodeStore other;
  const NodeAllocator<int> one(store);
  const NodeAllocator<long> sameStore(one);
  EXPECT_TRUE(one == sameStore);
  EXPECT_FALSE(one == NodeAllocator<int>(other));
}

TEST(NodeAllocator, ChunksGoWithTheStore) {
  const int64_t before = modeltest::liveAllocations();
  {
    NodeStore store;
    Map map = mapIn(store);
    for (uint64_t i = 0; i < 10000; ++i) {
      map[i] = i;
    }
    EXPECT_GT(modeltest::liveAllocations(), before);
  }
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

}  // namespace
}  // namespace vdl
