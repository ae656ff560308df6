#pragma once

#include <cstdint>

#include "host/base/Random.h"
#include "host/run/TestDefinition.h"

namespace corvane::host {

/// Chooses, before each step, which kind of write, which kind of read-back and whether end-to-end bytes the agent
/// shall use if it needs one.
///
/// With one kind of a direction there is nothing to choose and no bit is set, but for atomic writes alone: those the
/// agent takes only when they are selected.
class CommandSelector {
 public:
  CommandSelector(const CommandMix& mix, uint32_t e2ePercent, uint64_t seed);

  /// The condition bits to set: at most one write kind, at most one of read and verify, and the end-to-end bit.
  uint64_t select();

 private:
  uint64_t selectWrite();
  uint64_t selectReadBack();

  CommandMix mix_;
  uint32_t e2ePercent_;
  uint64_t writeWeights_;
  Random random_;
};

}  // namespace corvane::host
