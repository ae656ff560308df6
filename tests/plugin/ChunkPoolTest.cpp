#include "ChunkPool.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <vector>

#include "Event.h"
#include "LBARecord.h"
#include "support_model/Allocations.h"

namespace vdl {
namespace {

TEST(ChunkPool, AChunkIsAMebibyteOfObjects) {
  EXPECT_EQ(ChunkPool<Event>::objectsPerChunk, 13107U);
  EXPECT_EQ(ChunkPool<WaitRead>::objectsPerChunk, 43690U);
}

TEST(ChunkPool, NothingIsAllocatedBeforeTheFirstObject) {
  const uint64_t before = modeltest::allocations();
  const ChunkPool<Event> pool;
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST(ChunkPool, OneAllocationServesAWholeChunk) {
  ChunkPool<Event> pool;
  std::set<Event*> taken;
  std::vector<Event*> inOrder;
  inOrder.reserve(ChunkPool<Event>::objectsPerChunk + 1);
  const uint64_t before = modeltest::allocations();
  for (std::size_t i = 0; i < ChunkPool<Event>::objectsPerChunk; ++i) {
    inOrder.push_back(pool.take());
  }
  EXPECT_EQ(modeltest::allocations(), before + 1);
  inOrder.push_back(pool.take());
  EXPECT_EQ(modeltest::allocations(), before + 2);
  for (Event* event : inOrder) {
    ASSERT_NE(event, nullptr);
    EXPECT_TRUE(taken.insert(event).second) << "handed out twice";
    EXPECT_EQ(event->next, nullptr);
    EXPECT_EQ(event->block_num, 0x80001U);
  }
}

template <typename T>
void expectObjectsInsideTheirChunk() {
  ChunkPool<T> pool;
  std::vector<const T*> taken;
  taken.reserve(ChunkPool<T>::objectsPerChunk);
  while (taken.size() < ChunkPool<T>::objectsPerChunk) {
    taken.push_back(pool.take());
  }
  const modeltest::Extent chunk = modeltest::lastAllocation();
  for (const T* object : taken) {
    ASSERT_TRUE(chunk.holds(object, sizeof(T))) << "object " << object;
    // Before them stands what links the chunks.
    ASSERT_GE(reinterpret_cast<const std::byte*>(object), chunk.first + sizeof(void*));
  }
}

TEST(ChunkPool, ObjectsLieInsideTheirChunk) {
  expectObjectsInsideTheirChunk<Event>();
  expectObjectsInsideTheirChunk<WaitRead>();
}

TEST(ChunkPool, WhatComesBackIsDefaultAgain) {
  ChunkPool<Event> pool;
  Event* event = pool.take();
  event->type = EventType::Atomic;
  event->cmd_id = 7;
  event->block_type = BlockType::Normal;
  event->block_num = 3;
  event->hash = 9;
  event->embed = {true, 7, 8};
  event->segment = {1, 2, 3};
  event->next = event;
  pool.give(event);
  Event* again = pool.take();
  ASSERT_EQ(again, event) << "the last one back is the first one out";
  EXPECT_EQ(again->type, EventType::None);
  EXPECT_EQ(again->cmd_id, 0U);
  EXPECT_EQ(again->block_type, BlockType::Unknown);
  EXPECT_EQ(again->block_num, 0x80001U);
  EXPECT_EQ(again->hash, 0U);
  EXPECT_FALSE(again->embed.valid);
  EXPECT_EQ(again->embed.lba, 0U);
  EXPECT_EQ(again->segment.length, 0U);
  EXPECT_EQ(again->next, nullptr);
}

TEST(ChunkPool, ReusesInsteadOfGrowing) {
  ChunkPool<WaitRead> pool;
  pool.give(pool.take());
  const uint64_t before = modeltest::allocations();
  for (int round = 0; round < 100000; ++round) {
    WaitRead* first = pool.take();
    WaitRead* second = pool.take();
    pool.give(first);
    pool.give(second);
  }
  EXPECT_EQ(modeltest::allocations(), before);
}

TEST(ChunkPool, AnswersNullWithoutMemoryAndRecovers) {
  ChunkPool<Event> pool;
  {
    const modeltest::FailNothrow noMemory;
    EXPECT_EQ(pool.take(), nullptr);
    EXPECT_EQ(pool.take(), nullptr);
    EXPECT_EQ(noMemory.failed(), 2U);
  }
  EXPECT_NE(pool.take(), nullptr);
}

TEST(ChunkPool, ChunksGoWithThePool) {
  const int64_t before = modeltest::liveAllocations();
  {
    ChunkPool<Event> pool;
    for (std::size_t i = 0; i < 2 * ChunkPool<Event>::objectsPerChunk + 1; ++i) {
      pool.take();
    }
    EXPECT_EQ(modeltest::liveAllocations(), before + 3);
  }
  EXPECT_EQ(modeltest::liveAllocations(), before);
}

}  // namespace
}  // namespace vdl
