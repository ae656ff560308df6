#include "host/run/ConditionPlan.h"

#include <algorithm>

#include "host/run/ConditionExpression.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

constexpr uint64_t greatestWeight = 1'000'000'000;

/// Some conditions belong to steps that the agent takes by itself, whatever is set.
void checkThatItCanBeSet(const std::string& condition, const char* by) {
  for (const ConditionedStep step : {ConditionedStep::powerToggle, ConditionedStep::syncCache}) {
    if (condition == stepName(step)) {
      throw ConfigurationError(std::string(by) + " cannot set '" + condition +
                               "', because the agent decides on that step by itself; take it out");
    }
  }
}

/// One place in the order of all conditions.
uint64_t bitOfChoice(const ConditionNames& names, const RandomCondition::Choice& choice) {
  return names.bitOf(choice.condition, "a random condition");
}

}  // namespace

void addConditionName(ConditionPlan& plan, std::string_view name) {
  std::vector<std::string> further = plan.names;
  further.emplace_back(name);
  const ConditionNames checked(further);
  plan.names = std::move(further);
}

void setStepCondition(ConditionPlan& plan, std::string_view step, std::string_view expression) {
  const ConditionedStep which = stepNamed(step);
  const std::string name = "'" + std::string(step) + "'";
  std::string text;
  if (!expression.empty()) {
    const ConditionNames names(plan.names);
    const vdl::Condition condition = parseCondition(expression, names);
    if (condition.replace && !isAppliedStep(which)) {
      throw ConfigurationError("'" + std::string(expression) + "' cannot gate " + name +
                               ", because the agent does not apply its condition; leave the '=' out");
    }
    text = conditionText(condition, names);
  } else if (!isAgentStep(which)) {
    throw ConfigurationError("the step " + name + " has an empty condition; name one, or leave it out");
  }
  plan.expressions.at(static_cast<size_t>(which)) = text;
}

void addRandomCondition(ConditionPlan& plan, const std::vector<std::pair<std::string, uint64_t>>& choices) {
  const ConditionNames names(plan.names);
  RandomCondition random;
  for (const auto& [condition, weight] : choices) {
    const RandomCondition::Choice choice{.condition = condition, .weight = static_cast<uint32_t>(weight)};
    bitOfChoice(names, choice);
    checkThatItCanBeSet(condition, "a random condition");
    if (weight > greatestWeight) {
      throw ConfigurationError("the weight " + std::to_string(weight) + " of '" + condition +
                               "' is not possible; choose 0 to " + std::to_string(greatestWeight));
    }
    if (std::any_of(random.choices.begin(), random.choices.end(),
                    [&](const auto& other) { return other.condition == choice.condition; })) {
      throw ConfigurationError("a random condition names '" + condition + "' twice; name it once");
    }
    random.choices.push_back(choice);
  }
  if (std::all_of(random.choices.begin(), random.choices.end(),
                  [](const auto& choice) { return choice.weight == 0; })) {
    throw ConfigurationError("a random condition has nothing to choose from; give at least one condition a weight");
  }
  std::sort(random.choices.begin(), random.choices.end(),
            [&](const auto& a, const auto& b) { return bitOfChoice(names, a) < bitOfChoice(names, b); });
  plan.random.push_back(std::move(random));
}

void addConditionPhase(ConditionPlan& plan, std::string_view condition, uint64_t everyCommands, uint64_t forCommands) {
  const std::string name(condition);
  ConditionNames(plan.names).bitOf(name, "a phase");
  checkThatItCanBeSet(name, "a phase");
  if (forCommands < 1 || everyCommands <= forCommands) {
    throw ConfigurationError("the phase of '" + name + "', for " + std::to_string(forCommands) + " commands every " +
                             std::to_string(everyCommands) +
                             ", is no part of its period; give at least 1 and less than the period");
  }
  plan.phases.push_back({.condition = name, .everyCommands = everyCommands, .forCommands = forCommands});
}

}  // namespace corvane::host
