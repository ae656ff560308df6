#include "host/selftest/SimulatedTime.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <thread>
#include <vector>

namespace corvane::host {
namespace {

uint64_t timeOfDayUs() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_usec);
}

TEST(SimulatedTime, GoesOnByTheLook) {
  SimulatedTime::begin();
  SimulatedTime clock;
  const uint64_t first = timeOfDayUs();
  const uint64_t second = timeOfDayUs();
  const uint64_t third = clock.wallUs();
  const uint64_t fourth = clock.steadyUs();
  EXPECT_GT(second, first);
  EXPECT_EQ(second - first, third - second);
  EXPECT_EQ(second - first, fourth - third);
  clock.pause(1'000'000'000);
  EXPECT_EQ(timeOfDayUs() - fourth, second - first + 1'000'000'000);
  SimulatedTime::end();
}

TEST(SimulatedTime, BeginsAtTheSameMomentEachTime) {
  SimulatedTime::begin();
  const std::vector<uint64_t> before{timeOfDayUs(), timeOfDayUs()};
  SimulatedTime::begin();
  const std::vector<uint64_t> after{timeOfDayUs(), timeOfDayUs()};
  EXPECT_EQ(before, after);
  SimulatedTime::end();
}

TEST(SimulatedTime, IsOfOneThreadOnly) {
  SimulatedTime::begin();
  const uint64_t here = timeOfDayUs();
  uint64_t there = 0;
  std::thread([&there] { there = timeOfDayUs(); }).join();
  SimulatedTime::end();
  const auto machine = static_cast<uint64_t>(time(nullptr)) * 1'000'000;
  EXPECT_LE(there, machine + 60'000'000);
  EXPECT_GE(there + 60'000'000, machine);
  EXPECT_GT(there, here);
  EXPECT_GE(timeOfDayUs(), there);
}

}  // namespace
}  // namespace corvane::host
