#include "host/run/RegionCounts.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "host/base/Random.h"

namespace corvane::host {
namespace {

using Range = std::pair<uint64_t, uint64_t>;

bool overlap(const Range& one, const Range& other) { return one.first < other.second && other.first < one.second; }

TEST(RegionCountsTest, neverDeniesAnOverlap) {
  constexpr uint32_t most = 32;
  Random random(7);
  RegionCounts counts(most);
  std::vector<Range> ranges;
  uint32_t alone = 0;
  for (uint32_t i = 0; i < 20'000; ++i) {
    if (ranges.size() == most) {
      const size_t gone = random.below(most);
      counts.remove(ranges[gone].first, ranges[gone].second);
      ranges.erase(ranges.begin() + static_cast<std::ptrdiff_t>(gone));
    }
    const uint64_t first = random.below(2000);
    Range range{first, first + random.between(1, 1 + i / 1000)};
    if (random.below(500) == 0) {
      range = random.below(2) == 0 ? Range{0, UINT64_MAX} : Range{first, first};
    }
    if (counts.isTooLong(range.first, range.second)) {
      counts.restart(range.first, range.second);
      for (const Range& other : ranges) {
        counts.add(other.first, other.second);
      }
    }
    bool overlaps = false;
    for (const Range& other : ranges) {
      overlaps |= overlap(range, other);
    }
    const bool met = counts.add(range.first, range.second);
    ASSERT_TRUE(met || !overlaps) << range.first << ".." << range.second;
    alone += met ? 0 : 1;
    ranges.push_back(range);
  }
  EXPECT_GT(alone, 1000U);
}

TEST(RegionCountsTest, saysThatFarApartRangesDoNotMeet) {
  RegionCounts counts(4);
  EXPECT_FALSE(counts.add(100, 101));
  EXPECT_TRUE(counts.add(100, 101));
  counts.remove(100, 101);
  counts.remove(100, 101);
  EXPECT_FALSE(counts.add(100, 101));
  counts.clear();
  EXPECT_FALSE(counts.add(100, 101));
}

}  // namespace
}  // namespace corvane::host
