#include "host/run/CheckedBlocks.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "host/run/DriveCounters.h"

namespace corvane::host {
namespace {

TEST(CheckedBlocksTest, addsUpByClass) {
  CheckCounters counters;
  counters.add({.outcomes = 1}, 100);
  counters.add({.outcomes = 2}, 10);
  counters.add({.outcomes = CheckedBlocks::mostOutcomes}, 5);
  counters.add({.reason = Uncheckable::probe}, 3);
  counters.add({.reason = Uncheckable::untold}, 4);
  const CheckedBlocks once = counters.get();
  EXPECT_EQ(once.oneOutcome, 100U);
  EXPECT_EQ(once.severalOutcomes[2], 10U);
  EXPECT_EQ(once.severalOutcomes[CheckedBlocks::mostOutcomes], 5U);
  EXPECT_EQ(once.checkedAgainstSeveral(), 15U);
  EXPECT_EQ(once.notCheckable[static_cast<size_t>(Uncheckable::probe)], 3U);
  EXPECT_EQ(once.uncheckable(), 7U);
  EXPECT_EQ(once.total(), 122U);

  CheckedBlocks twice = once;
  twice += once;
  EXPECT_EQ(twice.oneOutcome, 200U);
  EXPECT_EQ(twice.severalOutcomes[2], 20U);
  EXPECT_EQ(twice.total(), 244U);
}

TEST(CheckedBlocksTest, areAmongTheTotalsOfADriveAndOfATest) {
  DriveCounters counters;
  counters.checked.add({.outcomes = 1}, 7);
  RunResult result;
  result.drives.resize(2);
  for (DriveResult& drive : result.drives) {
    drive.totals = counters.totals(512);
  }
  EXPECT_EQ(result.totals().checked.oneOutcome, 14U);
}

TEST(CheckedBlocksTest, everyReasonHasItsOwnWords) {
  std::set<std::string> texts;
  for (size_t reason = 0; reason < uncheckableReasons; ++reason) {
    texts.insert(uncheckableText(static_cast<Uncheckable>(reason)));
  }
  EXPECT_EQ(texts.size(), uncheckableReasons);
}

}  // namespace
}  // namespace corvane::host
