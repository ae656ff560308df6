#include "host/run/ConditionSet.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace corvane::host {
namespace {

std::map<std::string, uint64_t> optionsOf(const TestDefinition& test) {
  std::map<std::string, uint64_t> bits;
  const ConditionSet set(test);
  for (const auto& [name, condition] : set.options()) {
    EXPECT_EQ(condition.allMask | condition.noneMask, 0U);
    EXPECT_FALSE(condition.replace);
    bits.emplace(name, condition.anyMask);
  }
  return bits;
}

TEST(ConditionSet, ConfiguresOnlyWhatTheTestUses) {
  TestDefinition test;
  EXPECT_EQ(optionsOf(test), (std::map<std::string, uint64_t>{{"Read Condition", ConditionSet::readBit},
                                                              {"Write Condition", ConditionSet::writeBit}}));
}

TEST(ConditionSet, EveryConditionHasABitOfItsOwn) {
  TestDefinition test;
  test.mix = {.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
  test.e2ePercent = 10;
  test.powerToggle = PowerToggle::withSync;
  const auto options = optionsOf(test);
  ASSERT_EQ(options.size(), 9U);
  std::set<uint64_t> bits;
  for (const auto& [name, bit] : options) {
    EXPECT_EQ(bit & (bit - 1), 0U) << name;
    EXPECT_NE(bit & ConditionSet::allBits, 0U) << name;
    bits.insert(bit);
  }
  EXPECT_EQ(bits.size(), 9U);
  EXPECT_EQ(options.at("PowerToggle Condition"), ConditionSet::powerToggleBit);
  EXPECT_EQ(options.at("SyncCache Condition"), ConditionSet::syncCacheBit);
  EXPECT_EQ(options.at("E2E Condition"), ConditionSet::e2eBit);
}

TEST(ConditionSet, AToggleWithoutSyncConfiguresNoSync) {
  TestDefinition test;
  test.powerToggle = PowerToggle::withoutSync;
  const auto options = optionsOf(test);
  EXPECT_EQ(options.count("PowerToggle Condition"), 1U);
  EXPECT_EQ(options.count("SyncCache Condition"), 0U);
}

TEST(ConditionSet, KindAndBitBelongTogether) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                 CommandKind::trim, CommandKind::read, CommandKind::verify, CommandKind::syncCache}) {
    EXPECT_EQ(kindOf(*ConditionSet(ConditionPlan()).stepToRun(ConditionSet::bitOf(kind))), kind);
    EXPECT_NE(ConditionSet::bitOf(kind) & ConditionSet::commandBits, 0U);
  }
  EXPECT_THROW(ConditionSet(ConditionPlan()).stepToRun(ConditionSet::readBit | ConditionSet::writeBit),
               std::logic_error);
}

ConditionPlan planOf(std::vector<std::string> names, std::vector<std::pair<std::string, std::string>> steps) {
  ConditionPlan plan;
  for (const std::string& name : names) {
    addConditionName(plan, name);
  }
  for (const auto& [step, expression] : steps) {
    setStepCondition(plan, step, expression);
  }
  return plan;
}

TEST(ConditionSet, APlanGivesTheAgentItsMasks) {
  TestDefinition test;
  test.mix = {.write = 1, .writeAtomic = 1, .read = 1};
  test.conditions =
      planOf({"hold", "strong"}, {{"write", "=write & !hold"}, {"atomic", "atomic | strong"}, {"reset", "!hold"}});
  const ConditionSet set(test);
  ASSERT_EQ(set.options().size(), 3U);
  EXPECT_EQ(set.options()[1].first, "Write Condition");
  const vdl::Condition& write = set.options()[1].second;
  EXPECT_EQ(write.anyMask, ConditionSet::writeBit);
  EXPECT_EQ(write.noneMask, uint64_t{1} << 9);
  EXPECT_TRUE(write.replace);
  EXPECT_EQ(set.options()[2].second.anyMask, ConditionSet::writeAtomicBit | uint64_t{1} << 10);
  EXPECT_EQ(set.bits(), (uint64_t{1} << 11) - 1);
  EXPECT_TRUE(set.allows(ConditionedStep::reset, 0));
  EXPECT_FALSE(set.allows(ConditionedStep::reset, uint64_t{1} << 9));
  EXPECT_TRUE(set.allows(ConditionedStep::zoneReset, uint64_t{1} << 9)) << "no condition, always allowed";
}

