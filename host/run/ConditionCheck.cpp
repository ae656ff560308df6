#include "host/run/ConditionCheck.h"

#include <algorithm>

#include "host/run/ConditionChoices.h"
#include "host/run/ConditionExpression.h"
#include "host/run/ConditionSet.h"
#include "host/run/ConditionWalk.h"
#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }
std::string theStep(ConditionedStep step) { return "the step " + quoted(stepName(step)); }

/// What gates a step of which nothing was said; empty for the host's, which only wait to be due.
const char* usualTextOf(ConditionedStep step) { return isAgentStep(step) ? stepName(step) : ""; }

/// What makes a test take a step.
const char* howToUse(ConditionedStep step) {
  switch (step) {
    case ConditionedStep::e2e:
      return "give end-to-end bytes a share";
    case ConditionedStep::powerToggle:
      return "switch power toggles on";
    case ConditionedStep::syncCache:
      return "choose power toggles with a flush";
    case ConditionedStep::reset:
    case ConditionedStep::zoneReset:
    case ConditionedStep::invalidate:
      return "say after how many commands it is due";
    default:
      return "give it a weight";
  }
}

/// What can be told from the names, the expressions and what sets them.
class PlanJudge {
 public:
  PlanJudge(const TestDefinition& test, const ConditionSet& set, const ConditionChoices& choices)
      : test_(test), set_(set), choices_(choices) {}

  std::vector<std::string> judge() {
    for (const ConditionedStep step : allConditionedSteps()) {
      judgeStep(step);
    }
    judgePairs();
    judgeSetters();
    judgeNeverSet();
    return std::move(refusals_);
  }

 private:
  std::string textOf(ConditionedStep step) const { return conditionText(set_.of(step), set_.names()); }

  void judgeStep(ConditionedStep step) {
    const vdl::Condition& condition = set_.of(step);
    const std::string text = textOf(step);
    if (set_.uses(step) && isAgentStep(step) && text.empty()) {
      refusals_.push_back("the test takes " + theStep(step) +
                          ", whose condition is empty; name one, or leave the step " + "out of the test");
    } else if (!set_.uses(step) && !text.empty() && text != usualTextOf(step)) {
      refusals_.push_back("the test does not take " + theStep(step) + ", which has the condition " + quoted(text) +
                          "; " + howToUse(step) + ", or leave the condition out");
    } else if (isAppliedStep(step) && !text.empty() && choosingBits(condition) == 0) {
      refusals_.push_back(quoted(text) + " gives " + theStep(step) + " nothing to be chosen by; write " +
                          quoted(stepName(step) + std::string(" & ") + text));
    }
  }

  /// Whether applying one condition makes the other one hold in some state. What chooses the agent's steps was cleared
  /// before.
  static bool runsToo(const vdl::Condition& other, const vdl::Condition& applied) {
    const uint64_t set = choosingBits(applied);
    return choosingBits(other) != 0 && (other.allMask & ~set) == 0 &&
           (other.anyMask == 0 || (other.anyMask & set) != 0) && (other.noneMask & set) == 0;
  }

  void judgePairs() {
    for (const ConditionedStep first : allConditionedSteps()) {
      for (const ConditionedStep second : allConditionedSteps()) {
        if (!isAppliedStep(first) || !isAppliedStep(second) || second <= first) {
          continue;
        }
        const bool forth = runsToo(set_.of(second), set_.of(first));
        if (forth || runsToo(set_.of(first), set_.of(second))) {
          const ConditionedStep cause = forth ? first : second;
          refusals_.push_back("the steps " + quoted(stepName(first)) + " and " + quoted(stepName(second)) +
                              " would run at once when the agent applies " + quoted(textOf(cause)) +
                              ", but a step issues one command; let each be chosen by a condition of its own");
        }
      }
    }
  }

  void judgeSetters() {
    uint64_t drawn = 0;
    uint64_t phased = 0;
    uint64_t twice = 0;
    for (const ConditionChoices::Draw& draw : choices_.draws) {
      for (const ConditionChoices::Candidate& candidate : draw) {
        twice |= drawn & candidate.bit;
        drawn |= candidate.bit;
      }
    }
    for (const ConditionChoices::Phase& phase : choices_.phases) {
      phased |= phase.bit;
    }
    for (const std::string& name : set_.names().namesOf(twice)) {
      refusals_.push_back("two random conditions set " + quoted(name) +
                          ", and the second would undo the first; name it in one");
    }
    // A phase may put a kind on top of the mix's own choice: an atomic write goes before the others.
    const uint64_t listed = drawn & phased & ~ConditionSet::commandBits;
    for (const std::string& name : set_.names().namesOf(listed)) {
      refusals_.push_back("both a random condition and a phase set " + quoted(name) + "; name it in one");
    }
    for (const ConditionedStep step : allConditionedSteps()) {
      if (isAgentStep(step) && !set_.uses(step) && ((drawn | phased) & ownBit(step)) != 0) {
        refusals_.push_back("a phase or a random condition sets " + quoted(stepName(step)) +
                            ", but the test does not take that step; " + howToUse(step) + ", or do not set it");
      }
    }
  }

  void judgeNeverSet() {
    uint64_t set = choices_.everSet() | (test_.e2ePercent != 0 ? ConditionSet::e2eBit : 0);
    uint64_t wanted = set_.bits() & ~ConditionSet::allBits;
    for (const ConditionedStep step : allConditionedSteps()) {
      const vdl::Condition& condition = set_.of(step);
      if (set_.uses(step)) {
        wanted |= choosingBits(condition) | condition.noneMask;
        set |= isAppliedStep(step) ? choosingBits(condition) : 0;
      }
    }
    for (const std::string& name : set_.names().namesOf(wanted & ~set)) {
      refusals_.push_back("nothing ever sets the condition " + quoted(name) +
                          "; name it in a random condition or a phase, or leave it out");
    }
  }

  const TestDefinition& test_;
  const ConditionSet& set_;
  const ConditionChoices& choices_;
  std::vector<std::string> refusals_;
};

}  // namespace

std::vector<std::string> judgeConditions(const TestDefinition& test, bool spliceDetection) {
  try {
    const ConditionSet set(test);
    const ConditionChoices choices(test.mix, test.conditions, set);
    std::vector<std::string> refusals = PlanJudge(test, set, choices).judge();
    // Without a write or a read there is nothing to choose, which is told elsewhere.
    const bool complete = test.mix.writeKinds() != 0 && (test.mix.read != 0 || test.mix.verify != 0);
    if (refusals.empty() && complete) {
      const uint64_t byShare = test.e2ePercent != 0 ? ConditionSet::e2eBit : 0;
      refusals = ConditionWalk(set, choices, byShare, spliceDetection).judge();
    }
    return refusals;
  } catch (const ConfigurationError& error) {
    return {error.what()};
  }
}

}  // namespace corvane::host
