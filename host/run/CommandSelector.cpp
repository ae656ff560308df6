#include "host/run/CommandSelector.h"

#include <utility>

#include "host/run/ConditionSet.h"

namespace corvane::host {

CommandSelector::CommandSelector(ConditionChoices choices, uint32_t e2ePercent, uint64_t seed)
    : choices_(std::move(choices)), e2ePercent_(e2ePercent), random_(seed) {}

uint64_t CommandSelector::select(uint64_t commandsIssued) {
  uint64_t bits = choices_.phaseBits(commandsIssued);
  for (const ConditionChoices::Draw& draw : choices_.draws) {
    bits |= choose(draw, bits);
  }
  if (e2ePercent_ != 0 && random_.below(100) < e2ePercent_) {
    bits |= ConditionSet::e2eBit;
  }
  return bits;
}

uint64_t CommandSelector::choose(const ConditionChoices::Draw& draw, uint64_t state) {
  uint64_t weights = 0;
  for (const ConditionChoices::Candidate& candidate : draw) {
    weights += candidate.isHeldOff(state) ? 0 : candidate.weight;
  }
  if (weights == 0) {
    return 0;
  }
  uint64_t drawn = draw.size() == 1 ? 0 : random_.below(weights);
  for (const ConditionChoices::Candidate& candidate : draw) {
    if (candidate.isHeldOff(state)) {
      continue;
    }
    if (drawn < candidate.weight) {
      return candidate.bit;
    }
    drawn -= candidate.weight;
  }
  return 0;
}

}  // namespace corvane::host
