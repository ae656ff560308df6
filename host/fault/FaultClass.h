#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/drive/Drive.h"

namespace corvane::host {

/// What a faulty drive does wrong.
enum class FaultClass : uint8_t {
  bitFlipRest,
  bitFlipWrite,
  bitFlipRead,
  lostWrite,
  staleRead,
  misdirectedWrite,
  misdirectedRead,
  tornWrite,
  tornWrite4k,
  writeSplice,
  atomicTear,
  orderInversion,
  readOvertakes,
  trimIgnored,
  trimTooFar,
  writeSameShort,
  wrongStatus,
  lyingFlush,
  verifyAlwaysEqual,
  verifyFalseAlarm,
  crossTalk,
  zeroedBlock,
  swappedBlock,
  protectionDamage,
  zoneResetIgnored,
  invalidateIgnored,
  mixedCommands,
};

/// How a fault shows that was not repaired before somebody looked.
enum class FaultSymptom : uint8_t {
  miscompare,   ///< content that no rule allows
  splice,       ///< blocks of a failed write that cannot be read any more
  atomicOrder,  ///< parts of an atomic segment old and parts new
};

/// A class of faults, as flags, ledger and documents name it.
struct FaultClassInfo {
  FaultClass what;
  const char* name;  ///< "lost-write"
  const char* help;  ///< one line
  FaultSymptom symptom;
};

/// Every class, in the order of the enumeration.
const std::vector<FaultClassInfo>& faultClasses();

const FaultClassInfo& faultClassInfo(FaultClass what);

/// The names of all classes.
std::vector<std::string> faultClassNames();

std::optional<FaultClass> faultClassNamed(std::string_view name);

/// Whether a fault of this class can strike this command at all.
bool canStrike(FaultClass what, const DriveCommand& command, const DriveGeometry& geometry);

}  // namespace corvane::host
