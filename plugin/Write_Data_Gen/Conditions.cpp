#include "Conditions.h"

namespace vdl::agent {

void disableCommandConditions(DriveThread& thread, const Corvane::ConfigData& config, ActiveConditions& active) {
  const uint64_t state = thread.conditions;
  // All flags first: conditions may share bits.
  active.read = selected(config.readCondition, state);
  active.verify = selected(config.verifyCondition, state);
  active.write = selected(config.writeCondition, state);
  active.writeAtomic = selected(config.writeAtomicCondition, state);
  active.writeSame = selected(config.writeSameCondition, state);
  active.trim = selected(config.trimCondition, state);

  const Condition* const commands[] = {&config.readCondition,        &config.verifyCondition,    &config.writeCondition,
                                       &config.writeAtomicCondition, &config.writeSameCondition, &config.trimCondition,
                                       &config.powerToggleCondition, &config.syncCacheCondition};
  for (const Condition* condition : commands) {
    thread.conditions &= ~(condition->anyMask | condition->allMask);
  }
}

}  // namespace vdl::agent
