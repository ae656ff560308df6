#include "host/selftest/SimulatedTime.h"

#include <sys/time.h>

#include <ctime>

namespace {

constexpr uint64_t epochUs = 1'700'000'000'000'000;
constexpr uint64_t usPerLook = 5000;  ///< a power toggle of one second so comes every 200 looks

thread_local uint64_t simulatedUs = 0;  ///< 0: the machine's time

uint64_t look() { return simulatedUs += usPerLook; }

}  // namespace

// Found before the C library's because it is the program's.
extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  constexpr uint64_t usPerSecond = 1'000'000;
  if (simulatedUs == 0) {
    timespec machine{};
    clock_gettime(CLOCK_REALTIME, &machine);
    now->tv_sec = machine.tv_sec;
    now->tv_usec = machine.tv_nsec / 1000;
    return 0;
  }
  const uint64_t us = look();
  now->tv_sec = static_cast<time_t>(us / usPerSecond);
  now->tv_usec = static_cast<suseconds_t>(us % usPerSecond);
  return 0;
}

namespace corvane::host {

void SimulatedTime::begin() { simulatedUs = epochUs; }

void SimulatedTime::end() { simulatedUs = 0; }

uint64_t SimulatedTime::steadyUs() { return simulatedUs == 0 ? real().steadyUs() : look(); }

uint64_t SimulatedTime::wallUs() { return simulatedUs == 0 ? real().wallUs() : look(); }

bool SimulatedTime::runsByItself() const { return simulatedUs == 0; }

void SimulatedTime::pause(uint64_t microseconds) {
  if (simulatedUs == 0) {
    real().pause(microseconds);
  } else {
    simulatedUs += microseconds;
  }
}

}  // namespace corvane::host
