#include "host/base/Ring.h"

#include <gtest/gtest.h>

#include <deque>

#include "host/base/Random.h"

namespace corvane::host {
namespace {

TEST(RingTest, behavesLikeADequeWhateverIsDone) {
  Random random(7);
  Ring<uint64_t> ring;
  std::deque<uint64_t> model;
  for (uint64_t i = 0; i < 20'000; ++i) {
    const uint64_t action = random.below(100);
    if (action < 40) {
      ring.pushBack(i);
      model.push_back(i);
    } else if (action < 55) {
      ring.pushFront(i);
      model.push_front(i);
    } else if (action < 98 && !model.empty()) {
      ring.popFront();
      model.pop_front();
    } else if (action == 98) {
      const auto odd = [](uint64_t element) { return element % 3 == 0; };
      ring.eraseIf(odd);
      std::erase_if(model, odd);
    }
    ASSERT_EQ(ring.size(), model.size());
    ASSERT_EQ(ring.empty(), model.empty());
    for (size_t place = 0; place < model.size(); ++place) {
      ASSERT_EQ(ring[place], model[place]) << place;
    }
  }
}

TEST(RingTest, isEmptyAfterItWasCleared) {
  Ring<int> ring;
  ring.pushBack(1);
  ring.pushFront(2);
  ring.clear();
  EXPECT_TRUE(ring.empty());
  ring.pushBack(3);
  EXPECT_EQ(ring.front(), 3);
}

TEST(RingTest, givesItsFrontAwayWhileThereIsOne) {
  Ring<int> ring;
  ring.pushBack(1);
  ring.pushBack(2);
  int taken = 0;
  EXPECT_TRUE(ring.takeFront(taken));
  EXPECT_EQ(taken, 1);
  EXPECT_TRUE(ring.takeFront(taken));
  EXPECT_EQ(taken, 2);
  EXPECT_FALSE(ring.takeFront(taken));
  EXPECT_EQ(taken, 2);
  EXPECT_EQ(ring.size(), 0U);
}

}  // namespace
}  // namespace corvane::host
