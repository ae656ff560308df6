#pragma once

#include <sys/time.h>

namespace modeltest {

/// While it lives, `gettimeofday` answers this time. The program must be linked with this unit's `gettimeofday`.
class FakeClock {
 public:
  FakeClock(time_t seconds, suseconds_t microseconds);
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  void set(time_t seconds, suseconds_t microseconds);
};

}  // namespace modeltest
