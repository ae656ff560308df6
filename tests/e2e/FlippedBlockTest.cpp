#include <gtest/gtest.h>

#include "tests/e2e/FlippedBlocks.h"

namespace corvane::host::e2e {
namespace {

class FlippedBlock : public testing::TestWithParam<Workload> {};

TEST_P(FlippedBlock, IsReportedExactlyWhenTheAccountSaysThatItWasChecked) {
  constexpr uint64_t seeds = 12;
  uint64_t judged = 0;
  for (uint64_t seed = 1; seed <= seeds; ++seed) {
    for (const FlipWhere where : flipPlaces) {
      const FlippedRun run = runFlipped(GetParam(), where, seed);
      EXPECT_TRUE(run.agrees()) << "seed " << seed << ", " << run.describe();
      const DriveTotals& totals = run.result.drives.at(0).totals;
      if (totals.failed == 0) {
        EXPECT_EQ(totals.checked.total(), totals.blocksCompared);
      } else {
        EXPECT_GE(totals.checked.total(), totals.blocksCompared);
      }
      judged += run.worth ? 1U : 0U;
    }
  }
  EXPECT_NE(judged, 0U);
}

std::string nameOf(const testing::TestParamInfo<Workload>& test) {
  std::string name = test.param.name;
  std::erase(name, '-');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Every, FlippedBlock, testing::ValuesIn(flippedWorkloads()), nameOf);

}  // namespace
}  // namespace corvane::host::e2e
