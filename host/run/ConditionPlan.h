#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/run/ConditionNames.h"

namespace corvane::host {

/// Sets one of several conditions before each step, and clears the others of them.
struct RandomCondition {
  struct Choice {
    std::string condition;
    uint32_t weight = 0;  ///< relative to the others that may be chosen just then; 0: never
    bool operator==(const Choice&) const = default;
  };
  std::vector<Choice> choices;
  bool operator==(const RandomCondition&) const = default;
};

/// Keeps a condition set during a part of each period, which is counted in commands of a drive.
struct ConditionPhase {
  std::string condition;
  uint64_t everyCommands = 0;  ///< the period; the first phase begins at its end, as does every later one
  uint64_t forCommands = 0;    ///< how long the condition then stays set; less than the period
  bool operator==(const ConditionPhase&) const = default;
};

/// The conditions of a test, what sets them and which step each gates. As it is made, every step of the agent has its
/// own condition, the weights of the test's commands choose among them, and the host's steps are due by their counts.
///
/// A plain value that the functions below fill from texts. They refuse what is wrong by itself; whether the parts fit
/// each other is told by `judgeConditions`.
struct ConditionPlan {
  std::vector<std::string> names;  ///< further conditions
  /// By the step. Nothing: its own condition, or for a step of the host always. Empty: a step of the agent that is
  /// not there.
  std::array<std::optional<std::string>, conditionedSteps> expressions;
  std::vector<RandomCondition> random;  ///< in the order in which they are made
  std::vector<ConditionPhase> phases;   ///< before those

  const std::optional<std::string>& expression(ConditionedStep step) const {
    return expressions.at(static_cast<size_t>(step));
  }
  bool operator==(const ConditionPlan&) const = default;
};

/// Adds a condition. Names come before everything that uses them. Throws ConfigurationError as ConditionNames does.
void addConditionName(ConditionPlan& plan, std::string_view name);

/// Gates a step by an expression, as `parseCondition` takes it, in place of what gated it so far.
///
/// @param step       as `stepName` writes it
/// @param expression empty takes a step of the agent out
///
/// Throws ConfigurationError for an unknown step, a wrong expression, an empty one of a step of the host, and a replace
/// flag on a step that the agent does not apply.
void setStepCondition(ConditionPlan& plan, std::string_view step, std::string_view expression);

/// Adds a random condition after those that are there. Its order of conditions counts for nothing, so that the same
/// weights always give the same test.
///
/// @param choices conditions and their weights, each from 0 to 1,000,000,000
///
/// Throws ConfigurationError for unknown and repeated conditions, wrong weights, and when nothing could be chosen.
void addRandomCondition(ConditionPlan& plan, const std::vector<std::pair<std::string, uint64_t>>& choices);

/// Adds a phase. Throws ConfigurationError for an unknown condition and for a phase that is no part of its period.
void addConditionPhase(ConditionPlan& plan, std::string_view condition, uint64_t everyCommands, uint64_t forCommands);

}  // namespace corvane::host
