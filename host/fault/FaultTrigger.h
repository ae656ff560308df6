#pragma once

#include <cstdint>

#include "host/base/Random.h"
#include "host/fault/FaultSpec.h"

namespace corvane::host {

/// Decides at which commands a fault strikes.
class FaultTrigger {
 public:
  FaultTrigger(const FaultSpec& spec, uint64_t seed) : spec_(spec), random_(seed) {}

  /// @param command the drive's count of commands, from 1
  /// @return whether to strike this one, which the fault could
  bool fires(uint64_t command) {
    if (spec_.most != 0 && strikes_ >= spec_.most) {
      return false;
    }
    const bool fires = spec_.atCommand != 0 ? command >= spec_.atCommand : randomFires();
    strikes_ += fires ? 1U : 0U;
    return fires;
  }

  /// The last strike came to nothing: the content would have been the same. The next command gets its turn.
  void takeBack() { --strikes_; }

 private:
  bool randomFires() {
    constexpr double steps = 9007199254740992.0;  // 2^53: every step is a double of its own
    return static_cast<double>(random_.next() >> 11) < spec_.rate * steps;
  }

  FaultSpec spec_;
  Random random_;
  uint64_t strikes_ = 0;
};

}  // namespace corvane::host
