#include "Conditions.h"

namespace vdl::agent {

void disableCommandConditions(DriveThread& thread, const Corvane::ConfigData& config, ActiveConditions& active) {
  const uint64_t state = thread.conditions;
  // All flags before any bit goes: conditions may share bits.
  active.read = selected(config.readCondition, state);
  active.verify = selected(config.verifyCondition, state);
  active.write = selected(config.writeCondition, state);
  active.writeAtomic = selected(config.writeAtomicCondition, state);
  active.writeSame = selected(config.writeSameCondition, state);
  active.trim = selected(config.trimCondition, state);

  const uint64_t bits = bitsOf(config.readCondition) | bitsOf(config.verifyCondition) | bitsOf(config.writeCondition) |
                        bitsOf(config.writeAtomicCondition) | bitsOf(config.writeSameCondition) |
                        bitsOf(config.trimCondition) | bitsOf(config.powerToggleCondition) |
                        bitsOf(config.syncCacheCondition);
  thread.conditions = state & ~bits;
}

}  // namespace vdl::agent
