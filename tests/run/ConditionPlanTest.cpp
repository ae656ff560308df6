#include "host/run/ConditionPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// The plan of the conditions' own document.
ConditionPlan samplePlan() {
  ConditionPlan plan;
  addConditionName(plan, "hold");
  addConditionName(plan, "quiet");
  setStepCondition(plan, "write", "!hold & write");
  setStepCondition(plan, "reset", "!hold");
  setStepCondition(plan, "e2e", "");
  addRandomCondition(plan, {{"trim", 1}, {"atomic", 1}, {"write", 3}});
  addConditionPhase(plan, "hold", 10'000, 500);
  return plan;
}

TEST(ConditionPlan, AsItIsMadeItSaysNothing) {
  const ConditionPlan plan;
  EXPECT_THAT(plan.names, IsEmpty());
  EXPECT_THAT(plan.expressions, Each(std::nullopt));
  EXPECT_THAT(plan.random, IsEmpty());
  EXPECT_THAT(plan.phases, IsEmpty());
}

TEST(ConditionPlan, HoldsEveryPartInTheOrderOfConditions) {
  const ConditionPlan plan = samplePlan();
  EXPECT_THAT(plan.names, ElementsAre("hold", "quiet"));
  EXPECT_EQ(plan.expression(ConditionedStep::write), "write & !hold");
  EXPECT_EQ(plan.expression(ConditionedStep::e2e), "");
  EXPECT_EQ(plan.expression(ConditionedStep::read), std::nullopt);
  EXPECT_THAT(plan.random, ElementsAre(RandomCondition{.choices = {{"write", 3}, {"atomic", 1}, {"trim", 1}}}));
  EXPECT_THAT(plan.phases,
              ElementsAre(ConditionPhase{.condition = "hold", .everyCommands = 10'000, .forCommands = 500}));
}

TEST(ConditionPlan, TheOrderOfChoicesCountsForNothing) {
  ConditionPlan plan;
  ConditionPlan other;
  addRandomCondition(plan, {{"write", 3}, {"trim", 1}, {"atomic", 0}});
  addRandomCondition(other, {{"atomic", 0}, {"trim", 1}, {"write", 3}});
  EXPECT_EQ(plan, other);
  addRandomCondition(other, {{"read", 1}});
  EXPECT_NE(plan, other);
}

TEST(ConditionPlan, ALaterExpressionReplacesTheEarlier) {
  ConditionPlan plan = samplePlan();
  setStepCondition(plan, "write", "=write");
  EXPECT_EQ(plan.expression(ConditionedStep::write), "=write");
}

struct Wrong {
  const char* name;
  std::function<void(ConditionPlan&)> add;
  const char* complaint;
};

void PrintTo(const Wrong& wrong, std::ostream* out) { *out << wrong.name; }

class WrongPart : public ::testing::TestWithParam<Wrong> {};

TEST_P(WrongPart, IsRefusedAndChangesNothing) {
  ConditionPlan plan = samplePlan();
  try {
    GetParam().add(plan);
    ADD_FAILURE() << "accepted";
  } catch (const ConfigurationError& error) {
    EXPECT_THAT(error.what(), StartsWith(GetParam().complaint));
  }
  EXPECT_EQ(plan, samplePlan());
}

const Wrong wrongParts[] = {
    {"NameTwice", [](auto& plan) { addConditionName(plan, "hold"); }, "the condition 'hold' is named twice"},
    {"NameOfAStep", [](auto& plan) { addConditionName(plan, "trim"); }, "a condition cannot be named 'trim'"},
    {"UnknownStep", [](auto& plan) { setStepCondition(plan, "writes", "hold"); },
     "'writes' is no step of a test; did you mean 'write'?"},
    {"UnknownName", [](auto& plan) { setStepCondition(plan, "reset", "!holt"); },
     "'holt' in '!holt' is no condition; did you mean 'hold'?"},
    {"Inexpressible", [](auto& plan) { setStepCondition(plan, "reset", "!hold | quiet"); },
     "'!hold | quiet' is no condition; join names"},
    {"EmptyHostStep", [](auto& plan) { setStepCondition(plan, "reset", ""); },
     "the step 'reset' has an empty condition; name one, or leave it out"},
    {"BlankStep", [](auto& plan) { setStepCondition(plan, "trim", "  "); }, "'  ' names no condition"},
    {"ReplaceWithoutApplying", [](auto& plan) { setStepCondition(plan, "zone-reset", "=!hold"); },
     "'=!hold' cannot gate 'zone-reset', because the agent does not apply its condition; leave the '=' out"},
    {"ReplaceOfE2e", [](auto& plan) { setStepCondition(plan, "e2e", "=e2e"); }, "'=e2e' cannot gate 'e2e'"},
    {"ChooseUnknown",
     [](auto& plan) {
       addRandomCondition(plan, {{"wrte", 1}});
     },
     "'wrte' in a random condition is no condition; did you mean 'write'?"},
    {"ChooseTwice",
     [](auto& plan) {
       addRandomCondition(plan, {{"read", 1}, {"read", 2}});
     },
     "a random condition names 'read' twice; name it once"},
    {"ChooseNothing", [](auto& plan) { addRandomCondition(plan, {}); },
     "a random condition has nothing to choose from"},
    {"ChooseNoWeight",
     [](auto& plan) {
       addRandomCondition(plan, {{"read", 0}});
     },
     "a random condition has nothing to choose from; give at least one condition a weight"},
    {"HugeWeight",
     [](auto& plan) {
       addRandomCondition(plan, {{"read", 1'000'000'001}});
     },
     "the weight 1000000001 of 'read' is not possible"},
    {"ChoosePower",
     [](auto& plan) {
       addRandomCondition(plan, {{"power", 1}});
     },
     "a random condition cannot set 'power', because the agent decides on that step by itself; take it out"},
    {"PhaseOfSync", [](auto& plan) { addConditionPhase(plan, "sync", 10, 5); }, "a phase cannot set 'sync'"},
    {"PhaseUnknown", [](auto& plan) { addConditionPhase(plan, "quet", 10, 5); },
     "'quet' in a phase is no condition; did you mean 'quiet'?"},
    {"PhaseOfNothing", [](auto& plan) { addConditionPhase(plan, "quiet", 10, 0); },
     "the phase of 'quiet', for 0 commands every 10, is no part of its period"},
    {"PhaseForEver", [](auto& plan) { addConditionPhase(plan, "quiet", 10, 10); },
     "the phase of 'quiet', for 10 commands every 10, is no part of its period; give at least 1 and less than the "
     "period"},
};

INSTANTIATE_TEST_SUITE_P(All, WrongPart, ::testing::ValuesIn(wrongParts),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace corvane::host
