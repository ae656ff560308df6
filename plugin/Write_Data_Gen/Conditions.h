#pragma once

#include <cstdint>

#include "ConfigData.h"
#include "vdl/Condition.h"
#include "vdl/DriveThread.h"

namespace vdl::agent {

/// Which command kinds the test selected before the agent ran.
struct ActiveConditions {
  bool read = false;
  bool verify = false;
  bool write = false;
  bool writeAtomic = false;
  bool writeSame = false;
  bool trim = false;
};

/// At least one mask is not zero.
inline bool configured(const Condition& condition) {
  return (condition.anyMask | condition.allMask | condition.noneMask) != 0;
}

/// Configured, no bit of the none-mask set, every bit of the all-mask set, and one of the any-mask unless it is empty.
inline bool holds(const Condition& condition, uint64_t state) {
  return configured(condition) && (state & condition.noneMask) == 0 &&
         (condition.anyMask == 0 || (state & condition.anyMask) != 0) &&
         (state & condition.allMask) == condition.allMask;
}

/// The state after the condition was applied.
inline uint64_t applied(const Condition& condition, uint64_t state) {
  return (condition.anyMask | condition.allMask) | (condition.replace ? 0 : state & ~condition.noneMask);
}

inline void apply(const Condition& condition, DriveThread& thread) {
  thread.conditions = applied(condition, thread.conditions);
}

/// The bits that make a condition hold.
inline uint64_t bitsOf(const Condition& condition) { return condition.anyMask | condition.allMask; }

/// Deliberately weaker than `holds`: one bit of the any-mask or the all-mask is enough.
inline bool selected(const Condition& condition, uint64_t state) { return (state & bitsOf(condition)) != 0; }

/// Takes down which command kinds the test selected, then clears the bits of all command conditions and of the power
/// toggle and the cache flush, so that only what this step applies will run.
void disableCommandConditions(DriveThread& thread, const Corvane::ConfigData& config, ActiveConditions& active);

}  // namespace vdl::agent
