#include "host/run/HostClock.h"

#include <time.h>

#include <chrono>
#include <thread>

namespace corvane::host {
namespace {

/// Straight from the system: every command looks, and a look through the standard library goes through two more calls.
uint64_t nowUs(clockid_t clock) {
  constexpr uint64_t usPerSecond = 1'000'000;
  constexpr uint64_t nsPerUs = 1000;
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec) * usPerSecond + static_cast<uint64_t>(now.tv_nsec) / nsPerUs;
}

}  // namespace

uint64_t HostClock::steadyUs() { return nowUs(CLOCK_MONOTONIC); }

uint64_t HostClock::coarseUs() { return nowUs(CLOCK_MONOTONIC_COARSE); }

uint64_t HostClock::wallUs() { return nowUs(CLOCK_REALTIME); }

void HostClock::pause(uint64_t microseconds) { std::this_thread::sleep_for(std::chrono::microseconds(microseconds)); }

HostClock& HostClock::real() {
  static HostClock clock;
  return clock;
}

}  // namespace corvane::host
