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
    const bool fires = spec_.atCommand != 0 ? command >= spec_.atCommand : random_.happens(spec_.rate);
    strikes_ += fires ? 1U : 0U;
    return fires;
  }

  /// The last strike came to nothing: the content would have been the same. The next command gets its turn.
  void takeBack() { --strikes_; }

 private:
  FaultSpec spec_;
  Random random_;
  uint64_t strikes_ = 0;
};

}  // namespace corvane::host
