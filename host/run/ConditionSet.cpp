#include "host/run/ConditionSet.h"

#include <stdexcept>

namespace corvane::host {

bool holds(const vdl::Condition& condition, uint64_t state) {
  const bool configured = (condition.anyMask | condition.allMask | condition.noneMask) != 0;
  return configured && (state & condition.noneMask) == 0 && (state & condition.allMask) == condition.allMask &&
         (condition.anyMask == 0 || (state & condition.anyMask) != 0);
}

uint64_t ConditionSet::bitOf(CommandKind kind) {
  switch (kind) {
    case CommandKind::write:
      return writeBit;
    case CommandKind::writeAtomic:
      return writeAtomicBit;
    case CommandKind::writeSame:
      return writeSameBit;
    case CommandKind::trim:
      return trimBit;
    case CommandKind::read:
      return readBit;
    case CommandKind::verify:
      return verifyBit;
    case CommandKind::syncCache:
      return syncCacheBit;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  throw std::logic_error("no condition selects this kind of command");
}

CommandKind ConditionSet::kindOf(uint64_t bit) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                 CommandKind::trim, CommandKind::read, CommandKind::verify, CommandKind::syncCache}) {
    if (bitOf(kind) == bit) {
      return kind;
    }
  }
  throw std::logic_error("the agent applied more than one condition in a step");
}

ConditionSet::ConditionSet(const TestDefinition& test) {
  const auto add = [this](bool wanted, std::string_view name, uint64_t bit) {
    if (wanted) {
      options_.emplace_back(name, vdl::Condition{.anyMask = bit});
    }
  };
  add(test.mix.read != 0, "Read Condition", readBit);
  add(test.mix.verify != 0, "Verify Condition", verifyBit);
  add(test.mix.write != 0, "Write Condition", writeBit);
  add(test.mix.writeAtomic != 0, "WriteAtomic Condition", writeAtomicBit);
  add(test.mix.writeSame != 0, "WriteSame Condition", writeSameBit);
  add(test.mix.trim != 0, "Trim Condition", trimBit);
  add(test.e2ePercent != 0, "E2E Condition", e2eBit);
  add(test.powerToggle != PowerToggle::off, "PowerToggle Condition", powerToggleBit);
  add(test.powerToggle == PowerToggle::withSync, "SyncCache Condition", syncCacheBit);
}

}  // namespace corvane::host
