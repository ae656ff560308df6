#include "host/run/ConditionWalk.h"

#include <algorithm>
#include <utility>

#include "host/run/ConditionExpression.h"

namespace corvane::host {
namespace {

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

}  // namespace

ConditionWalk::ConditionWalk(const ConditionSet& set, const ConditionChoices& choices, uint64_t byShare,
                             bool spliceDetection)
    : set_(set), choices_(choices), byShare_(byShare), spliceDetection_(spliceDetection) {
  for (const ConditionedStep step : allConditionedSteps()) {
    appliedBits_ |= isAppliedStep(step) && used(step) ? choosingBits(set_.of(step)) : 0;
  }
}

std::vector<std::string> ConditionWalk::judge() {
  if (states() > mostStates) {
    return {"the phases and random conditions of the test make more than " + std::to_string(mostStates) +
            " combinations, too many to judge each; use fewer"};
  }
  walkPhases(0, 0);
  if (refusals_.empty()) {
    judgeReach();
  }
  return std::move(refusals_);
}

uint64_t ConditionWalk::states() const {
  uint64_t states = byShare_ != 0 ? 2 : 1;
  for (size_t phase = 0; phase < choices_.phases.size() && states <= mostStates; ++phase) {
    states *= 2;
  }
  for (size_t draw = 0; draw < choices_.draws.size() && states <= mostStates; ++draw) {
    states *= choices_.draws[draw].size();
  }
  return states;
}

void ConditionWalk::walkPhases(size_t phase, uint64_t state) {
  if (phase == choices_.phases.size()) {
    walkDraws(0, state);
    return;
  }
  walkPhases(phase + 1, state);
  walkPhases(phase + 1, state | choices_.phases[phase].bit);
}

void ConditionWalk::walkDraws(size_t draw, uint64_t state) {
  if (draw == choices_.draws.size()) {
    walkShare(state);
    return;
  }
  uint64_t heldOff = 0;
  bool chosen = false;
  for (const ConditionChoices::Candidate& candidate : choices_.draws[draw]) {
    if (candidate.isHeldOff(state)) {
      heldOff |= candidate.bit;
    } else {
      chosen = true;
      walkDraws(draw + 1, state | candidate.bit);
    }
  }
  if (!chosen) {
    refuseOnce(stuck_, in(state) + " nothing could be chosen, because that holds " + set_.names().listOf(heldOff) +
                           " back; leave one that is always possible");
  }
}

void ConditionWalk::walkShare(uint64_t state) {
  visit(state);
  if (byShare_ != 0) {
    visit(state | byShare_);
  }
}

void ConditionWalk::visit(uint64_t state) {
  lookAt(ConditionedStep::zoneReset, state);
  lookAt(ConditionedStep::invalidate, state);
  lookAt(ConditionedStep::reset, state & ~appliedBits_);
  visitWrites(state);
  visitReads(state);
  for (const ConditionedStep step : {ConditionedStep::powerToggle, ConditionedStep::syncCache}) {
    if (used(step)) {
      mayRun(step, state);
    }
  }
}

void ConditionWalk::visitWrites(uint64_t state) {
  if (used(ConditionedStep::writeAtomic) && selects(ConditionedStep::writeAtomic, state)) {
    mayRun(ConditionedStep::writeAtomic, state);
    mayRun(ConditionedStep::read, state);  // over unknown content
    return;
  }
  constexpr std::array<ConditionedStep, 3> kinds{ConditionedStep::write, ConditionedStep::writeSame,
                                                 ConditionedStep::trim};
  const auto usedKinds = std::count_if(kinds.begin(), kinds.end(), [this](ConditionedStep kind) { return used(kind); });
  std::string selected;
  int count = 0;
  for (const ConditionedStep kind : kinds) {
    // One kind alone the agent takes without being told.
    if (used(kind) && (usedKinds == 1 || selects(kind, state))) {
      ++count;
      selected += (selected.empty() ? "" : ", ") + quoted(stepName(kind));
      mayRun(kind, state);
    }
  }
  if (count != 1) {
    refuseOnce(wrongWrites_, in(state) +
                                 (count == 0 ? " no kind of write is chosen" : " the test chooses " + selected) +
                                 ", but the agent needs one of the test's kinds of writes; name exactly one of them in "
                                 "every case");
  }
}

void ConditionWalk::visitReads(uint64_t state) {
  const bool both = used(ConditionedStep::read) && used(ConditionedStep::verify);
  int count = 0;
  for (const ConditionedStep kind : {ConditionedStep::read, ConditionedStep::verify}) {
    if (used(kind) && (!both || selects(kind, state))) {
      ++count;
      mayRun(kind, state);
    }
  }
  if (count != 1) {
    refuseOnce(wrongReads_,
               in(state) + (count == 0 ? " neither" : " each") +
                   " of 'read' and 'verify' is chosen, but the agent needs one of the two; name exactly one "
                   "of them in every case");
  }
  if (spliceDetection_ && used(ConditionedStep::read)) {
    mayRun(ConditionedStep::read, state);
  }
}

void ConditionWalk::mayRun(ConditionedStep step, uint64_t state) {
  const vdl::Condition& condition = set_.of(step);
  reached_.at(static_cast<size_t>(step)) = true;
  if (const uint64_t against = condition.noneMask & state; against != 0) {
    refuseOnce(notHeldBack_.at(static_cast<size_t>(step)),
               "the step " + quoted(stepName(step)) + " could run " + in(state) + ", against its condition " +
                   quoted(conditionText(condition, set_.names())) +
                   "; only a step that is chosen among others, after what holds it back, can be held back");
  }
  const uint64_t after = applied(condition, state & ~appliedBits_);
  lookAt(ConditionedStep::reset, after);
  if (const std::optional<CommandKind> kind = kindOf(step); kind && set_.carriesE2e(*kind, state, after)) {
    reached_.at(static_cast<size_t>(ConditionedStep::e2e)) |=
        changesMedium(*kind) ? *kind != CommandKind::trim : *kind == CommandKind::verify;
  }
}

void ConditionWalk::lookAt(ConditionedStep step, uint64_t state) {
  if (set_.allows(step, state)) {
    reached_.at(static_cast<size_t>(step)) = true;
  }
}

void ConditionWalk::judgeReach() {
  for (const ConditionedStep step : allConditionedSteps()) {
    if (!used(step) || reached_.at(static_cast<size_t>(step))) {
      continue;
    }
    const std::string text = quoted(conditionText(set_.of(step), set_.names()));
    const std::string name = "the step " + quoted(stepName(step));
    if (isAppliedStep(step)) {
      refusals_.push_back(name + " is never chosen, because nothing sets what chooses it alone, " + text +
                          "; name it in a random condition, or leave the step out");
    } else {
      refusals_.push_back(text + ", the condition of " + name +
                          ", never holds when the step's turn comes; change it, or leave the step out");
    }
  }
}

bool ConditionWalk::selects(ConditionedStep step, uint64_t state) const {
  return (choosingBits(set_.of(step)) & state) != 0;
}

std::string ConditionWalk::in(uint64_t state) const {
  const std::string names = set_.names().listOf(state);
  return names.empty() ? "while nothing is set"
                       : "while " + names + (names.find(' ') == std::string::npos ? " is" : " are") + " set";
}

void ConditionWalk::refuseOnce(bool& said, const std::string& sentence) {
  if (!std::exchange(said, true)) {
    refusals_.push_back(sentence);
  }
}

}  // namespace corvane::host
