#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "host/run/ConditionNames.h"
#include "host/run/TestDefinition.h"
#include "vdl/Condition.h"

namespace corvane::host {

/// The kinds of each direction, in the order in which they share the numbers that are drawn.
inline constexpr std::array<CommandKind, 4> writeKinds{CommandKind::write, CommandKind::writeAtomic,
                                                       CommandKind::writeSame, CommandKind::trim};
inline constexpr std::array<CommandKind, 2> readKinds{CommandKind::read, CommandKind::verify};

/// Whether a condition holds in a state: configured, no bit of `noneMask` set, every bit of `allMask` set, and
/// `anyMask` empty or sharing a bit with the state.
bool holds(const vdl::Condition& condition, uint64_t state);

/// The state after a condition was applied: its bits of `anyMask` and `allMask` set, those of `noneMask` cleared, or
/// with `replace` every other one.
uint64_t applied(const vdl::Condition& condition, uint64_t state);

/// The bits by which a condition is chosen, and which applying it sets.
inline uint64_t choosingBits(const vdl::Condition& condition) { return condition.anyMask | condition.allMask; }

/// Sets the weights of the kinds of writes, or of reads, that the plan's random conditions choose among: each kind's
/// from the choices that its condition names. A direction that no random condition speaks for keeps its weights.
///
/// Throws ConfigurationError for a plan with a wrong part.
CommandMix mixUnder(const CommandMix& mix, const ConditionPlan& plan);

/// The conditions of one test, by step. As the plan is made, each has a private bit, so that the agent's applying of
/// one says nothing of another.
class ConditionSet {
 public:
  static constexpr uint64_t readBit = ownBit(ConditionedStep::read);
  static constexpr uint64_t verifyBit = ownBit(ConditionedStep::verify);
  static constexpr uint64_t writeBit = ownBit(ConditionedStep::write);
  static constexpr uint64_t writeAtomicBit = ownBit(ConditionedStep::writeAtomic);
  static constexpr uint64_t writeSameBit = ownBit(ConditionedStep::writeSame);
  static constexpr uint64_t trimBit = ownBit(ConditionedStep::trim);
  static constexpr uint64_t e2eBit = ownBit(ConditionedStep::e2e);
  static constexpr uint64_t powerToggleBit = ownBit(ConditionedStep::powerToggle);
  static constexpr uint64_t syncCacheBit = ownBit(ConditionedStep::syncCache);
  /// The bits of the steps' own conditions whose steps issue a command.
  static constexpr uint64_t commandBits =
      readBit | verifyBit | writeBit | writeAtomicBit | writeSameBit | trimBit | syncCacheBit;
  static constexpr uint64_t allBits = commandBits | e2eBit | powerToggleBit;

  /// The bit of the own condition of the step that issues this kind.
  static uint64_t bitOf(CommandKind kind) { return ownBit(stepOf(kind)); }

  /// Throws ConfigurationError for a plan with a wrong name or expression.
  explicit ConditionSet(const ConditionPlan& plan);
  explicit ConditionSet(const TestDefinition& test);

  const ConditionNames& names() const { return names_; }
  /// The condition of a step; nothing is configured for an agent's step that is not there, and for a step of the host
  /// that is always due.
  const vdl::Condition& of(ConditionedStep step) const { return conditions_.at(static_cast<size_t>(step)); }
  /// Whether the step's condition holds.
  bool runs(ConditionedStep step, uint64_t state) const { return holds(of(step), state); }
  /// Whether the host may take one of its own steps now.
  bool allows(ConditionedStep hostStep, uint64_t state) const;
  /// The bits that select or apply the steps of the agent: it clears them before it applies one.
  uint64_t appliedBits() const { return appliedBits_; }
  /// The bits of all conditions.
  uint64_t bits() const { return bits_; }

  /// The step that runs after the agent has applied its condition, if it has. Throws std::logic_error when more than
  /// one would, and when bits are left that no step runs on.
  std::optional<ConditionedStep> stepToRun(uint64_t state) const {
    const uint64_t applied = state & appliedBits_;
    const bool single = (applied & (applied - 1)) == 0;  // or none; not every processor counts bits by itself
    return single && (applied & privateBits_) != 0 ? stepOfBit_[static_cast<size_t>(std::countr_zero(applied))]
                                                   : stepHeldIn(state);
  }

  /// Whether a command carries end-to-end bytes.
  ///
  /// @param before the state when the agent was called
  /// @param after  the state with which it returned
  bool carriesE2e(CommandKind kind, uint64_t before, uint64_t after) const;

  /// Whether the test this set was made of takes the step. Everything is there for a set that was made of a plan alone.
  bool uses(ConditionedStep step) const { return uses_.at(static_cast<size_t>(step)); }
  /// The conditions of the agent's steps that the test takes, by the name of the agent's option.
  const std::vector<std::pair<std::string_view, vdl::Condition>>& options() const { return options_; }

 private:
  bool usesE2e(const TestDefinition& test) const;
  void findPrivateSteps();
  /// As `stepToRun`, from the conditions themselves.
  std::optional<ConditionedStep> stepHeldIn(uint64_t state) const;

  ConditionNames names_;
  std::array<vdl::Condition, conditionedSteps> conditions_{};
  std::array<bool, conditionedSteps> uses_{};
  uint64_t appliedBits_ = 0;
  /// Bits each of which makes one step run, whatever else is set; none when some step of the agent takes more than
  /// that.
  uint64_t privateBits_ = 0;
  std::array<ConditionedStep, mostConditions> stepOfBit_{};  ///< of the private bits
  uint64_t bits_ = 0;
  std::vector<std::pair<std::string_view, vdl::Condition>> options_;
};

}  // namespace corvane::host
