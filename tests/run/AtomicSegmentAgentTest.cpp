#include "host/run/AtomicSegmentAgent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <set>
#include <string>
#include <tuple>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Setting {
  LbaLimits limits;
  AtomicSegments segments;
};

std::vector<Setting> possibleSettings() {
  return {
      {{.endLba = 100'000, .maxBlocks = 64, .maxAtomicBound = 64}, {.leastBlocks = 1, .mostBlocks = 16}},
      {{.endLba = 100'000, .maxBlocks = 64, .maxAtomicBound = 64}, {.leastBlocks = 8, .mostBlocks = 8}},
      {{.firstLba = 3, .endLba = 1021, .minBlocks = 5, .maxBlocks = 33, .minAtomicBound = 3, .maxAtomicBound = 31},
       {.leastBlocks = 2, .mostBlocks = 1024}},
      {{.firstLba = 7, .endLba = 17, .maxBlocks = 10, .maxAtomicBound = 8}, {.leastBlocks = 8, .mostBlocks = 64}},
      {{.firstLba = 9, .endLba = 41, .minBlocks = 9, .maxBlocks = 16, .maxAtomicBound = 16},
       {.leastBlocks = 3, .mostBlocks = 9}},
      {{.firstLba = ~uint64_t{0} - 5000, .endLba = ~uint64_t{0}, .maxBlocks = 100, .maxAtomicBound = 100},
       {.leastBlocks = 4, .mostBlocks = 32}},
  };
}

class AtomicSegmentsOf : public ::testing::TestWithParam<std::string> {};

TEST_P(AtomicSegmentsOf, AreLegalInEveryChoiceAndWithinTheLimits) {
  for (const auto& [limits, segments] : possibleSettings()) {
    for (uint64_t seed = 0; seed < 4; ++seed) {
      AtomicSegmentAgent agent(makeLbaAgent(GetParam(), limits, seed), limits, segments);
      for (int i = 0; i < 5000; ++i) {
        const LbaChoice choice = agent.next();
        ASSERT_TRUE(std::has_single_bit(choice.atomicBound));
        ASSERT_GE(choice.atomicBound, std::max(segments.leastBlocks, limits.minAtomicBound));
        ASSERT_LE(choice.atomicBound, std::min(segments.mostBlocks, limits.maxAtomicBound));
        ASSERT_EQ(choice.lba % choice.atomicBound, 0U);
        ASSERT_EQ(choice.blocks % choice.atomicBound, 0U);
        ASSERT_GE(choice.blocks, limits.minBlocks);
        ASSERT_LE(choice.blocks, limits.maxBlocks);
        ASSERT_GE(choice.lba, limits.firstLba);
        ASSERT_LE(choice.lba, limits.endLba - choice.blocks);
      }
    }
  }
}

TEST_P(AtomicSegmentsOf, UseEveryLegalBoundAndManyPlaces) {
  const LbaLimits limits{.endLba = 4096, .maxBlocks = 64, .maxAtomicBound = 64};
  const AtomicSegments segments{.leastBlocks = 2, .mostBlocks = 32};
  AtomicSegmentAgent agent(makeLbaAgent(GetParam(), limits, 1), limits, segments);
  std::set<uint32_t> bounds;
  std::set<std::pair<uint64_t, uint32_t>> ranges;
  for (int i = 0; i < 5000; ++i) {
    const LbaChoice choice = agent.next();
    bounds.insert(choice.atomicBound);
    ranges.emplace(choice.lba, choice.blocks);
  }
  EXPECT_THAT(bounds, ElementsAre(2, 4, 8, 16, 32));
  EXPECT_GT(ranges.size(), 500U);
}

INSTANTIATE_TEST_SUITE_P(All, AtomicSegmentsOf, ::testing::ValuesIn(lbaAgentNames()),
                         [](const auto& instance) { return instance.param; });

TEST(LegalAtomicBounds, ArePowersOfTwoWithinTheDrivesLimitsAndTheTestsBounds) {
  const LbaLimits limits{.endLba = 1000, .maxBlocks = 64, .minAtomicBound = 3, .maxAtomicBound = 40};
  EXPECT_THAT(legalAtomicBounds(limits, {.leastBlocks = 1, .mostBlocks = 1024}), ElementsAre(4, 8, 16, 32));
  EXPECT_THAT(legalAtomicBounds(limits, {.leastBlocks = 8, .mostBlocks = 16}), ElementsAre(8, 16));
  EXPECT_THAT(legalAtomicBounds(limits, {.leastBlocks = 9, .mostBlocks = 15}), IsEmpty());
  EXPECT_THAT(legalAtomicBounds(limits, {.leastBlocks = 64, .mostBlocks = 64}), IsEmpty());
  EXPECT_THAT(legalAtomicBounds(limits, {.leastBlocks = 1, .mostBlocks = 2}), IsEmpty());
}

TEST(LegalAtomicBounds, NeedALengthOfTheTestThatTheyDivide) {
  EXPECT_THAT(legalAtomicBounds({.endLba = 1000, .minBlocks = 9, .maxBlocks = 15, .maxAtomicBound = 16},
                                {.leastBlocks = 2, .mostBlocks = 16}),
              ElementsAre(2, 4));
  EXPECT_THAT(
      legalAtomicBounds({.endLba = 1000, .maxBlocks = 7, .maxAtomicBound = 16}, {.leastBlocks = 8, .mostBlocks = 16}),
      IsEmpty());
}

TEST(LegalAtomicBounds, NeedAPlaceInTheRange) {
  const AtomicSegments segments{.leastBlocks = 8, .mostBlocks = 8};
  EXPECT_THAT(legalAtomicBounds({.firstLba = 1, .endLba = 15, .maxBlocks = 8, .maxAtomicBound = 8}, segments),
              IsEmpty());
  EXPECT_THAT(legalAtomicBounds({.firstLba = 1, .endLba = 16, .maxBlocks = 8, .maxAtomicBound = 8}, segments),
              ElementsAre(8));
}

TEST(AtomicSegmentAgent, WithoutALegalBoundIsNotPossible) {
  const LbaLimits limits{.endLba = 1000, .maxBlocks = 7, .maxAtomicBound = 8};
  EXPECT_THROW(AtomicSegmentAgent(makeLbaAgent("mixed", limits, 1), limits, {.leastBlocks = 8, .mostBlocks = 8}),
               ConfigurationError);
}

}  // namespace
}  // namespace corvane::host
