// Whole tests with atomic writes on drives that take only certain segments.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/run/ConfigurationError.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

class AtomicSegmentsOf : public testing::TestWithParam<std::string> {
 protected:
  AtomicSegmentsOf() {
    test = prepared({}, workspace);
    test.lbaAgent = GetParam();
    test.driveAddresses = {"sim:4m,atomic-least=2,atomic-most=8"};
    test.mix = {.write = 1, .writeAtomic = 2, .writeSame = 1, .trim = 1, .read = 1};
    test.maxBlocks = 16;
    test.maxAtomicBound = 16;
    test.resetEveryCommands = 500;
    test.commandLimit = 8'000;
    test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "256"}, {"Write Splice Detection", "true"}};
  }

  Workspace workspace;
  TestDefinition test;
};

TEST_P(AtomicSegmentsOf, AreAllTakenByADriveThatLimitsThem) {
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().issued[static_cast<size_t>(CommandKind::writeAtomic)], 500U);
  EXPECT_EQ(result.totals().failed, 0U) << "no command was refused";
}

TEST_P(AtomicSegmentsOf, ThatTearAreFound) {
  test.mix = {.write = 0, .writeAtomic = 1, .read = 1};
  test.resetEveryCommands = 0;
  test.faults = {parseFaultSpec("atomic-tear:rate=0.05")};
  EXPECT_EQ(runTest(test).status, RunStatus::dataFailure);
}

TEST_P(AtomicSegmentsOf, ThatNoBoundFitsAreRefusedBeforeTheTest) {
  test.maxAtomicBound = 1;
  EXPECT_THROW(runTest(test), ConfigurationError);
}

INSTANTIATE_TEST_SUITE_P(All, AtomicSegmentsOf, testing::Values("mixed", "sequential", "cachestress"),
                         [](const auto& instance) { return instance.param; });

}  // namespace
}  // namespace corvane::host::e2e
