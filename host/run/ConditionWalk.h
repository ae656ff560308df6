#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/run/ConditionChoices.h"
#include "host/run/ConditionSet.h"

namespace corvane::host {

/// Goes through every state that phases and choices can leave before the agent is called, and judges what the agent
/// would make of it.
class ConditionWalk {
 public:
  static constexpr uint64_t mostStates = 65536;

  /// @param set             of the test; outlives the object, as do the choices
  /// @param byShare         the bits that are set at random beside the choices
  /// @param spliceDetection whether the agent reads at any time, whatever is chosen
  ConditionWalk(const ConditionSet& set, const ConditionChoices& choices, uint64_t byShare, bool spliceDetection);

  /// One sentence for each kind of fault, with the first state that shows it.
  std::vector<std::string> judge();

 private:
  uint64_t states() const;
  /// Sets and leaves out each of the phases, from this one on.
  void walkPhases(size_t phase, uint64_t state);
  void walkDraws(size_t draw, uint64_t state);
  void walkShare(uint64_t state);
  void visit(uint64_t state);
  void visitWrites(uint64_t state);
  void visitReads(uint64_t state);
  /// The agent may take this step in this state.
  void mayRun(ConditionedStep step, uint64_t state);
  /// A host's step or the end-to-end bytes are looked at in this state.
  void lookAt(ConditionedStep step, uint64_t state);
  void judgeReach();
  bool selects(ConditionedStep step, uint64_t state) const;
  bool used(ConditionedStep step) const { return set_.uses(step); }
  std::string in(uint64_t state) const;
  void refuseOnce(bool& said, const std::string& sentence);

  const ConditionSet& set_;
  const ConditionChoices& choices_;
  const uint64_t byShare_;
  const bool spliceDetection_;
  uint64_t appliedBits_ = 0;  ///< of the steps that the test takes
  std::array<bool, conditionedSteps> reached_{};
  std::array<bool, conditionedSteps> notHeldBack_{};
  bool stuck_ = false;
  bool wrongWrites_ = false;
  bool wrongReads_ = false;
  std::vector<std::string> refusals_;
};

}  // namespace corvane::host
