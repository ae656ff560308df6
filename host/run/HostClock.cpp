#include "host/run/HostClock.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string_view>
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
///
/// Takes no memory: the machine's clock is also asked for where there may be none.
bool countsTicks() noexcept {
#if defined(__x86_64__)
  constexpr std::string_view processorsCounter = "tsc\n";
  const int file = open("/sys/devices/system/clocksource/clocksource0/current_clocksource", O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    return false;
  }
  std::array<char, 16> source{};
  const ssize_t length = read(file, source.data(), source.size());
  close(file);
  return length > 0 && std::string_view(source.data(), static_cast<size_t>(length)) == processorsCounter;
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
