#include "host/run/LatencyHistogram.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

TEST(LatencyHistogramTest, IsEmptyAtFirst) {
  const LatencyHistogram histogram;
  EXPECT_EQ(histogram.count(), 0U);
  EXPECT_EQ(histogram.percentileUs(99), 0U);
  EXPECT_EQ(histogram.meanUs(), 0);
  EXPECT_TRUE(histogram.buckets().empty());
}

TEST(LatencyHistogramTest, GivesPercentilesWithinTwoPerCent) {
  LatencyHistogram histogram;
  for (uint64_t us = 1; us <= 10'000; ++us) {
    histogram.add(us);
  }
  EXPECT_EQ(histogram.count(), 10'000U);
  EXPECT_EQ(histogram.minUs(), 1U);
  EXPECT_EQ(histogram.maxUs(), 10'000U);
  EXPECT_DOUBLE_EQ(histogram.meanUs(), 5000.5);
  for (const double percent : {1.0, 50.0, 90.0, 99.0, 99.9}) {
    const double exact = 100 * percent;
    EXPECT_GE(static_cast<double>(histogram.percentileUs(percent)), exact) << percent;
    EXPECT_LE(static_cast<double>(histogram.percentileUs(percent)), exact * 1.02 + 1) << percent;
  }
  EXPECT_EQ(histogram.percentileUs(100), 10'000U);
}

TEST(LatencyHistogramTest, CountsEveryCommandInItsClasses) {
  LatencyHistogram histogram;
  for (const uint64_t us : {uint64_t{0}, uint64_t{1}, uint64_t{50}, uint64_t{50}, uint64_t{2'000'000'000}}) {
    histogram.add(us);
  }
  uint64_t total = 0;
  uint64_t before = 0;
  for (const auto& [bound, count] : histogram.buckets()) {
    EXPECT_GT(bound, before);
    before = bound;
    total += count;
  }
  EXPECT_EQ(total, 5U);
  EXPECT_EQ(before, 2'000'000'000U) << "beyond the last class the longest is the bound";
}

}  // namespace
}  // namespace corvane::host
