#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/run/TestRunFixture.h"

namespace corvane::host {
namespace {

using testing::FakeDrive;
using ::testing::HasSubstr;

using TestRunRangesTest = testing::TestRunFixture;

TEST_F(TestRunRangesTest, OperationsOnRangesRunWithSeedsOfTheirOwn) {
  test.driveAddresses = {"fake:a", "fake:b"};
  test.firstLba = 1000;
  test.endLba = 9000;
  test.maxBlocks = 16;
  test.zoneResetEveryCommands = 5;
  test.invalidateEveryCommands = 7;
  const auto trace = [this](uint64_t seed) {
    test.seed = seed;
    std::vector<std::vector<uint64_t>> lbas;
    adapt = [&lbas](FakeDrive& drive) {
      drive.shape.zoneBlocks = 1000;
      drive.offers.zoneReset = true;
      drive.offers.invalidate = true;
      const size_t index = lbas.size();
      lbas.emplace_back();
      drive.onSubmit = [&lbas, index, &drive](const DriveCommand& command) {
        if (command.kind == CommandKind::zoneReset) {
          EXPECT_EQ(command.lba % 1000, 0U);
          EXPECT_EQ(command.blocks, 1000U);
          lbas[index].push_back(command.lba);
        } else if (command.kind == CommandKind::invalidate) {
          EXPECT_LE(command.blocks, 16U);
          lbas[index].push_back(command.lba);
        }
        if (command.kind == CommandKind::zoneReset || command.kind == CommandKind::invalidate) {
          EXPECT_GE(command.lba, 1000U);
          EXPECT_LE(command.endLba(), 9000U);
        }
        drive.completeTag(command.tag);
      };
    };
    const RunResult result = runIt();
    EXPECT_EQ(result.status, RunStatus::clean) << result.drives[0].error;
    EXPECT_EQ(result.totals().zoneResets, 2U * 9U);
    EXPECT_EQ(result.totals().invalidations, 2U * 7U);
    EXPECT_EQ(result.totals().commandsIssued(), 100U);
    return lbas;
  };
  const auto first = trace(3);
  EXPECT_EQ(first, trace(3));
  EXPECT_NE(first, trace(4));
  EXPECT_NE(first[0], first[1]);
}

TEST_F(TestRunRangesTest, OperationsOnRangesTakeAPlaceBesideTheQueue) {
  test.zoneResetEveryCommands = 5;
  adapt = [](FakeDrive& drive) {
    drive.shape.zoneBlocks = 1000;
    drive.offers.zoneReset = true;
    drive.most = 4;
  };
  EXPECT_THAT(complaint(), HasSubstr("takes 4 commands at once, not 5"));
  test.zoneResetEveryCommands = 0;
  EXPECT_EQ(complaint(), "accepted");
}

TEST_F(TestRunRangesTest, AHostManagedDriveIsEmptiedFirst) {
  test.zoneResetEveryCommands = 1000;
  test.endLba = 5000;
  std::vector<DriveCommand> first;
  adapt = [&first](FakeDrive& drive) {
    drive.shape.zoneBlocks = 1000;
    drive.offers.zoneReset = true;
    drive.offers.hostManaged = true;
    drive.onSubmit = [&first, &drive](const DriveCommand& command) {
      if (first.size() < 6) {
        first.push_back(command);
      }
      drive.completeTag(command.tag);
    };
  };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::clean);
  EXPECT_EQ(result.totals().zoneResets, 0U);
  ASSERT_EQ(first.size(), 6U);
  for (uint64_t zone = 0; zone < 5; ++zone) {
    EXPECT_EQ(first[zone].kind, CommandKind::zoneReset);
    EXPECT_EQ(first[zone].lba, zone * 1000);
  }
  EXPECT_EQ(first[5].kind, CommandKind::read);
}

TEST_F(TestRunRangesTest, AHostManagedDriveThatCannotBeEmptiedHasFailed) {
  test.zoneResetEveryCommands = 1000;
  adapt = [](FakeDrive& drive) {
    drive.shape.zoneBlocks = 1000;
    drive.offers.zoneReset = true;
    drive.offers.hostManaged = true;
    drive.onSubmit = [&drive](const DriveCommand& command) {
      drive.completeTag(command.tag, scsi_status::checkCondition);
    };
  };
  const RunResult result = runIt();
  EXPECT_EQ(result.status, RunStatus::drive);
  EXPECT_THAT(result.drives[0].error, HasSubstr("failed a zone reset of LBA 0 to 999 (status 0x02)"));
  EXPECT_THAT(agent.calls, ::testing::Contains("stopTest"));
}

}  // namespace
}  // namespace corvane::host
