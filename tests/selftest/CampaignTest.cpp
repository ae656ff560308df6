#include "host/selftest/Campaign.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/run/PluginLoader.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

class CampaignTest : public testing::Test {
 protected:
  CampaignPlan plan(std::vector<FaultClass> classes, uint64_t seeds) {
    CampaignPlan plan;
    plan.classes = std::move(classes);
    plan.faultSeeds = seeds;
    plan.cleanSeeds = 1;
    plan.cleanCommands = 300;
    plan.scratchDirectory = scratch.path();
    return plan;
  }

  CampaignResult run(CampaignPlan plan) { return Campaign(plugin.table(), std::move(plan)).run(); }

  tests::TempFolder scratch;
  AgentPlugin plugin{CORVANE_AGENT_PATH};
};

/// Everything of a result that a seed decides.
std::string textOf(const CampaignResult& result) {
  std::string text;
  const auto addCell = [&text](const CellResult& cell) {
    text += cell.workload + " " + std::to_string(cell.runs);
    for (const uint64_t count : cell.count) {
      text += " " + std::to_string(count);
    }
    for (const auto& [reason, count] : cell.reasons) {
      text += " " + reason + "=" + std::to_string(count);
    }
    text += "\n";
  };
  for (const ClassResult& one : result.classes) {
    text += std::string(faultClassInfo(one.what).name) + "\n";
    for (const CellResult& cell : one.cells) {
      addCell(cell);
    }
  }
  for (const CleanResult& one : result.clean) {
    text += one.workload + " " + std::to_string(one.commands) + " " + std::to_string(one.blocksCompared) + " " +
            std::to_string(one.alarms) + "\n";
  }
  addCell(result.canary);
  return text;
}

TEST_F(CampaignTest, LostWritesAreFoundInEveryWorkloadThatWrites) {
  const CampaignResult result = run(plan({FaultClass::lostWrite}, 3));
  ASSERT_EQ(result.classes.size(), 1U);
  const ClassResult& lost = result.classes[0];
  EXPECT_EQ(lost.cells.size(), workloads().size());
  EXPECT_GT(lost.total(Verdict::named), workloads().size());
  EXPECT_EQ(lost.total(Verdict::missed) + lost.total(Verdict::falseAlarm) + lost.total(Verdict::broken), 0U);
  EXPECT_TRUE(result.passed());
}

TEST_F(CampaignTest, TheCanaryIsMissed) {
  const CampaignResult result = run(plan({}, 5));
  EXPECT_EQ(result.canary.runs, 5U);
  EXPECT_GT(result.canary.count[static_cast<size_t>(Verdict::missed)], 0U);
  EXPECT_EQ(result.canary.count[static_cast<size_t>(Verdict::named)], 0U);
  EXPECT_FALSE(result.canary.examples.empty());
}

TEST_F(CampaignTest, FailsWhenTheCanaryIsNotMissed) {
  CampaignResult result = run(plan({}, 2));
  EXPECT_TRUE(result.passed());
  result.canary.count = {};
  EXPECT_FALSE(result.passed());
}

TEST_F(CampaignTest, FailsOnAMissAnAlarmOrABrokenRun) {
  CampaignResult result;
  result.canary.count[static_cast<size_t>(Verdict::missed)] = 1;
  ClassResult& one = result.classes.emplace_back();
  CellResult& cell = one.cells.emplace_back();
  EXPECT_TRUE(result.passed());
  for (const Verdict verdict : {Verdict::missed, Verdict::falseAlarm, Verdict::broken}) {
    cell.count[static_cast<size_t>(verdict)] = 1;
    EXPECT_FALSE(result.passed()) << verdictName(verdict);
    cell.count = {};
  }
  for (const Verdict verdict : {Verdict::named, Verdict::found, Verdict::explained, Verdict::masked, Verdict::idle}) {
    cell.count[static_cast<size_t>(verdict)] = 1;
  }
  EXPECT_TRUE(result.passed());
  EXPECT_EQ(one.visible(), 3U);
  result.clean.emplace_back().alarms = 1;
  EXPECT_FALSE(result.passed());
}

TEST_F(CampaignTest, ASeedGivesTheSameVerdictsTwiceHoweverManyRunAtOnce) {
  const std::vector<FaultClass> classes{FaultClass::tornWrite, FaultClass::lyingFlush, FaultClass::crossTalk,
                                        FaultClass::readOvertakes, FaultClass::atomicTear};
  CampaignPlan one = plan(classes, 2);
  CampaignPlan several = one;
  several.jobs = 3;
  const std::string first = textOf(run(one));
  EXPECT_EQ(first, textOf(run(one)));
  EXPECT_EQ(first, textOf(run(several)));
  one.firstSeed = 1000;
  EXPECT_NE(first, textOf(run(one)));
}

TEST_F(CampaignTest, LeavesNothingBehind) {
  run(plan({FaultClass::lostWrite}, 1));
  EXPECT_TRUE(scratch.content().empty());
}

TEST_F(CampaignTest, NamesTheWorkloadsInWhichAClassCannotStrike) {
  const CampaignResult result = run(plan({FaultClass::protectionDamage}, 1));
  ASSERT_EQ(result.classes[0].cells.size(), 1U);
  EXPECT_EQ(result.classes[0].cells[0].workload, "protection");
  EXPECT_EQ(result.classes[0].inexpressible.size(), workloads().size() - 1);
}

TEST_F(CampaignTest, ARunCanBeRepeatedByItsSeed) {
  const Workload& workload = workloads().front();
  const TestDefinition test = Campaign::testOf(workload, FaultClass::lostWrite, 7);
  EXPECT_EQ(test.seed, Campaign::testOf(workload, FaultClass::lostWrite, 7).seed);
  EXPECT_NE(test.seed, Campaign::testOf(workload, FaultClass::lostWrite, 8).seed);
  EXPECT_NE(test.seed, Campaign::testOf(workload, FaultClass::tornWrite, 7).seed);
  ASSERT_EQ(test.faults.size(), 1U);
  EXPECT_EQ(test.faults[0].what, FaultClass::lostWrite);
  EXPECT_EQ(test.faults[0].most, 1U);
  EXPECT_LT(test.faults[0].atCommand, test.commandLimit);
}

TEST_F(CampaignTest, AScratchFolderThatCannotBeUsedIsNamed) {
  CampaignPlan wrong = plan({FaultClass::lostWrite}, 1);
  wrong.scratchDirectory = scratch / "not there";
  try {
    run(wrong);
    FAIL() << "it ran";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("not there"), std::string::npos);
  }
}

}  // namespace
}  // namespace corvane::host
