#include "host/run/ConditionSet.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <stdexcept>

#include "host/run/ConditionExpression.h"

namespace corvane::host {
namespace {

constexpr std::array<std::string_view, agentSteps> optionNames{
    "Read Condition", "Verify Condition", "Write Condition",       "WriteAtomic Condition", "WriteSame Condition",
    "Trim Condition", "E2E Condition",    "PowerToggle Condition", "SyncCache Condition"};

/// What the random conditions give the conditions of one kind; nothing when they do not name any.
std::optional<uint64_t> weightUnder(const ConditionPlan& plan, const ConditionSet& set, CommandKind kind) {
  const uint64_t bits = choosingBits(set.of(stepOf(kind)));
  std::optional<uint64_t> weight;
  for (const RandomCondition& random : plan.random) {
    for (const RandomCondition::Choice& choice : random.choices) {
      if ((set.names().bitOf(choice.condition, "a random condition") & bits) != 0) {
        weight = weight.value_or(0) + choice.weight;
      }
    }
  }
  return weight;
}

/// Bits that a phase sets: a step that is chosen by one is taken, though no choice gives it a weight.
uint64_t bitsOfPhases(const ConditionPlan& plan, const ConditionNames& names) {
  uint64_t bits = 0;
  for (const ConditionPhase& phase : plan.phases) {
    bits |= names.bitOf(phase.condition, "a phase");
  }
  return bits;
}

uint64_t bitsOfChoices(const ConditionPlan& plan, const ConditionNames& names) {
  uint64_t bits = 0;
  for (const RandomCondition& random : plan.random) {
    for (const RandomCondition::Choice& choice : random.choices) {
      bits |= names.bitOf(choice.condition, "a random condition");
    }
  }
  return bits;
}

template <size_t count>
void setDirection(CommandMix& mix, const ConditionPlan& plan, const ConditionSet& set,
                  const std::array<CommandKind, count>& kinds) {
  const bool spokenFor = std::any_of(kinds.begin(), kinds.end(),
                                     [&](CommandKind kind) { return weightUnder(plan, set, kind).has_value(); });
  if (!spokenFor) {
    return;
  }
  const uint64_t byPhase = bitsOfPhases(plan, set.names());
  for (const CommandKind kind : kinds) {
    const uint64_t least = (choosingBits(set.of(stepOf(kind))) & byPhase) != 0 ? 1 : 0;
    const uint64_t weight = std::max(weightUnder(plan, set, kind).value_or(0), least);
    mix.setWeight(kind, static_cast<uint32_t>(std::min<uint64_t>(weight, std::numeric_limits<uint32_t>::max())));
  }
}

}  // namespace

bool holds(const vdl::Condition& condition, uint64_t state) {
  const bool configured = (condition.anyMask | condition.allMask | condition.noneMask) != 0;
  return configured && (state & condition.noneMask) == 0 && (state & condition.allMask) == condition.allMask &&
         (condition.anyMask == 0 || (state & condition.anyMask) != 0);
}

uint64_t applied(const vdl::Condition& condition, uint64_t state) {
  return choosingBits(condition) | (condition.replace ? 0 : state & ~condition.noneMask);
}

CommandMix mixUnder(const CommandMix& mix, const ConditionPlan& plan) {
  CommandMix under = mix;
  if (!plan.random.empty()) {
    const ConditionSet set(plan);
    setDirection(under, plan, set, writeKinds);
    setDirection(under, plan, set, readKinds);
  }
  return under;
}

ConditionSet::ConditionSet(const ConditionPlan& plan) : names_(plan.names), bits_(names_.allBits()) {
  uses_.fill(true);
  for (const ConditionedStep step : allConditionedSteps()) {
    vdl::Condition& condition = conditions_.at(static_cast<size_t>(step));
    if (const auto& expression = plan.expression(step)) {
      condition = expression->empty() ? vdl::Condition{} : parseCondition(*expression, names_);
    } else if (isAgentStep(step)) {
      condition = {.anyMask = ownBit(step)};
    }
    if (isAppliedStep(step)) {
      appliedBits_ |= choosingBits(condition);
    }
  }
  findPrivateSteps();
}

void ConditionSet::findPrivateSteps() {
  uint64_t others = 0;  // bits of more than one step
  uint64_t seen = 0;
  for (uint32_t step = 0; step < agentSteps; ++step) {
    const vdl::Condition& condition = conditions_[step];
    const uint64_t choosing = choosingBits(condition);
    if (!isAppliedStep(static_cast<ConditionedStep>(step)) || (choosing | condition.noneMask) == 0) {
      continue;
    }
    if (!std::has_single_bit(choosing) || condition.noneMask != 0) {
      return;
    }
    others |= seen & choosing;
    seen |= choosing;
    stepOfBit_[static_cast<size_t>(std::countr_zero(choosing))] = static_cast<ConditionedStep>(step);
  }
  privateBits_ = seen & ~others;
}

ConditionSet::ConditionSet(const TestDefinition& test) : ConditionSet(test.conditions) {
  const auto use = [this](ConditionedStep step, bool used) { uses_.at(static_cast<size_t>(step)) = used; };
  for (const auto& kind : writeKinds) {
    use(stepOf(kind), test.mix.selects(kind));
  }
  for (const auto& kind : readKinds) {
    use(stepOf(kind), test.mix.selects(kind));
  }
  use(ConditionedStep::e2e, usesE2e(test));
  use(ConditionedStep::powerToggle, test.powerToggle != PowerToggle::off);
  use(ConditionedStep::syncCache, test.powerToggle == PowerToggle::withSync);
  use(ConditionedStep::reset, test.resetEveryCommands != 0);
  use(ConditionedStep::zoneReset, test.zoneResetEveryCommands != 0);
  use(ConditionedStep::invalidate, test.invalidateEveryCommands != 0);
  for (uint32_t step = 0; step < agentSteps; ++step) {
    if (uses_.at(step)) {
      options_.emplace_back(optionNames.at(step), conditions_.at(step));
    }
  }
}

bool ConditionSet::usesE2e(const TestDefinition& test) const {
  const vdl::Condition& condition = of(ConditionedStep::e2e);
  const uint64_t set = bitsOfPhases(test.conditions, names_) | bitsOfChoices(test.conditions, names_);
  const bool holdsByItself = choosingBits(condition) == 0 && condition.noneMask != 0;
  return test.e2ePercent != 0 || holdsByItself || (choosingBits(condition) & set) != 0;
}

bool ConditionSet::allows(ConditionedStep hostStep, uint64_t state) const {
  const vdl::Condition& condition = of(hostStep);
  return (choosingBits(condition) | condition.noneMask) == 0 || holds(condition, state);
}

std::optional<ConditionedStep> ConditionSet::stepHeldIn(uint64_t state) const {
  if ((state & appliedBits_) == 0) {
    return std::nullopt;
  }
  std::optional<ConditionedStep> found;
  for (uint32_t step = 0; step < agentSteps; ++step) {
    const auto candidate = static_cast<ConditionedStep>(step);
    if (isAppliedStep(candidate) && holds(conditions_[step], state)) {
      if (found) {
        throw std::logic_error("the agent applied more than one condition in a step");
      }
      found = candidate;
    }
  }
  if (!found) {
    throw std::logic_error("the agent left conditions set on which no step runs");
  }
  return found;
}

bool ConditionSet::carriesE2e(CommandKind kind, uint64_t before, uint64_t after) const {
  // The agent looks at it when it has cleared the selection, and for some kinds when it has applied their condition.
  const bool beforeApplying = kind == CommandKind::write || kind == CommandKind::writeSame;
  return runs(ConditionedStep::e2e, beforeApplying ? before & ~appliedBits_ : after);
}

}  // namespace corvane::host
