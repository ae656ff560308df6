#include "host/run/ConditionChoices.h"

#include <span>

namespace corvane::host {
namespace {

/// What keeps a choice from being made: the '!' conditions of the steps that it would select.
uint64_t obstaclesOf(uint64_t bit, const ConditionSet& set) {
  uint64_t obstacles = 0;
  for (const ConditionedStep step : allConditionedSteps()) {
    if (isAppliedStep(step) && (choosingBits(set.of(step)) & bit) != 0) {
      obstacles |= set.of(step).noneMask;
    }
  }
  return obstacles & ~bit;
}

void addCandidate(ConditionChoices::Draw& draw, uint64_t bit, uint32_t weight, const ConditionSet& set) {
  if (weight != 0) {
    draw.push_back({.bit = bit, .weight = weight, .heldOffBy = obstaclesOf(bit, set)});
  }
}

/// The choice that the mix makes among the kinds of one direction; empty when there is none to make.
ConditionChoices::Draw drawAmong(std::span<const CommandKind> kinds, const CommandMix& mix, const ConditionSet& set,
                                 const std::vector<ConditionChoices::Draw>& listed) {
  uint64_t speaking = 0;
  for (const CommandKind kind : kinds) {
    speaking |= choosingBits(set.of(stepOf(kind)));
  }
  for (const ConditionChoices::Draw& draw : listed) {
    for (const ConditionChoices::Candidate& candidate : draw) {
      if ((candidate.bit & speaking) != 0) {
        return {};
      }
    }
  }
  ConditionChoices::Draw draw;
  for (const CommandKind kind : kinds) {
    addCandidate(draw, ConditionSet::bitOf(kind), mix.weight(kind), set);
  }
  const bool nothingToChoose = draw.size() == 1 && draw[0].bit != ConditionSet::writeAtomicBit;
  return nothingToChoose ? ConditionChoices::Draw{} : draw;
}

}  // namespace

ConditionChoices::ConditionChoices(const CommandMix& mix, const ConditionPlan& plan, const ConditionSet& set) {
  for (const ConditionPhase& phase : plan.phases) {
    phases.push_back({.bit = set.names().bitOf(phase.condition, "a phase"),
                      .everyCommands = phase.everyCommands,
                      .forCommands = phase.forCommands});
  }
  for (const RandomCondition& random : plan.random) {
    Draw& draw = draws.emplace_back();
    for (const RandomCondition::Choice& choice : random.choices) {
      addCandidate(draw, set.names().bitOf(choice.condition, "a random condition"), choice.weight, set);
    }
  }
  const std::vector<Draw> listed = draws;
  for (const std::span<const CommandKind> kinds : {std::span<const CommandKind>(writeKinds), {readKinds}}) {
    if (Draw draw = drawAmong(kinds, mix, set, listed); !draw.empty()) {
      draws.push_back(std::move(draw));
    }
  }
}

uint64_t ConditionChoices::phaseBits(uint64_t commandsIssued) const {
  uint64_t bits = 0;
  for (const Phase& phase : phases) {
    bits |= phase.isOn(commandsIssued) ? phase.bit : 0;
  }
  return bits;
}

uint64_t ConditionChoices::everSet() const {
  uint64_t bits = 0;
  for (const Phase& phase : phases) {
    bits |= phase.bit;
  }
  for (const Draw& draw : draws) {
    for (const Candidate& candidate : draw) {
      bits |= candidate.bit;
    }
  }
  return bits;
}

}  // namespace corvane::host
