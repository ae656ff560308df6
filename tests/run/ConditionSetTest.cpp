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
