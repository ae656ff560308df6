#include "RecordQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <list>
#include <new>
#include <random>
#include <vector>

#include "FindByTag.h"
#include "support/ScarceMemory.h"

namespace vdl {
namespace {

using benchtest::ScarceMemory;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

struct Record {
  uint64_t number;
  uint32_t tagId;
};

std::vector<uint64_t> numbers(const RecordQueue<Record>& queue) {
  std::vector<uint64_t> all;
  for (const Record& record : queue) {
    all.push_back(record.number);
  }
  return all;
}

RecordQueue<Record> countingFrom(uint64_t first, uint64_t count) {
  RecordQueue<Record> queue;
  for (uint64_t i = 0; i < count; ++i) {
    queue.push_back({first + i, static_cast<uint32_t>(i)});
  }
  return queue;
}

TEST(RecordQueue, AnEmptyOneHasNoMemory) {
  const RecordQueue<Record> queue;
  EXPECT_THAT(queue, IsEmpty());
  EXPECT_EQ(queue.begin(), queue.end());
  EXPECT_EQ(queue.capacity(), 0U);
}

TEST(RecordQueue, KeepsTheOrderAtBothEnds) {
  RecordQueue<Record> queue = countingFrom(10, 3);
  queue.push_front({9, 0});
  queue.push_front({8, 0});
  EXPECT_THAT(numbers(queue), ElementsAre(8U, 9U, 10U, 11U, 12U));
  EXPECT_EQ(queue.front().number, 8U);
  EXPECT_EQ(queue.back().number, 12U);
  queue.pop_front();
  EXPECT_THAT(numbers(queue), ElementsAre(9U, 10U, 11U, 12U));
  queue.clear();
  EXPECT_THAT(queue, IsEmpty());
}

/// The list that it stands for, through random changes at every fill and place of the ring.
TEST(RecordQueue, DoesWhatAListDoes) {
  std::mt19937 random(1);
  RecordQueue<Record> queue;
  std::list<uint64_t> list;
  const auto place = [&] { return static_cast<std::ptrdiff_t>(random() % list.size()); };
  for (uint64_t i = 0; i < 100'000; ++i) {
    const uint64_t limit = i / 10'000 * 12;
    const uint64_t kind = list.size() > limit ? 3 + random() % 3 : random() % 6;
    if (kind < 2) {
      queue.push_back({i, 0});
      list.push_back(i);
    } else if (kind == 2) {
      queue.push_front({i, 0});
      list.push_front(i);
    } else if (!list.empty() && kind == 3) {
      queue.pop_front();
      list.pop_front();
    } else if (!list.empty() && kind == 4) {
      const std::ptrdiff_t at = place();
      queue.erase(std::next(queue.begin(), at));
      list.erase(std::next(list.begin(), at));
    } else if (kind == 5 && random() % 16 == 0) {
      const auto gone = [divisor = 2 + random() % 5](uint64_t number) { return number % divisor == 0; };
      queue.eraseIf([&](const Record& record) { return gone(record.number); });
      list.remove_if(gone);
    }
    ASSERT_EQ(queue.size(), list.size()) << i;
    ASSERT_THAT(numbers(queue), ElementsAreArray(list)) << i;
  }
}

TEST(RecordQueue, EveryRecordIsAskedOnceFromTheFrontWhetherItGoes) {
  RecordQueue<Record> queue = countingFrom(0, 20);
  std::vector<uint64_t> asked;
  queue.eraseIf([&](const Record& record) {
    asked.push_back(record.number);
    return record.number % 3 == 0;
  });
  EXPECT_THAT(asked,
              ElementsAre(0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 13U, 14U, 15U, 16U, 17U, 18U, 19U));
  EXPECT_EQ(queue.size(), 13U);
}

TEST(RecordQueue, MemoryIsUsedAgain) {
  RecordQueue<Record> queue = countingFrom(0, 100);
  {
    const ScarceMemory none(ScarceMemory::Kind::throwing, 0, 1, ~uint64_t{0});
    for (uint64_t i = 0; i < 10'000; ++i) {
      queue.pop_front();
      queue.push_back({i, 0});
    }
    EXPECT_EQ(none.failed(), 0U);
  }
  EXPECT_EQ(queue.capacity(), 128U);
}

TEST(RecordQueue, WithoutMemoryItStaysAsItWas) {
  RecordQueue<Record> queue = countingFrom(0, 16);
  {
    const ScarceMemory none(ScarceMemory::Kind::throwing, 0, 1, 2);
    EXPECT_THROW(queue.push_back({99, 0}), std::bad_alloc);
    EXPECT_THROW(queue.push_front({99, 0}), std::bad_alloc);
  }
  EXPECT_EQ(queue.size(), 16U);
  EXPECT_EQ(queue.front().number, 0U);
  EXPECT_EQ(queue.back().number, 15U);
}

TEST(FindByTag, TheFirstRecordOfTheTagIsTaken) {
  RecordQueue<Record> queue = countingFrom(0, 4);
  queue.push_back({50, 2});
  const auto taken = agent::takeByTag(queue, 2);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->number, 2U);
  EXPECT_THAT(numbers(queue), ElementsAre(0U, 1U, 3U, 50U));
  EXPECT_FALSE(agent::takeByTag(queue, 7));
}

}  // namespace
}  // namespace vdl
