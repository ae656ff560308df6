#include "host/run/FaultSetup.h"

namespace corvane::host {

FaultSurroundings faultSurroundings(const TestDefinition& test) {
  FaultSurroundings surroundings;
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                 CommandKind::trim, CommandKind::read, CommandKind::verify}) {
    if (test.mix.selects(kind)) {
      surroundings.kinds.push_back(kind);
    }
  }
  if (test.zoneResetEveryCommands != 0) {
    surroundings.kinds.push_back(CommandKind::zoneReset);
  }
  if (test.invalidateEveryCommands != 0) {
    surroundings.kinds.push_back(CommandKind::invalidate);
  }
  if (test.powerToggle == PowerToggle::withSync) {
    surroundings.kinds.push_back(CommandKind::syncCache);
  }
  surroundings.maxBlocks = test.maxBlocks;
  surroundings.maxAtomicBound = test.maxAtomicBound;
  surroundings.drives = static_cast<uint32_t>(test.driveAddresses.size());
  surroundings.powerCuts = test.powerToggle != PowerToggle::off;
  return surroundings;
}

}  // namespace corvane::host
