#include "host/run/CommandClock.h"

#include <algorithm>

namespace corvane::host {
namespace {

constexpr uint64_t shortestMeasureUs = 1000;       ///< in a shorter one the clock's own microsecond weighs too much
constexpr uint64_t longestTrustUs = 100'000;       ///< meanwhile a clock that is set right runs unevenly by little
constexpr uint64_t mostDifferenceUs = 100;         ///< between what was counted and the clock; more is no unevenness
constexpr uint64_t mostTicks = uint64_t{1} << 40;  ///< of a measure; ticks that went back look like more
constexpr uint64_t gapsOfALook = 8;                ///< a look that took as many of the shortest was interrupted
constexpr int looksAtFirst = 3;                    ///< the very first one waits for memory

}  // namespace

CommandClock::CommandClock(HostClock& clock) : clock_(clock), hasTicks_(clock.ticks() != 0) {
  for (int i = 0; i < looksAtFirst && hasTicks_; ++i) {
    first_ = last_ = look();
  }
}

CommandClock::Look CommandClock::look() {
  const uint64_t before = clock_.ticks();
  Look now;
  now.us = clock_.steadyUs();
  now.ticks = clock_.ticks();
  const uint64_t gap = now.ticks - before;
  leastGap_ = std::min(leastGap_, gap);
  now.close = gap / gapsOfALook <= leastGap_;
  return now;
}

uint64_t CommandClock::lookAtClock() {
  const Look now = look();
  if (now.close) {
    measure(now);
  }
  return now.us;
}

bool CommandClock::evenUntil(const Look& now) const {
  const uint64_t ticks = now.ticks - first_.ticks;
  if (!first_.close || ticks == 0 || ticks > mostTicks) {
    return false;
  }
  const uint64_t countedUs = last_.us + usOf(now.ticks - last_.ticks);
  return trustedTicks_ == 0 || (countedUs <= now.us + mostDifferenceUs && now.us <= countedUs + mostDifferenceUs);
}

void CommandClock::measure(const Look& now) {
  if (!evenUntil(now)) {
    first_ = last_ = now;
    trustedTicks_ = 0;
    return;
  }
  const uint64_t us = now.us - first_.us;
  if (us < shortestMeasureUs) {
    return;
  }
  const uint64_t ticks = now.ticks - first_.ticks;
  usPerTick_ = (us << fractionBits) / ticks;
  trustedTicks_ = us <= longestTrustUs ? ticks : ticks / us * longestTrustUs;
  last_ = now;
  if (us >= longestTrustUs) {
    first_ = now;
  }
}

}  // namespace corvane::host
