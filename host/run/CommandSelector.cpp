#include "host/run/CommandSelector.h"

#include "host/run/ConditionSet.h"

namespace corvane::host {

CommandSelector::CommandSelector(const CommandMix& mix, uint32_t e2ePercent, uint64_t seed)
    : mix_(mix),
      e2ePercent_(e2ePercent),
      writeWeights_(uint64_t{mix.write} + mix.writeAtomic + mix.writeSame + mix.trim),
      random_(seed) {}

uint64_t CommandSelector::select() {
  uint64_t bits = selectWrite() | selectReadBack();
  if (e2ePercent_ != 0 && random_.below(100) < e2ePercent_) {
    bits |= ConditionSet::e2eBit;
  }
  return bits;
}

uint64_t CommandSelector::selectWrite() {
  if (mix_.writeKinds() < 2) {
    return mix_.writeAtomic != 0 ? ConditionSet::writeAtomicBit : 0;
  }
  uint64_t drawn = random_.below(writeWeights_);
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame}) {
    const uint32_t weight = mix_.weight(kind);
    if (drawn < weight) {
      return ConditionSet::bitOf(kind);
    }
    drawn -= weight;
  }
  return ConditionSet::trimBit;
}

uint64_t CommandSelector::selectReadBack() {
  if (mix_.read == 0 || mix_.verify == 0) {
    return 0;
  }
  return random_.below(uint64_t{mix_.read} + mix_.verify) < mix_.read ? ConditionSet::readBit : ConditionSet::verifyBit;
}

}  // namespace corvane::host
