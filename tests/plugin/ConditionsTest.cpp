#include "Conditions.h"

#include <gtest/gtest.h>

#include "support_model/ModelFramework.h"

namespace vdl::agent {
namespace {

Condition condition(uint64_t any, uint64_t all, uint64_t none, bool replace = false) {
  return Condition{any, all, none, replace};
}

TEST(Conditions, ConfiguredMeansAnyMaskIsSet) {
  EXPECT_FALSE(configured(condition(0, 0, 0, false)));
  EXPECT_FALSE(configured(condition(0, 0, 0, true)));
  EXPECT_TRUE(configured(condition(0, 0, 1)));
  EXPECT_TRUE(configured(condition(0, 1, 0)));
  EXPECT_TRUE(configured(condition(1, 0, 0)));
  EXPECT_TRUE(configured(condition(uint64_t{1} << 63, 0, 0)));
}

struct Row {
  uint64_t state, any, all, none;
  bool selected, holds;
  uint64_t applied, appliedReplacing;
};

TEST(Conditions, TableOfStatesAndMasks) {
  const Row rows[] = {
      {0x0, 0, 0, 1, false, true, 0x0, 0x0},  {0x1, 0, 0, 1, false, false, 0x0, 0x0},
      {0x6, 2, 0, 0, true, true, 0x6, 0x2},   {0x4, 2, 0, 0, false, false, 0x6, 0x2},
      {0x2, 0, 6, 0, true, false, 0x6, 0x6},  {0xE, 2, 4, 8, true, false, 0x6, 0x6},
      {0x6, 2, 4, 8, true, true, 0x6, 0x6},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "state " << row.state << ", masks " << row.any << " " << row.all << " "
                                    << row.none);
    const Condition keeping = condition(row.any, row.all, row.none, false);
    const Condition replacing = condition(row.any, row.all, row.none, true);
    EXPECT_EQ(selected(keeping, row.state), row.selected);
    EXPECT_EQ(holds(keeping, row.state), row.holds);
    EXPECT_EQ(holds(replacing, row.state), row.holds);
    EXPECT_EQ(applied(keeping, row.state), row.applied);
    EXPECT_EQ(applied(replacing, row.state), row.appliedReplacing);
  }
}

TEST(Conditions, AnUnconfiguredConditionNeverHolds) {
  for (const uint64_t state : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}}) {
    EXPECT_FALSE(holds(condition(0, 0, 0), state));
    EXPECT_FALSE(holds(condition(0, 0, 0, true), state));
  }
}

TEST(Conditions, OneBitOfTheAnyMaskIsEnough) {
  EXPECT_TRUE(holds(condition(3, 0, 0), 2));
  EXPECT_TRUE(holds(condition(3, 0, 0), 1));
  EXPECT_FALSE(holds(condition(3, 0, 0), 4));
}

TEST(Conditions, EveryBitOfTheAllMaskIsNeeded) {
  EXPECT_FALSE(holds(condition(0, 3, 0), 2));
  EXPECT_TRUE(holds(condition(0, 3, 0), 7));
}

TEST(Conditions, ApplyChangesTheThreadsState) {
  modeltest::Drive drive;
  drive.thread.conditions = 0xF0;
  apply(condition(1, 2, 0x10), drive.thread);
  EXPECT_EQ(drive.thread.conditions, 0xE3U);
  apply(condition(1, 2, 0x10, true), drive.thread);
  EXPECT_EQ(drive.thread.conditions, 0x3U);
}

class DisableConditions : public testing::Test {
 protected:
  DisableConditions() {
    config.readCondition = condition(1U << 0, 0, 0);
    config.verifyCondition = condition(1U << 1, 0, 0);
    config.writeCondition = condition(1U << 2, 0, 0);
    config.writeAtomicCondition = condition(1U << 3, 0, 0);
    config.writeSameCondition = condition(1U << 4, 0, 0);
    config.trimCondition = condition(0, 1U << 5, 0);
    config.powerToggleCondition = condition(1U << 6, 0, 0);
    config.syncCacheCondition = condition(1U << 7, 0, 0);
    config.e2eCondition = condition(1U << 8, 0, 0);
  }

  modeltest::Drive drive;
  Corvane::ConfigData config;
  ActiveConditions active;
};

TEST_F(DisableConditions, EachFlagFollowsItsOwnCondition) {
  for (unsigned bit = 0; bit < 6; ++bit) {
    drive.thread.conditions = uint64_t{1} << bit;
    active = {};
    disableCommandConditions(drive.thread, config, active);
    EXPECT_EQ(active.read, bit == 0);
    EXPECT_EQ(active.verify, bit == 1);
    EXPECT_EQ(active.write, bit == 2);
    EXPECT_EQ(active.writeAtomic, bit == 3);
    EXPECT_EQ(active.writeSame, bit == 4);
    EXPECT_EQ(active.trim, bit == 5);
    EXPECT_EQ(drive.thread.conditions, 0U);
  }
}

TEST_F(DisableConditions, StaleFlagsAreCleared) {
  active = {true, true, true, true, true, true};
  disableCommandConditions(drive.thread, config, active);
  EXPECT_FALSE(active.read || active.verify || active.write || active.writeAtomic || active.writeSame || active.trim);
}

TEST_F(DisableConditions, ClearsTheEightConditionsAndNothingElse) {
  drive.thread.conditions = ~uint64_t{0};
  disableCommandConditions(drive.thread, config, active);
  EXPECT_EQ(drive.thread.conditions, ~uint64_t{0xFF}) << "the end-to-end bit and strangers' bits stay";
}

TEST_F(DisableConditions, ConditionsThatShareABitAreAllSeen) {
  config.verifyCondition = config.readCondition;
  config.trimCondition = condition(0, 1, 0);
  drive.thread.conditions = 1;
  disableCommandConditions(drive.thread, config, active);
  EXPECT_TRUE(active.read);
  EXPECT_TRUE(active.verify);
  EXPECT_TRUE(active.trim);
}

TEST_F(DisableConditions, SelectedByAPartOfTheAllMask) {
  config.readCondition = condition(0, 6, 0);
  config.verifyCondition = {};
  config.writeCondition = {};
  drive.thread.conditions = 2;
  disableCommandConditions(drive.thread, config, active);
  EXPECT_TRUE(active.read);
}

TEST_F(DisableConditions, BitsOfANoneMaskStay) {
  config.readCondition = condition(1, 0, 0x1000);
  drive.thread.conditions = 0x1001;
  disableCommandConditions(drive.thread, config, active);
  EXPECT_EQ(drive.thread.conditions, 0x1000U);
}

}  // namespace
}  // namespace vdl::agent
