#include "tests/model/RandomSequence.h"

#include <gtest/gtest.h>

namespace refmodel {
namespace {

TEST(RandomSequence, IsJudgedAsTheModelDoes) {
  RandomCounts counts;
  std::string difference;
  {
    Comparison comparison;
    difference = playRandomSequences(comparison, 20, CORVANE_RANDOM_SEQUENCES, counts);
  }
  EXPECT_EQ(difference, "");
  EXPECT_EQ(counts.sequences, uint64_t{CORVANE_RANDOM_SEQUENCES});
  // Or they would say little.
  EXPECT_GT(counts.judgements, counts.sequences);
  EXPECT_GT(counts.findings, counts.sequences / 10);
  EXPECT_LT(counts.findings + counts.refusals, counts.sequences / 2);
}

TEST(RandomSequence, FollowsFromItsNumber) {
  EXPECT_EQ(randomSequence(7), randomSequence(7));
  EXPECT_NE(randomSequence(7), randomSequence(8));
}

}  // namespace
}  // namespace refmodel
