#pragma once

#include <algorithm>
#include <cstdint>

#include "host/run/HostClock.h"

namespace corvane::host {

/// The times of one drive's commands, of which each is looked at twice.
///
/// Between looks at the clock it counts the processor's ticks, which costs half as much, for at most a tenth of a
/// second, and as long as it has measured before how many ticks a microsecond has. What it says differs from the clock
/// by a microsecond or two, by some ten while the clock is being set right, and only goes forward. Where there are no
/// ticks, every look is one at the clock, and where they have not gone evenly (the machine slept, say) until they do.
/// One thread.
class CommandClock {
 public:
  /// @param clock outlives the object
  explicit CommandClock(HostClock& clock);

  /// As HostClock::steadyUs.
  uint64_t steadyUs() {
    if (!hasTicks_) {
      return clock_.steadyUs();
    }
    const uint64_t ticks = clock_.ticks() - last_.ticks;
    return latestUs_ = std::max(latestUs_, ticks < trustedTicks_ ? last_.us + usOf(ticks) : lookAtClock());
  }

 private:
  /// A look at both.
  struct Look {
    uint64_t us = 0;
    uint64_t ticks = 0;
    bool close = false;  ///< nothing came between the one and the other
  };

  Look look();
  uint64_t lookAtClock();
  /// Counts from `now` on, by the ticks since `first_`.
  void measure(const Look& now);
  /// Whether the ticks since `first_` went evenly, as far as can be seen.
  bool evenUntil(const Look& now) const;
  uint64_t usOf(uint64_t ticks) const { return ticks * usPerTick_ >> fractionBits; }

  static constexpr uint32_t fractionBits = 32;

  HostClock& clock_;
  const bool hasTicks_;
  Look first_;                        ///< since when the ticks of a microsecond are counted
  Look last_;                         ///< since when the time is counted
  uint64_t usPerTick_ = 0;            ///< with `fractionBits` behind the point
  uint64_t trustedTicks_ = 0;         ///< so many after `last_` need no look at the clock
  uint64_t leastGap_ = ~uint64_t{0};  ///< ticks that a look at the clock took
  uint64_t latestUs_ = 0;
};

}  // namespace corvane::host