TEST(ConditionSet, TheStepWhoseConditionHoldsRuns) {
  const ConditionSet set(planOf({"armed"}, {{"trim", "trim & armed"}, {"verify", ""}}));
  const uint64_t armed = uint64_t{1} << 9;
  EXPECT_EQ(set.stepToRun(0), std::nullopt);
  EXPECT_EQ(set.stepToRun(ConditionSet::e2eBit), std::nullopt);
  EXPECT_EQ(set.stepToRun(ConditionSet::trimBit | armed), ConditionedStep::trim);
  EXPECT_EQ(set.stepToRun(ConditionSet::powerToggleBit), ConditionedStep::powerToggle);
  EXPECT_EQ(set.stepToRun(ConditionSet::writeBit | uint64_t{1} << 40), ConditionedStep::write);
  EXPECT_THROW(set.stepToRun(armed), std::logic_error) << "half of a condition is the agent's fault";
  EXPECT_EQ(set.stepToRun(ConditionSet::verifyBit), std::nullopt) << "a step that is not there";
  EXPECT_THROW(set.stepToRun(ConditionSet::readBit | ConditionSet::powerToggleBit), std::logic_error);
}

TEST(ConditionSet, EndToEndBytesAreLookedAtWhenTheAgentLooks) {
  const ConditionSet set(planOf({}, {{"e2e", "e2e & !atomic & !verify"}}));
  const uint64_t before = ConditionSet::e2eBit | ConditionSet::writeAtomicBit;
  EXPECT_TRUE(set.carriesE2e(CommandKind::write, before, 0)) << "the selection is cleared before the agent looks";
  EXPECT_FALSE(set.carriesE2e(CommandKind::write, ConditionSet::writeAtomicBit, before));
  EXPECT_FALSE(set.carriesE2e(CommandKind::writeAtomic, before, before));
  EXPECT_TRUE(set.carriesE2e(CommandKind::verify, 0, ConditionSet::e2eBit));
  EXPECT_FALSE(set.carriesE2e(CommandKind::verify, before, ConditionSet::e2eBit | ConditionSet::verifyBit));
}

TEST(ConditionSet, EndToEndBytesAreConfiguredWhenAnythingCanSelectThem) {
  TestDefinition test;
  EXPECT_FALSE(ConditionSet(test).uses(ConditionedStep::e2e));
  test.conditions = planOf({"hold"}, {{"e2e", "!hold"}});
  EXPECT_TRUE(ConditionSet(test).uses(ConditionedStep::e2e));
  test.conditions = planOf({"hold"}, {{"e2e", "hold"}});
  EXPECT_FALSE(ConditionSet(test).uses(ConditionedStep::e2e));
  addConditionPhase(test.conditions, "hold", 10, 1);
  EXPECT_TRUE(ConditionSet(test).uses(ConditionedStep::e2e));
}

TEST(MixUnder, GivesKindsTheWeightsOfTheirChoices) {
  ConditionPlan plan = planOf({"a", "b"}, {{"write", "a | b"}});
  const CommandMix given{.write = 9, .trim = 9, .read = 2, .verify = 3};
  EXPECT_EQ(mixUnder(given, plan).write, 9U) << "nothing speaks for writes";
  addRandomCondition(plan, {{"a", 2}, {"b", 3}, {"atomic", 0}, {"writesame", 4}});
  const CommandMix mix = mixUnder(given, plan);
  EXPECT_EQ(mix.write, 5U);
  EXPECT_EQ(mix.writeAtomic, 0U);
  EXPECT_EQ(mix.writeSame, 4U);
  EXPECT_EQ(mix.trim, 0U);
  EXPECT_EQ(mix.read, 2U);
  EXPECT_EQ(mix.verify, 3U);
}

TEST(Applied, SetsAndClearsAsTheMasksSay) {
  EXPECT_EQ(applied({.anyMask = 1, .allMask = 6, .noneMask = 8}, 0x18), 0x17U);
  EXPECT_EQ(applied({.anyMask = 1, .noneMask = 8, .replace = true}, 0x78), 1U);
}

TEST(Holds, FollowsTheThreeMasks) {
  const auto make = [](uint64_t any, uint64_t all, uint64_t none) {
    return vdl::Condition{.anyMask = any, .allMask = all, .noneMask = none};
  };
  EXPECT_FALSE(holds(make(0, 0, 0), 0));
  EXPECT_TRUE(holds(make(0, 0, 1), 0));
  EXPECT_FALSE(holds(make(0, 0, 1), 1));
  EXPECT_TRUE(holds(make(2, 0, 0), 6));
  EXPECT_FALSE(holds(make(2, 0, 0), 4));
  EXPECT_FALSE(holds(make(0, 6, 0), 2));
  EXPECT_FALSE(holds(make(2, 4, 8), 0xE));
  EXPECT_TRUE(holds(make(2, 4, 8), 6));
}

}  // namespace
}  // namespace corvane::host
