#include "support_model/FakeClock.h"

#include <ctime>
#include <optional>

namespace {

std::optional<timeval> fakeTime;

}  // namespace

// Stands before the C library's in the program's symbols.
extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  if (fakeTime) {
    *now = *fakeTime;
    return 0;
  }
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  now->tv_sec = real.tv_sec;
  now->tv_usec = real.tv_nsec / 1000;
  return 0;
}

namespace modeltest {

FakeClock::FakeClock(time_t seconds, suseconds_t microseconds) { set(seconds, microseconds); }
FakeClock::~FakeClock() { fakeTime.reset(); }
void FakeClock::set(time_t seconds, suseconds_t microseconds) { fakeTime = timeval{seconds, microseconds}; }

}  // namespace modeltest
