#include <gtest/gtest.h>

#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

TestDefinition threeDrives(const Workspace& workspace) {
  TestDefinition test = prepared({}, workspace);
  test.mix.verify = 1;
  test.driveAddresses = {"sim:8m", "file:" + (workspace / "drive.img") + ",size=8m", "sim:8m,block=4096"};
  test.commandLimit = 4000;
  return test;
}

TEST(SeveralDrives, AreTestedSideBySide) {
  const Workspace workspace;
  const RunResult result = runTest(threeDrives(workspace));
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  ASSERT_EQ(result.drives.size(), 3U);
  for (const DriveResult& drive : result.drives) {
    EXPECT_GE(drive.totals.commandsIssued(), 4000U) << drive.name;
    EXPECT_GT(drive.totals.blocksCompared, 0U) << drive.name;
  }
}

TEST(SeveralDrives, AFindingEndsOnlyItsOwnDrivesTest) {
  const Workspace workspace;
  SpoilingDrive::Record record;
  int opened = 0;
  const RunResult result = runTest(threeDrives(workspace), [&](std::unique_ptr<Drive> drive) -> std::unique_ptr<Drive> {
    if (opened++ != 0) {
      return drive;
    }
    auto access = accessSim(*drive);
    return std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), Spoil::flippedByte, 100, record);
  });
  EXPECT_EQ(result.status, RunStatus::dataFailure);
  ASSERT_EQ(result.drives.size(), 3U);
  EXPECT_EQ(result.drives[0].status, RunStatus::dataFailure);
  EXPECT_LT(result.drives[0].totals.commandsIssued(), 4000U);
  EXPECT_EQ(result.drives[1].status, RunStatus::clean) << agentLines(result);
  EXPECT_EQ(result.drives[2].status, RunStatus::clean) << agentLines(result);
  EXPECT_GE(result.drives[1].totals.commandsIssued(), 4000U);
  EXPECT_GE(result.drives[2].totals.commandsIssued(), 4000U);
}

}  // namespace
}  // namespace corvane::host::e2e
