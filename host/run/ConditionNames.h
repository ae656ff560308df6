#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/drive/Drive.h"

namespace corvane::host {

/// A part of a test that runs only while its condition holds.
///
/// Each of the first nine has a condition of its own name, whose bit is the enumerator's number.
enum class ConditionedStep : uint8_t {
  read,
  verify,
  write,
  writeAtomic,
  writeSame,
  trim,
  e2e,  ///< no command: whether a write or a verify carries end-to-end bytes
  powerToggle,
  syncCache,
  reset,
  zoneReset,
  invalidate
};

inline constexpr uint32_t conditionedSteps = 12;
inline constexpr uint32_t agentSteps = 9;  ///< the first so many are the agent's, the others the host's
inline constexpr uint32_t mostConditions = 64;

/// Every step, in the order of the enumeration.
const std::array<ConditionedStep, conditionedSteps>& allConditionedSteps();

/// "read", "verify", "write", "atomic", "writesame", "trim", "e2e", "power", "sync", "reset", "zone-reset",
/// "invalidate".
const char* stepName(ConditionedStep step);
/// Throws ConfigurationError for a name that no step has.
ConditionedStep stepNamed(std::string_view name);

/// Whether the agent decides on the step and applies its condition; the host decides on the others.
constexpr bool isAgentStep(ConditionedStep step) { return static_cast<uint32_t>(step) < agentSteps; }
/// Whether the step does something on the drive when the agent has applied its condition: every step of the agent but
/// `e2e`.
constexpr bool isAppliedStep(ConditionedStep step) { return isAgentStep(step) && step != ConditionedStep::e2e; }
/// The bit of an agent's step's own condition.
constexpr uint64_t ownBit(ConditionedStep step) { return uint64_t{1} << static_cast<uint32_t>(step); }

/// The step that issues this kind of command; throws std::logic_error for kinds that no condition of the agent selects.
ConditionedStep stepOf(CommandKind kind);
/// What the step issues; nothing for steps that issue no command.
std::optional<CommandKind> kindOf(ConditionedStep step);

/// The conditions of a test by name: those of the agent's steps and further ones of the test's own.
class ConditionNames {
 public:
  /// Throws ConfigurationError, one line, for a name that is none, that stands here twice or is a step's, and for more
  /// than 64 conditions in all.
  explicit ConditionNames(const std::vector<std::string>& further = {});

  /// The condition's bit. Throws ConfigurationError that names the nearest right name.
  ///
  /// @param where what the name stands in, for the message: "'wirte & !hold'"
  uint64_t bitOf(std::string_view name, std::string_view where) const;
  /// The names of all bits of a mask, lowest first. Bits without a name are left out.
  std::vector<std::string> namesOf(uint64_t mask) const;
  /// Those names in one text: "'write'", "'write' and 'trim'", "'write', 'atomic' and 'trim'".
  std::string listOf(uint64_t mask) const;
  /// The bits of all conditions.
  uint64_t allBits() const;

 private:
  std::vector<std::string> names_;  ///< by the bit's number
};

}  // namespace corvane::host
