#pragma once

#include <cstdint>
#include <vector>

#include "host/run/ConditionSet.h"
#include "host/run/TestDefinition.h"

namespace corvane::host {

/// What a test sets before each step, with bits instead of names.
struct ConditionChoices {
  struct Phase {
    uint64_t bit = 0;
    uint64_t everyCommands = 0;
    uint64_t forCommands = 0;

    bool isOn(uint64_t commandsIssued) const {
      return commandsIssued >= everyCommands && commandsIssued % everyCommands < forCommands;
    }
  };
  struct Candidate {
    uint64_t bit = 0;
    uint32_t weight = 0;     ///< not 0
    uint64_t heldOffBy = 0;  ///< it is not chosen while one of these is set

    bool isHeldOff(uint64_t state) const { return (state & heldOffBy) != 0; }
  };
  /// One of them is set. A single one takes no draw.
  using Draw = std::vector<Candidate>;

  std::vector<Phase> phases;
  std::vector<Draw> draws;  ///< behind the phases, in this order

  /// The plan's phases and random conditions, then the choice among the kinds of writes and the one among the kinds of
  /// reads, each unless a random condition speaks for its direction.
  ///
  /// With one kind of a direction there is nothing to choose and no bit is set, but for atomic writes alone: those the
  /// agent takes only when they are selected.
  ConditionChoices(const CommandMix& mix, const ConditionPlan& plan, const ConditionSet& set);

  /// The bits that the phases set.
  uint64_t phaseBits(uint64_t commandsIssued) const;
  /// The bits that are set at some time.
  uint64_t everSet() const;
};

}  // namespace corvane::host
