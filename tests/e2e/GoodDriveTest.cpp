#include <gtest/gtest.h>

#include "host/framework/TagPool.h"
#include "tests/e2e/Combinations.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

#ifdef NDEBUG
constexpr uint64_t simCommands = 20'000;
constexpr uint64_t fileCommands = 4'000;
#else
constexpr uint64_t simCommands = 6'000;
constexpr uint64_t fileCommands = 1'500;
#endif

/// A test that says nothing must at least have done what it was told to.
void expectSilence(const Combination& combination, const RunResult& result, uint64_t commands) {
  const TestDefinition& test = combination.test;
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  ASSERT_EQ(result.drives.size(), 1U);
  EXPECT_EQ(result.drives[0].messages.warnings, 0U) << agentLines(result);
  EXPECT_EQ(result.drives[0].messages.errors, 0U) << agentLines(result);

  const DriveTotals totals = result.totals();
  EXPECT_GE(totals.commandsIssued(), commands);
  EXPECT_GT(totals.blocksCompared, 0U);
  for (uint32_t kind = 0; kind < commandKinds; ++kind) {
    const auto command = static_cast<CommandKind>(kind);
    if (command != CommandKind::syncCache && test.mix.selects(command)) {
      EXPECT_GT(totals.completed[kind], 0U) << commandKindName(command);
    }
  }
  EXPECT_EQ(totals.resets > 0, test.resetEveryCommands != 0);
  EXPECT_EQ(totals.powerCycles > 0, test.powerToggle != PowerToggle::off);
  EXPECT_EQ(totals.completed[static_cast<size_t>(CommandKind::syncCache)] > 0,
            test.powerToggle == PowerToggle::withSync);
  EXPECT_EQ(totals.zoneResets > 0, test.zoneResetEveryCommands != 0);
  EXPECT_EQ(totals.invalidations > 0, test.invalidateEveryCommands != 0);
  EXPECT_EQ(totals.maxOutstanding > 1, test.queueDepth > 1);
}

class GoodDrive : public testing::TestWithParam<Combination> {
 protected:
  void run(const std::string& address, uint64_t commands) {
    TestDefinition test = prepared(GetParam().test, workspace_);
    test.driveAddresses = {address};
    test.commandLimit = commands;
    // So that read-backs begin early in a short test, yet never while their write is outstanding.
    test.agentOptions.insert(test.agentOptions.begin(), {{"Min Queue Size", "64"}, {"Max Queue Size", "512"}});
    test.seed = 20;
    const RunResult result = runTest(test);
    expectSilence(GetParam(), result, commands);
  }

  /// The least multiple of 512, 520, 4096 and 4104 bytes.
  static std::string sizeBytes() { return "136581120"; }

  Workspace workspace_;
};

TEST_P(GoodDrive, InMemoryRaisesNothing) { run("sim:" + sizeBytes() + GetParam().sim, simCommands); }

class GoodFile : public GoodDrive {};

TEST_P(GoodFile, RaisesNothing) {
  // A file has no volatile cache: these tests would not differ from others of the list.
  const std::string keys = GetParam().onFile ? GetParam().sim : "";
  run("file:" + (workspace_ / "drive.img") + ",size=" + sizeBytes() + keys, fileCommands);
}

TEST(EveryTag, IsTakenAtOnceAndNothingIsRaised) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:" + std::to_string(uint64_t{256} << 20)};
  test.queueDepth = TagPool::maxTags;
  test.commandLimit = simCommands;
  test.agentOptions = {{"Min Queue Size", "2048"}, {"Max Queue Size", "4096"}};
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_EQ(result.totals().maxOutstanding, 1024U);
  EXPECT_GE(result.totals().commandsCompleted(), simCommands);
  EXPECT_GT(result.totals().blocksCompared, 0U);
}

std::vector<Combination> combinationsOnFiles() {
  std::vector<Combination> all = combinations();
  std::erase_if(all, [](const Combination& combination) { return combination.simOnly; });
  return all;
}

INSTANTIATE_TEST_SUITE_P(Every, GoodFile, testing::ValuesIn(combinationsOnFiles()),
                         [](const auto& test) { return test.param.name; });
INSTANTIATE_TEST_SUITE_P(Every, GoodDrive, testing::ValuesIn(combinations()),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace corvane::host::e2e
