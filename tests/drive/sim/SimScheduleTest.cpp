#include "host/drive/sim/SimSchedule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace corvane::host {
namespace {

DriveCommand commandOf(uint64_t id) {
  DriveCommand command;
  command.id = id;
  return command;
}

std::vector<uint64_t> orderOf(uint64_t seed, uint32_t depth) {
  SimSchedule schedule(depth, seed);
  for (uint64_t id = 0; id < depth; ++id) {
    schedule.add(commandOf(id));
  }
  std::vector<uint64_t> order;
  DriveCommand command;
  while (schedule.take(command, true)) {
    order.push_back(command.id);
  }
  return order;
}

TEST(SimSchedule, ASeedGivesOneOrderAndAnotherSeedAnother) {
  EXPECT_EQ(orderOf(1, 32), orderOf(1, 32));
  EXPECT_NE(orderOf(1, 32), orderOf(2, 32));
}

TEST(SimSchedule, EveryCommandComesOnceAndNotInOrder) {
  std::vector<uint64_t> order = orderOf(3, 64);
  EXPECT_FALSE(std::is_sorted(order.begin(), order.end()));
  std::sort(order.begin(), order.end());
  ASSERT_EQ(order.size(), 64U);
  for (uint64_t id = 0; id < 64; ++id) {
    EXPECT_EQ(order[id], id);
  }
}

TEST(SimSchedule, KeepsAboutAFullQueueBusy) {
  SimSchedule schedule(64, 1);
  DriveCommand command;
  uint64_t waiting = 0;
  uint64_t sum = 0;
  for (uint64_t id = 0; id < 10'000; ++id) {
    schedule.add(commandOf(id));
    ++waiting;
    while (schedule.take(command, waiting == 64)) {
      --waiting;
      break;
    }
    sum += waiting;
  }
  EXPECT_GT(sum / 10'000, 32U);
}

TEST(SimSchedule, WhoOnlyPollsGetsAnAnswerSoon) {
  SimSchedule schedule(1024, 1);
  schedule.add(commandOf(1));
  DriveCommand command;
  int polls = 1;
  while (!schedule.take(command, false)) {
    ++polls;
    ASSERT_LT(polls, 100);
  }
  EXPECT_LE(polls, 8);
}

TEST(SimSchedule, AnEmptyScheduleHasNothing) {
  SimSchedule schedule(4, 1);
  DriveCommand command;
  EXPECT_FALSE(schedule.take(command, true));
  EXPECT_FALSE(schedule.takeAny(command));
  EXPECT_TRUE(schedule.empty());
}

TEST(SimSchedule, OneCommandTooManyIsAProgrammersError) {
  SimSchedule schedule(2, 1);
  schedule.add(commandOf(1));
  schedule.add(commandOf(2));
  EXPECT_THROW(schedule.add(commandOf(3)), std::logic_error);
}

}  // namespace
}  // namespace corvane::host
