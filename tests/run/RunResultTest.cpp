#include "host/run/RunResult.h"

#include <gtest/gtest.h>

#include "host/run/DriveCounters.h"

namespace corvane::host {
namespace {

TEST(RunResult, DataFailureStatusesAreFindingsAndOptionStatusesAreConfiguration) {
  EXPECT_EQ(statusOfAgentCode(0), RunStatus::clean);
  for (const int32_t code : {-1046, -1062, -1063}) {
    EXPECT_EQ(statusOfAgentCode(code), RunStatus::dataFailure) << code;
  }
  for (const int32_t code : {-1009, -1027, -1050}) {
    EXPECT_EQ(statusOfAgentCode(code), RunStatus::configuration) << code;
  }
  for (const int32_t code : {-1002, -1003, -1022, -1057, -1200, 5}) {
    EXPECT_EQ(statusOfAgentCode(code), RunStatus::internal) << code;
  }
}

TEST(RunResult, WorsePrefersADataFailureToEveryOtherEnd) {
  for (const RunStatus other : {RunStatus::clean, RunStatus::configuration, RunStatus::drive, RunStatus::internal}) {
    EXPECT_EQ(worse(RunStatus::dataFailure, other), RunStatus::dataFailure);
    EXPECT_EQ(worse(other, RunStatus::dataFailure), RunStatus::dataFailure);
    EXPECT_EQ(worse(other, RunStatus::clean), other);
  }
  EXPECT_EQ(worse(RunStatus::drive, RunStatus::configuration), RunStatus::drive);
  EXPECT_EQ(worse(RunStatus::drive, RunStatus::internal), RunStatus::internal);
}

TEST(RunResult, EveryStatusHasItsName) {
  EXPECT_STREQ(runStatusName(RunStatus::clean), "clean");
  EXPECT_STREQ(runStatusName(RunStatus::dataFailure), "data failure");
  EXPECT_STREQ(runStatusName(RunStatus::configuration), "configuration error");
  EXPECT_STREQ(runStatusName(RunStatus::drive), "drive error");
  EXPECT_STREQ(runStatusName(RunStatus::internal), "internal error");
}

TEST(DriveCounters, TotalsTurnBlocksIntoBytesOfTheWire) {
  DriveCounters counters;
  counters.issued[0].add(3);
  counters.issued[4].add(2);
  counters.completed[4].add(1);
  counters.blocksWritten.add(10);
  counters.blocksRead.add(4);
  counters.blocksCompared.add(3);
  counters.zoneResets.add(5);
  counters.invalidations.add(6);
  counters.maxOutstanding.set(7);
  const DriveTotals totals = counters.totals(520);
  EXPECT_EQ(totals.commandsIssued(), 5U);
  EXPECT_EQ(totals.commandsCompleted(), 1U);
  EXPECT_EQ(totals.bytesWritten, 5200U);
  EXPECT_EQ(totals.bytesRead, 2080U);
  EXPECT_EQ(totals.bytesCompared, 1560U);
  EXPECT_EQ(totals.zoneResets, 5U);
  EXPECT_EQ(totals.invalidations, 6U);
  EXPECT_EQ(totals.maxOutstanding, 7U);
}

TEST(RunResult, TotalsAddTheDrivesAndKeepTheGreatestQueue) {
  RunResult result;
  result.drives.resize(2);
  result.drives[0].totals.issued[0] = 4;
  result.drives[1].totals.issued[0] = 6;
  result.drives[0].totals.bytesWritten = 100;
  result.drives[1].totals.bytesWritten = 1;
  result.drives[0].totals.zoneResets = 3;
  result.drives[1].totals.zoneResets = 4;
  result.drives[0].totals.invalidations = 5;
  result.drives[1].totals.invalidations = 6;
  result.drives[0].totals.maxOutstanding = 9;
  result.drives[1].totals.maxOutstanding = 3;
  const DriveTotals sum = result.totals();
  EXPECT_EQ(sum.issued[0], 10U);
  EXPECT_EQ(sum.bytesWritten, 101U);
  EXPECT_EQ(sum.zoneResets, 7U);
  EXPECT_EQ(sum.invalidations, 11U);
  EXPECT_EQ(sum.maxOutstanding, 9U);
}

}  // namespace
}  // namespace corvane::host
