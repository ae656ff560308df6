#include "vdl/Buffer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

namespace {

bool memoryIsOut = false;

}  // namespace

// The allocation that a Buffer makes, so that a test can have it fail.
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  if (memoryIsOut) {
    return nullptr;
  }
  try {
    return ::operator new[](bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace vdl {
namespace {

std::string textOf(const Buffer& buffer, uint64_t bytes) { return {reinterpret_cast<const char*>(buffer.data), bytes}; }

TEST(Buffer, HasTheLayoutOfTheBoundary) {
  EXPECT_EQ(sizeof(Buffer), 32U);
  EXPECT_EQ(offsetof(Buffer, data), 0U);
  EXPECT_EQ(offsetof(Buffer, capacity), 8U);
  EXPECT_EQ(offsetof(Buffer, size), 16U);
  EXPECT_EQ(offsetof(Buffer, owned), 24U);
}

TEST(Buffer, ReservingCopiesWhatIsUsedAndZeroesTheRest) {
  uint8_t callers[] = {'a', 'b', 'c', 'd', 'e', 'f'};
  Buffer buffer;
  buffer.view(callers, 6);
  buffer.size = 4;
  EXPECT_EQ(buffer.reserve(8), 0);
  EXPECT_EQ(textOf(buffer, 8), std::string("abcd\0\0\0\0", 8));
  EXPECT_EQ(buffer.capacity, 8U);
  EXPECT_EQ(buffer.size, 4U);
  EXPECT_TRUE(buffer.owned);
  EXPECT_EQ(callers[5], 'f');
}

TEST(Buffer, ReservingLessCutsTheUsedSize) {
  Buffer buffer;
  ASSERT_EQ(buffer.reserve(10), 0);
  buffer.size = 10;
  ASSERT_EQ(buffer.reserve(3), 0);
  EXPECT_EQ(buffer.size, 3U);
  EXPECT_EQ(buffer.capacity, 3U);
}

TEST(Buffer, AReserveWithoutMemoryLeavesEverything) {
  Buffer buffer;
  ASSERT_EQ(buffer.reserve(4), 0);
  buffer.size = 2;
  uint8_t* before = buffer.data;
  memoryIsOut = true;
  const int status = buffer.reserve(100);
  memoryIsOut = false;
  EXPECT_EQ(status, -1002);
  EXPECT_EQ(buffer.data, before);
  EXPECT_EQ(buffer.capacity, 4U);
  EXPECT_EQ(buffer.size, 2U);
  EXPECT_TRUE(buffer.owned);
}

TEST(Buffer, AViewOwnsNothing) {
  uint8_t callers[4] = {1, 2, 3, 4};
  {
    Buffer buffer;
    buffer.view(callers, 4);
    EXPECT_FALSE(buffer.owned);
    EXPECT_EQ(buffer.size, 4U);
  }
  EXPECT_EQ(callers[3], 4);
}

TEST(Buffer, MovingTakesTheStorageAlong) {
  Buffer first;
  ASSERT_EQ(first.reserve(4), 0);
  uint8_t* storage = first.data;
  Buffer second(std::move(first));
  EXPECT_EQ(second.data, storage);
  EXPECT_TRUE(second.owned);
  EXPECT_EQ(first.data, nullptr);  // NOLINT(bugprone-use-after-move): that is what is looked at
  EXPECT_FALSE(first.owned);
  Buffer third;
  ASSERT_EQ(third.reserve(1), 0);
  third = std::move(second);
  EXPECT_EQ(third.data, storage);
}

TEST(Buffer, AReleasedBufferIsEmpty) {
  Buffer buffer;
  ASSERT_EQ(buffer.reserve(4), 0);
  buffer.release();
  EXPECT_EQ(buffer.data, nullptr);
  EXPECT_EQ(buffer.capacity, 0U);
  EXPECT_FALSE(buffer.owned);
  buffer.release();
  EXPECT_EQ(buffer.size, 0U);
}

}  // namespace
}  // namespace vdl
