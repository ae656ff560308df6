#include "host/run/CommandClock.h"

#include <gtest/gtest.h>

#include <functional>

namespace corvane::host {
namespace {

/// A machine whose clock and counter go as the test lets them.
struct Machine final : HostClock {
  uint64_t steadyUs() override {
    const uint64_t us = nowTicks / ticksPerUs;
    if (interrupts(looks++)) {
      pass(60);
    }
    return us;
  }
  uint64_t ticks() override { return counts ? nowTicks + slept : 0; }

  void pass(uint64_t us) { nowTicks += us * ticksPerUs; }

  static constexpr uint64_t ticksPerUs = 2600;
  uint64_t nowTicks = 5'000'000'000;
  uint64_t slept = 0;  ///< ticks that the clock has left out
  uint64_t looks = 0;
  bool counts = true;
  std::function<bool(uint64_t)> interrupts = [](uint64_t) { return false; };  ///< whether between a look and the rest
};

/// A clock that is slower than its processor's counter says.
struct SlowedClock final : HostClock {
  uint64_t steadyUs() override { return nowUs; }
  uint64_t ticks() override { return nowTicks; }
  void pass(uint64_t us, uint64_t ticksPerUs) {
    nowUs += us;
    nowTicks += us * ticksPerUs;
  }
  uint64_t nowUs = 1;
  uint64_t nowTicks = 1;
};

uint64_t distance(uint64_t a, uint64_t b) { return a > b ? a - b : b - a; }

TEST(CommandClockTest, AsksTheClockEachTimeWhereThereIsNoCounter) {
  Machine machine;
  machine.counts = false;
  CommandClock clock(machine);
  for (uint64_t i = 0; i < 1000; ++i) {
    machine.pass(7);
    EXPECT_EQ(clock.steadyUs(), machine.nowTicks / Machine::ticksPerUs);
  }
  EXPECT_EQ(machine.looks, 1000U);
}

TEST(CommandClockTest, CountsTicksInstead) {
  Machine machine;
  CommandClock clock(machine);
  for (uint64_t i = 0; i < 1'000'000; ++i) {
    machine.pass(3);
    ASSERT_LE(distance(clock.steadyUs(), machine.nowTicks / Machine::ticksPerUs), 1U) << i;
  }
  // A millisecond of looks to measure by, and then ten looks a second, of three seconds.
  EXPECT_LT(machine.looks, 400U);
  EXPECT_GT(machine.looks, 330U);
}

TEST(CommandClockTest, AsksTheClockAgainAfterAPauseOfATenthOfASecond) {
  Machine machine;
  CommandClock clock(machine);
  for (uint64_t i = 0; i < 1000; ++i) {
    machine.pass(1000);
    clock.steadyUs();
  }
  const uint64_t before = machine.looks;
  machine.pass(5'000'000);
  EXPECT_LE(distance(clock.steadyUs(), machine.nowTicks / Machine::ticksPerUs), 0U);
  EXPECT_EQ(machine.looks, before + 1);
}

TEST(CommandClockTest, FollowsAClockThatIsSlowedDown) {
  SlowedClock machine;
  CommandClock clock(machine);
  uint64_t latest = 0;
  for (uint64_t i = 0; i < 1'000'000; ++i) {
    machine.pass(3, i < 500'000 ? 10'000 : 10'005);  // from the middle on 500 in a million slower
    const uint64_t now = clock.steadyUs();
    ASSERT_GE(now, latest);
    // By as much in the tenth of a second until the next look at the clock.
    ASSERT_LE(distance(now, machine.nowUs), 51U) << i;
    latest = now;
  }
  EXPECT_LE(distance(clock.steadyUs(), machine.nowUs), 2U);
}

TEST(CommandClockTest, FollowsACounterThatGoesHalfAsFast) {
  SlowedClock machine;
  CommandClock clock(machine);
  for (uint64_t i = 0; i < 100'000; ++i) {
    machine.pass(10, 10'000);
    clock.steadyUs();
  }
  for (uint64_t i = 0; i < 100'000; ++i) {
    machine.pass(10, 5'000);
    const uint64_t now = clock.steadyUs();
    // What counts for a tenth of a second takes two now.
    ASSERT_LE(distance(now, machine.nowUs), i <= 20'000 ? 100'000 : 2U) << i;
  }
}

TEST(CommandClockTest, DoesNotCountACounterThatStandsStill) {
  SlowedClock machine;
  CommandClock clock(machine);
  for (uint64_t i = 0; i < 1000; ++i) {
    machine.pass(10, 0);
    ASSERT_EQ(clock.steadyUs(), machine.nowUs);
  }
}

/// Looks now and then, and each time sees what the machine's clock says.
void expectRightFor(Machine& machine, CommandClock& clock, uint64_t looks) {
  for (uint64_t i = 0; i < looks; ++i) {
    machine.pass(500);
    const uint64_t us = machine.nowTicks / Machine::ticksPerUs;
    ASSERT_LE(distance(clock.steadyUs(), us), 1U) << i;
  }
}

TEST(CommandClockTest, MeasuresAnewWhenTheMachineHasSlept) {
  for (const uint64_t seconds : {1U, 3600U}) {
    Machine machine;
    CommandClock clock(machine);
    expectRightFor(machine, clock, 1000);
    machine.slept = seconds * 1'000'000 * Machine::ticksPerUs;
    expectRightFor(machine, clock, 1000);
  }
}

TEST(CommandClockTest, MeasuresAnewWhenTheCounterWentBack) {
  for (const uint64_t before : {0U, 1U, 1000U}) {
    Machine machine;
    CommandClock clock(machine);
    expectRightFor(machine, clock, before);
    machine.slept = uint64_t{0} - 4'000'000'000;
    expectRightFor(machine, clock, 1000);
  }
}

TEST(CommandClockTest, IsRightWhenNobodyLookedForHours) {
  for (const uint64_t before : {0U, 1000U}) {
    Machine machine;
    CommandClock clock(machine);
    expectRightFor(machine, clock, before);
    machine.pass(10'000'000'000);
    expectRightFor(machine, clock, 1000);
  }
}

TEST(CommandClockTest, MeasuresNothingByALookThatWasInterrupted) {
  Machine machine;
  machine.interrupts = [](uint64_t look) { return look % 3 == 2; };
  CommandClock clock(machine);
  expectRightFor(machine, clock, 3000);
}

TEST(CommandClockTest, AgreesWithTheMachine) {
  HostClock& machine = HostClock::real();
  CommandClock clock(machine);
  const uint64_t beganUs = machine.steadyUs();
  for (uint64_t endUs = beganUs; endUs < beganUs + 300'000;) {
    const uint64_t before = machine.steadyUs();
    const uint64_t now = clock.steadyUs();
    endUs = machine.steadyUs();
    // Not of the machine's speed: of what lies between two looks.
    ASSERT_GE(now + 100, before);
    ASSERT_LE(now, endUs + 100);
  }
}

}  // namespace
}  // namespace corvane::host
