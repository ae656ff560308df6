#include "host/selftest/ExplanationCheck.h"

#include <gtest/gtest.h>

#include "host/run/PluginLoader.h"
#include "host/run/TestRun.h"
#include "host/selftest/Campaign.h"
#include "host/selftest/SimulatedTime.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

class ExplanationCheckTest : public testing::Test {
 protected:
  /// A run of the campaign in which a lost write was found.
  RunResult lostWrite(uint32_t journalDepth) {
    TestDefinition test = Campaign::testOf(workloads().front(), FaultClass::lostWrite, 1);
    test.journalDepth = journalDepth;
    test.outputDirectory = folder_.path();
    SimulatedTime clock;
    RunSurroundings world;
    world.agent = &plugin_.table();
    world.clock = &clock;
    world.onDriveThread = [] { SimulatedTime::begin(); };
    return TestRun(test, nullptr, std::move(world)).run();
  }

  tests::TempFolder folder_;
  AgentPlugin plugin_{CORVANE_AGENT_PATH};
};

TEST_F(ExplanationCheckTest, TheTruthPasses) {
  const ExplanationVerdict verdict = checkExplanation(FaultClass::lostWrite, lostWrite(1024));
  EXPECT_TRUE(verdict.explained);
  EXPECT_TRUE(verdict.suspected);
  EXPECT_TRUE(verdict.suspectedFirst);
  EXPECT_EQ(verdict.wrong, "");
}

TEST_F(ExplanationCheckTest, WithoutAJournalThereIsNothingToCheck) {
  const RunResult result = lostWrite(0);
  ASSERT_EQ(result.status, RunStatus::dataFailure);
  EXPECT_FALSE(checkExplanation(FaultClass::lostWrite, result).explained);
}

TEST_F(ExplanationCheckTest, ALedgerThatSaysOtherwiseContradicts) {
  RunResult result = lostWrite(1024);
  Injection& injection = result.drives[0].injections.at(0);
  const Injection truth = injection;
  for (AlteredBlock& block : injection.altered) {
    block.was.back() ^= 1;
  }
  EXPECT_EQ(checkExplanation(FaultClass::lostWrite, result).wrong, "the reference is another one");
  injection = truth;
  for (AlteredBlock& block : injection.altered) {
    block.is.back() ^= 1;
  }
  EXPECT_EQ(checkExplanation(FaultClass::lostWrite, result).wrong, "the drive's block is another one");
  injection = truth;
  ++injection.blocks;
  EXPECT_EQ(checkExplanation(FaultClass::lostWrite, result).wrong, "the deciding command is another one");
  injection = truth;
  injection.altered.clear();
  EXPECT_EQ(checkExplanation(FaultClass::lostWrite, result).wrong, "the block was not altered");
}

TEST_F(ExplanationCheckTest, AnotherClassIsNeitherSuspectedNorOfTheKind) {
  const ExplanationVerdict verdict = checkExplanation(FaultClass::invalidateIgnored, lostWrite(1024));
  EXPECT_FALSE(verdict.suspected);
  EXPECT_EQ(verdict.wrong, "explained as old-data");
}

TEST(FindingKindsTest, EveryClassCanShowAsSomethingButNotAsAnything) {
  for (const FaultClassInfo& info : faultClasses()) {
    size_t kinds = 0;
    for (int kind = 0; kind < static_cast<int>(FindingKind::unknown); ++kind) {
      kinds += canShowAs(info.what, static_cast<FindingKind>(kind)) ? 1U : 0U;
    }
    EXPECT_GE(kinds, 1U) << info.name;
    EXPECT_LE(kinds, 4U) << info.name;
    EXPECT_TRUE(canShowAs(info.what, FindingKind::unknown));
  }
}

}  // namespace
}  // namespace corvane::host
