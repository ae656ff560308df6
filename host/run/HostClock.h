#pragma once

#include <cstdint>

namespace corvane::host {

/// The host's view of time, so that a test can put its own in its place. Any thread.
class HostClock {
 public:
  virtual ~HostClock() = default;

  /// Microseconds that only go forward; for limits and rates.
  virtual uint64_t steadyUs();
  /// As `steadyUs`, up to some milliseconds late, for a fraction of the price: to tell what has taken seconds.
  virtual uint64_t coarseUs();
  /// A counter of the processor, the same on every one, that goes as evenly as `steadyUs`; 0 at every look: there is
  /// none.
  virtual uint64_t ticks() { return 0; }
  /// Microseconds since the epoch.
  virtual uint64_t wallUs();
  virtual void pause(uint64_t microseconds);
  /// Whether time goes on while nobody looks. Else every look counts, and none may be spared.
  virtual bool runsByItself() const { return true; }

  /// The machine's clock.
  static HostClock& real();
};

}  // namespace corvane::host
