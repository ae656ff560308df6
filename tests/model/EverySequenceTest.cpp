#include "tests/model/EverySequence.h"

#include <gtest/gtest.h>

namespace refmodel {
namespace {

TEST(EverySequence, OfAFewOperationsIsJudgedAsTheModelDoes) {
  EverySequence all(CORVANE_EVERY_LENGTH);
  EXPECT_TRUE(all.run()) << all.difference();
  for (size_t length = 1; length <= CORVANE_EVERY_LENGTH; ++length) {
    EXPECT_EQ(all.counts().sequences.at(length), EverySequence::howMany.at(length)) << length << " operations";
  }
  EXPECT_GT(all.counts().judgements, 0U);
}

}  // namespace
}  // namespace refmodel
