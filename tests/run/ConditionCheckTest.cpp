#include "host/run/ConditionCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "host/run/ConditionSet.h"

namespace corvane::host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A test with conditions that work: a phase without trims and resets.
TestDefinition workingTest() {
  TestDefinition test;
  test.mix = {.write = 2, .trim = 1, .read = 1};
  test.resetEveryCommands = 100;
  addConditionName(test.conditions, "hold");
  setStepCondition(test.conditions, "trim", "trim & !hold");
  setStepCondition(test.conditions, "reset", "!hold");
  addConditionPhase(test.conditions, "hold", 1000, 100);
  return test;
}

std::vector<std::string> judged(TestDefinition test, bool spliceDetection = false) {
  test.mix = mixUnder(test.mix, test.conditions);
  return judgeConditions(test, spliceDetection);
}

/// A test that writes and trims, without any condition yet.
TestDefinition bare(const CommandMix& mix = {.write = 2, .trim = 1, .read = 1}) {
  TestDefinition test;
  test.mix = mix;
  return test;
}

constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};

struct Case {
  const char* name;
  std::function<TestDefinition()> make;
  const char* why;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

TEST(ConditionCheck, TestsAsTheyWereBeforeAreFine) {
  for (const CommandMix& mix : {CommandMix{}, everyKind, CommandMix{.write = 0, .writeAtomic = 1, .read = 1},
                                CommandMix{.write = 0, .trim = 2, .read = 0, .verify = 1}}) {
    TestDefinition test = bare(mix);
    EXPECT_THAT(judged(test), IsEmpty());
    test.e2ePercent = 30;
    test.powerToggle = PowerToggle::withSync;
    test.resetEveryCommands = test.zoneResetEveryCommands = test.invalidateEveryCommands = 5;
    EXPECT_THAT(judged(test, true), IsEmpty());
  }
}

TEST(ConditionCheck, ExplicitExpressionsOfUnusedStepsAreFineWhileTheySayWhatIsUsual) {
  TestDefinition test = bare();
  for (const ConditionedStep step : allConditionedSteps()) {
    if (isAgentStep(step)) {
      setStepCondition(test.conditions, stepName(step), stepName(step));
    }
  }
  EXPECT_THAT(judged(test), IsEmpty());
  setStepCondition(test.conditions, "verify", "");
  EXPECT_THAT(judged(test), IsEmpty());
}

TEST(ConditionCheck, APhaseWithoutTrimsAndResetsIsFine) { EXPECT_THAT(judged(workingTest()), IsEmpty()); }

TEST(ConditionCheck, SeveralConditionsMayChooseOneStep) {
  TestDefinition test = bare({});
  addConditionName(test.conditions, "early");
  addConditionName(test.conditions, "late");
  setStepCondition(test.conditions, "write", "early | late");
  setStepCondition(test.conditions, "e2e", "!atomic");
  addRandomCondition(test.conditions, {{"early", 1}, {"late", 2}, {"atomic", 1}});
  EXPECT_THAT(judged(test), IsEmpty());
  const CommandMix mix = mixUnder(test.mix, test.conditions);
  EXPECT_EQ(mix.write, 3U);
  EXPECT_EQ(mix.writeAtomic, 1U);
  EXPECT_EQ(mix.read, 1U);
}

TEST(ConditionCheck, APhaseMayPutAtomicWritesBeforeTheOthers) {
  TestDefinition test = bare({});
  addRandomCondition(test.conditions, {{"write", 1}, {"trim", 1}});
  addConditionPhase(test.conditions, "atomic", 100, 10);
  EXPECT_THAT(judged(test), IsEmpty());
  EXPECT_EQ(mixUnder(test.mix, test.conditions).writeAtomic, 1U);
}

class Refused : public ::testing::TestWithParam<Case> {};

TEST_P(Refused, SaysWhyAndWhatToChange) {
  EXPECT_THAT(judged(GetParam().make()), ElementsAre(::testing::StartsWith(GetParam().why)));
}

const Case refusedPlans[] = {
    {"WrongExpression",
     [] {
       TestDefinition test = bare();
       test.conditions.expressions.at(static_cast<size_t>(ConditionedStep::trim)) = "trim & !hold";
       return test;
     },
     "'hold' in 'trim & !hold' is no condition; add it to the conditions of the test, or choose of read, verify, "
     "write, atomic, writesame, trim, e2e, "
     "power, sync"},
    {"WeightWithoutCondition",
     [] {
       TestDefinition test = bare();
       setStepCondition(test.conditions, "trim", "");
       return test;
     },
     "the test takes the step 'trim', whose condition is empty; name one, or leave the step out of the test"},
    {"ConditionWithoutWeight",
     [] {
       TestDefinition test = workingTest();
       test.mix.trim = 0;
       return test;
     },
     "the test does not take the step 'trim', which has the condition 'trim & !hold'; give it a weight, or leave the "
     "condition out"},
    {"ConditionOfResetsThatNeverCome",
     [] {
       TestDefinition test = workingTest();
       test.resetEveryCommands = 0;
       return test;
     },
     "the test does not take the step 'reset', which has the condition '!hold'; say after how many commands it is due, "
     "or leave the condition out"},
    {"ConditionOfNoPowerToggle",
     [] {
       TestDefinition test = bare();
       setStepCondition(test.conditions, "power", "=power");
       return test;
     },
     "the test does not take the step 'power', which has the condition '=power'; switch power toggles on, or leave the "
     "condition out"},
    {"NothingToBeChosenBy",
     [] {
       TestDefinition test = workingTest();
       setStepCondition(test.conditions, "write", "!hold");
       return test;
     },
     "'!hold' gives the step 'write' nothing to be chosen by; write 'write & !hold'"},
    {"TwoStepsAtOnce",
     [] {
       TestDefinition test = bare();
       setStepCondition(test.conditions, "write", "write | trim");
       return test;
     },
     "the steps 'write' and 'trim' would run at once when the agent applies 'write | trim', but a step issues one "
     "command; let each be chosen by a condition of its own"},
    {"TwoStepsAtOnceWhileNothingHoldsOneOff",
     [] {
       TestDefinition test = workingTest();
       setStepCondition(test.conditions, "write", "write & trim");
       return test;
     },
     "the steps 'write' and 'trim' would run at once when the agent applies 'write & trim', but a step issues one "
     "command; let each be chosen by a condition of its own"},
    {"AStepThatTheTestDoesNotTakeRunsToo",
     [] {
       TestDefinition test = bare({});
       setStepCondition(test.conditions, "read", "read | trim");
       return test;
     },
     "the steps 'read' and 'trim' would run at once when the agent applies 'read | trim', but a step issues one "
     "command; let each be chosen by a condition of its own"},
    {"NothingEverSets",
     [] {
       TestDefinition test = workingTest();
       test.conditions.phases.clear();
       return test;
     },
     "nothing ever sets the condition 'hold'; name it in a random condition or a phase, or leave it out"},
    {"NothingEverSetsAStepsCondition",
     [] {
       TestDefinition test = bare();
       test.resetEveryCommands = 5;
       setStepCondition(test.conditions, "reset", "atomic");
       return test;
     },
     "nothing ever sets the condition 'atomic'; name it in a random condition or a phase, or leave it out"},
    {"SetTwice",
     [] {
       TestDefinition test = bare();
       addConditionName(test.conditions, "a");
       addRandomCondition(test.conditions, {{"a", 1}, {"write", 1}});
       addRandomCondition(test.conditions, {{"a", 1}, {"read", 1}});
       return test;
     },
     "two random conditions set 'a', and the second would undo the first; name it in one"},
    {"SetByAPhaseToo",
     [] {
       TestDefinition test = workingTest();
       addConditionName(test.conditions, "go");
       addRandomCondition(test.conditions, {{"hold", 1}, {"go", 1}});
       return test;
     },
     "both a random condition and a phase set 'hold'; name it in one"},
    {"PhaseOfAStepNotTaken",
     [] {
       TestDefinition test = bare();
       addConditionPhase(test.conditions, "atomic", 100, 10);
       return test;
     },
     "a phase or a random condition sets 'atomic', but the test does not take that step; give it a weight, or do not "
     "set it"},
    {"NothingLeftToChoose",
     [] {
       TestDefinition test = workingTest();
       setStepCondition(test.conditions, "write", "write & !hold");
       return test;
     },
     "while 'hold' is set nothing could be chosen, because that holds 'write' and 'trim' back; leave one that is "
     "always "
     "possible"},
    {"TheOnlyKindCannotBeHeldBack",
     [] {
       TestDefinition test = workingTest();
       setStepCondition(test.conditions, "read", "read & !hold");
       return test;
     },
     "the step 'read' could run while 'write' and 'hold' are set"},
    {"PowerCannotBeHeldBack",
     [] {
       TestDefinition test = workingTest();
       test.powerToggle = PowerToggle::withoutSync;
       setStepCondition(test.conditions, "power", "power & !hold");
       return test;
     },
     "the step 'power' could run"},
    {"HeldBackTooLate",
     [] {
       TestDefinition test = bare({});
       addConditionName(test.conditions, "calm");
       addConditionName(test.conditions, "busy");
       setStepCondition(test.conditions, "trim", "trim & !calm");
       addRandomCondition(test.conditions, {{"write", 1}, {"trim", 1}});
       addRandomCondition(test.conditions, {{"calm", 1}, {"busy", 1}});
       return test;
     },
     "the step 'trim' could run while 'trim' and 'calm' are set, against its condition 'trim & !calm'; only a step "
     "that "
     "is chosen among others, after what holds it back, can be held back"},
    {"SeveralKindsOfWrites",
     [] {
       TestDefinition test = bare();
       addConditionPhase(test.conditions, "trim", 100, 10);
       return test;
     },
     "while 'write' and 'trim' are set the test chooses 'write', 'trim', but the agent needs one of the test's kinds "
     "of "
     "writes; name exactly one of them in every case"},
    {"NoKindOfWrite",
     [] {
       TestDefinition test = bare();
       addConditionName(test.conditions, "none");
       addRandomCondition(test.conditions, {{"write", 1}, {"trim", 1}, {"none", 1}});
       return test;
     },
     "while 'none' is set no kind of write is chosen, but the agent needs one of the test's kinds of writes; name "
     "exactly one of them in every case"},
    {"BothReads",
     [] {
       TestDefinition test = bare({.write = 1, .read = 1, .verify = 1});
       addConditionPhase(test.conditions, "read", 100, 10);
       return test;
     },
     "while 'read' and 'verify' are set each of 'read' and 'verify' is chosen, but the agent needs one of the two; "
     "name "
     "exactly one of them in every case"},
    {"NeverChosen",
     [] {
       TestDefinition test = bare({.write = 1, .writeAtomic = 1, .read = 1});
       addConditionName(test.conditions, "strong");
       setStepCondition(test.conditions, "atomic", "strong");
       return test;
     },
     "the step 'atomic' is never chosen, because nothing sets what chooses it alone, 'strong'; name it in a random "
     "condition, or leave the step out"},
    {"AtomicOnlyButNeverSelected",
     [] {
       TestDefinition test = bare({.write = 0, .writeAtomic = 1, .read = 1});
       addConditionName(test.conditions, "none");
       addRandomCondition(test.conditions, {{"atomic", 1}, {"none", 1}});
       return test;
     },
     "while 'none' is set no kind of write is chosen"},
    {"AHostStepsConditionNeverHolds",
     [] {
       TestDefinition test = bare({});
       test.zoneResetEveryCommands = 10;
       setStepCondition(test.conditions, "zone-reset", "write");
       return test;
     },
     "'write', the condition of the step 'zone-reset', never holds when the step's turn comes; change it, or leave the "
     "step out"},
    {"EndToEndBytesNeverHold",
     [] {
       TestDefinition test = bare({});
       test.e2ePercent = 10;
       setStepCondition(test.conditions, "e2e", "e2e & write");
       return test;
     },
     "'write & e2e', the condition of the step 'e2e', never holds when the step's turn comes; change it, or leave the "
     "step out"},
    {"TooManyCombinations",
     [] {
       TestDefinition test = bare({});
       for (int i = 0; i < 17; ++i) {
         addConditionName(test.conditions, "c" + std::to_string(i));
         addConditionPhase(test.conditions, "c" + std::to_string(i), 10, 1);
       }
       return test;
     },
     "the phases and random conditions of the test make more than 65536 combinations, too many to judge each; use "
     "fewer"},
};

INSTANTIATE_TEST_SUITE_P(All, Refused, ::testing::ValuesIn(refusedPlans),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(ConditionCheck, SpliceDetectionReadsWhateverIsChosen) {
  TestDefinition test = bare({.write = 1, .read = 1, .verify = 1});
  addConditionName(test.conditions, "hold");
  setStepCondition(test.conditions, "read", "read & !hold");
  addConditionPhase(test.conditions, "hold", 100, 10);
  EXPECT_THAT(judged(test), IsEmpty());
  EXPECT_THAT(judged(test, true), Contains(::testing::HasSubstr("the step 'read' could run while")));
}

TEST(ConditionCheck, AResetMayWaitForAKindOfCommand) {
  TestDefinition test = bare();
  test.resetEveryCommands = 5;
  setStepCondition(test.conditions, "reset", "trim");
  EXPECT_THAT(judged(test), IsEmpty());
}

}  // namespace
}  // namespace corvane::host
