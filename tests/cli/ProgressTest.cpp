#include "host/cli/Progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

DriveTotals totals(uint64_t blocksWritten, uint64_t blocksCompared) {
  DriveTotals now;
  now.blocksWritten = blocksWritten;
  now.bytesWritten = blocksWritten * 512;
  now.blocksRead = blocksCompared * 2;
  now.bytesRead = blocksCompared * 1024;
  now.blocksCompared = blocksCompared;
  now.bytesCompared = blocksCompared * 512;
  now.issued[0] = 1000;
  now.issued[4] = 250;
  now.outstanding = 7;
  return now;
}

ProgressSnapshot oneDrive(uint64_t elapsedMs, const DriveTotals& now) {
  ProgressSnapshot snapshot;
  snapshot.elapsedMs = elapsedMs;
  snapshot.drives.push_back({.totals = now});
  return snapshot;
}

TEST(ProgressTest, saysWhereADriveStands) {
  Progress progress({.drives = {"sim0"}, .queueDepth = 32, .timeLimitMs = 30'000});
  EXPECT_THAT(progress.next(oneDrive(12'000, totals(48'000, 12'000)), {false}, false),
              ElementsAre("sim0  0:12, 0:18 left  0 findings   7 of 32 outstanding"
                          "  compared    0.5 MB/s 1.00k blocks/s  written    2.0 MB/s 4.00k blocks/s"
                          "  read back    1.0 MB/s 2.00k blocks/s"));
}

TEST(ProgressTest, ratesAreThoseSinceTheStatusBefore) {
  Progress progress({.drives = {"a"}, .queueDepth = 8});
  progress.next(oneDrive(10'000, totals(1'000'000, 700'000)), {false}, false);
  EXPECT_THAT(progress.next(oneDrive(12'000, totals(1'200'000, 700'000)), {false}, false),
              ElementsAre("a  0:12  0 findings  7 of 8 outstanding  compared    0.0 MB/s     0 blocks/s"
                          "  written   51.2 MB/s  100k blocks/s  read back    0.0 MB/s     0 blocks/s"));
}

TEST(ProgressTest, aFastDrivesRatesStandApart) {
  Progress progress({.drives = {"a"}, .queueDepth = 8});
  progress.next(oneDrive(1000, totals(0, 0)), {false}, false);
  EXPECT_THAT(progress.next(oneDrive(2000, totals(40'000'000, 4'000'000)), {false}, false),
              ElementsAre("a  0:02  0 findings  7 of 8 outstanding  compared 2048.0 MB/s 4.00M blocks/s"
                          "  written 20480.0 MB/s 40.0M blocks/s  read back 4096.0 MB/s 8.00M blocks/s"));
}

TEST(ProgressTest, noTimeSinceTheStatusBeforeIsNoRate) {
  Progress progress({.drives = {"a"}, .queueDepth = 8});
  progress.next(oneDrive(1000, totals(100, 0)), {false}, false);
  EXPECT_THAT(progress.next(oneDrive(1000, totals(900, 0)), {true}, true),
              ElementsAre("a  0:01  1 finding   7 of 8 outstanding  compared    0.0 MB/s     0 blocks/s"
                          "  written    0.0 MB/s     0 blocks/s  read back    0.0 MB/s     0 blocks/s  stopping"));
}

TEST(ProgressTest, whatIsLeftFollowsFromTheCommandsToo) {
  Progress progress({.drives = {"a"}, .queueDepth = 8, .timeLimitMs = 600'000, .commandLimit = 5000});
  // 1250 of 5000 took ten seconds.
  EXPECT_THAT(progress.next(oneDrive(10'000, totals(0, 0)), {false}, false),
              ElementsAre(::testing::StartsWith("a  0:10, 0:30 left  ")));
  Progress short_({.drives = {"a"}, .queueDepth = 8, .timeLimitMs = 15'000, .commandLimit = 5000});
  EXPECT_THAT(short_.next(oneDrive(10'000, totals(0, 0)), {false}, false),
              ElementsAre(::testing::StartsWith("a  0:10, 0:05 left  ")));
}

TEST(ProgressTest, aTimeThatIsOverLeavesNothing) {
  Progress progress({.drives = {"a"}, .queueDepth = 8, .timeLimitMs = 5000});
  EXPECT_THAT(progress.next(oneDrive(6000, totals(0, 0)), {false}, false),
              ElementsAre(::testing::StartsWith("a  0:06, 0:00 left  ")));
}

TEST(ProgressTest, drivesStandBelowOneAnotherAndSayHowTheyEnded) {
  Progress progress({.drives = {"a", "long\nname"}, .queueDepth = 8});
  ProgressSnapshot now = oneDrive(2000, totals(0, 0));
  now.drives.push_back({.totals = totals(0, 1000), .ended = true, .status = RunStatus::dataFailure});
  EXPECT_THAT(progress.next(now, {false, true}, false),
              ElementsAre(::testing::StartsWith("a          0:02  0 findings  7 of 8 outstanding  "),
                          "long?name  ended: data failure  1,250 commands  512.00 kB compared"));
}

}  // namespace
}  // namespace corvane::host
