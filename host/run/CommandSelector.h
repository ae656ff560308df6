#pragma once

#include <cstdint>

#include "host/base/Random.h"
#include "host/run/ConditionChoices.h"

namespace corvane::host {

/// Sets the conditions before each step, and so chooses which kind of write, which kind of read-back and whether
/// end-to-end bytes the agent shall use if it needs one. Allocates nothing after its construction.
class CommandSelector {
 public:
  CommandSelector(ConditionChoices choices, uint32_t e2ePercent, uint64_t seed);

  /// The bits to set: those of the phases, then one of each draw, then the end-to-end bit.
  uint64_t select(uint64_t commandsIssued);

 private:
  uint64_t choose(const ConditionChoices::Draw& draw, uint64_t state);

  const ConditionChoices choices_;
  uint32_t e2ePercent_;
  Random random_;
};

}  // namespace corvane::host
