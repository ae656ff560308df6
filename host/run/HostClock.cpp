#include "host/run/HostClock.h"

#include <chrono>
#include <thread>

namespace corvane::host {
namespace {

template <typename Clock>
uint64_t nowUs() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch()).count());
}

}  // namespace

uint64_t HostClock::steadyUs() { return nowUs<std::chrono::steady_clock>(); }

uint64_t HostClock::wallUs() { return nowUs<std::chrono::system_clock>(); }

void HostClock::pause(uint64_t microseconds) { std::this_thread::sleep_for(std::chrono::microseconds(microseconds)); }

HostClock& HostClock::real() {
  static HostClock clock;
  return clock;
}

}  // namespace corvane::host
