#include "host/run/HostClock.h"

#include <time.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

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

/// Whether Linux itself takes its time from the processor's counter: then it has found it even, and the same on every
/// processor, and keeps watching it.
bool countsTicks() {
#if defined(__x86_64__)
  std::ifstream file("/sys/devices/system/clocksource/clocksource0/current_clocksource");
  std::string source;
  return file >> source && source == "tsc";
#else
  return false;
#endif
}

class MachineClock final : public HostClock {
 public:
  uint64_t ticks() override {
#if defined(__x86_64__)
    return hasTicks_ ? __rdtsc() : 0;
#else
    return 0;
#endif
  }

 private:
  const bool hasTicks_ = countsTicks();
};

}  // namespace

uint64_t HostClock::steadyUs() { return nowUs(CLOCK_MONOTONIC); }

uint64_t HostClock::coarseUs() { return nowUs(CLOCK_MONOTONIC_COARSE); }

uint64_t HostClock::wallUs() { return nowUs(CLOCK_REALTIME); }

void HostClock::pause(uint64_t microseconds) { std::this_thread::sleep_for(std::chrono::microseconds(microseconds)); }

HostClock& HostClock::real() {
  static MachineClock clock;
  return clock;
}

}  // namespace corvane::host
