#include "host/cli/Progress.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

ProgressSnapshot snapshot(uint64_t elapsedMs, uint64_t bytesWritten, uint64_t bytesCompared) {
  ProgressSnapshot now;
  now.elapsedMs = elapsedMs;
  now.totals.bytesWritten = bytesWritten;
  now.totals.bytesCompared = bytesCompared;
  now.totals.issued[0] = 1000;
  now.totals.issued[4] = 234;
  now.totals.outstanding = 32;
  return now;
}

TEST(ProgressTest, showsTimeCommandsRatesAndFindings) {
  Progress progress(30'000);
  EXPECT_EQ(progress.next(snapshot(12'000, 24'000'000, 12'000'000), 0, false),
            "0:12 of 0:30  1,234 commands  2.0 MB/s written  1.0 MB/s compared  32 outstanding  0 findings");
}

TEST(ProgressTest, ratesAreThoseSinceTheTextBefore) {
  Progress progress(0);
  progress.next(snapshot(10'000, 100'000'000, 70'000'000), 0, false);
  EXPECT_EQ(progress.next(snapshot(12'000, 108'000'000, 72'000'000), 0, false),
            "0:12  1,234 commands  4.0 MB/s written  1.0 MB/s compared  32 outstanding  0 findings");
}

TEST(ProgressTest, noTimeSinceTheTextBeforeIsNoRate) {
  Progress progress(0);
  progress.next(snapshot(1000, 5'000'000, 0), 0, false);
  EXPECT_EQ(progress.next(snapshot(1000, 6'000'000, 0), 1, true),
            "0:01  1,234 commands  0.0 MB/s written  0.0 MB/s compared  32 outstanding  1 finding  stopping");
}

}  // namespace
}  // namespace corvane::host
