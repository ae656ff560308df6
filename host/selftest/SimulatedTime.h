#pragma once

#include "host/run/HostClock.h"

namespace corvane::host {

/// A clock that runs as fast as somebody looks at it, for each thread on its own: every look moves it on by the same
/// step. So what comes by the second comes by the step, and a seed gives the same times twice.
///
/// The agent asks the C library for the time of day. The program that links this has a `gettimeofday` of its own,
/// which answers on the threads that have called `begin` with the simulated time and on all others with the
/// machine's; the program must export it.
class SimulatedTime : public HostClock {
 public:
  /// From now on the calling thread has simulated time, beginning at the same moment each time.
  static void begin();
  /// The calling thread has the machine's time again.
  static void end();

  uint64_t steadyUs() override;
  uint64_t wallUs() override;
  /// Moves the time on and returns at once.
  void pause(uint64_t microseconds) override;
  bool runsByItself() const override;
};

}  // namespace corvane::host
