#include "host/run/LbaAgent.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "host/run/ConfigurationError.h"

namespace corvane::host {
namespace {

std::vector<LbaLimits> manyLimits() {
  return {
      {.firstLba = 0, .endLba = 1, .minBlocks = 1, .maxBlocks = 1},
      {.firstLba = 7, .endLba = 15, .minBlocks = 8, .maxBlocks = 8},
      {.firstLba = 0, .endLba = 100'000, .minBlocks = 1, .maxBlocks = 64, .minAtomicBound = 2, .maxAtomicBound = 9},
      {.firstLba = 1000, .endLba = 1100, .minBlocks = 3, .maxBlocks = 17},
      {.firstLba = 5, .endLba = 25, .minBlocks = 1, .maxBlocks = 10, .lbaStep = 2},
      {.firstLba = 9, .endLba = 5000, .minBlocks = 2, .maxBlocks = 33, .lbaStep = 2},
      {.firstLba = ~uint64_t{0} - 5000, .endLba = ~uint64_t{0}, .minBlocks = 1, .maxBlocks = 100},
  };
}

class EveryLbaAgent : public ::testing::TestWithParam<std::string> {};

TEST_P(EveryLbaAgent, StaysWithinItsLimits) {
  for (const LbaLimits& limits : manyLimits()) {
    for (uint64_t seed = 0; seed < 4; ++seed) {
      const auto agent = makeLbaAgent(GetParam(), limits, seed);
      for (int i = 0; i < 8000; ++i) {
        const LbaChoice choice = agent->next();
        ASSERT_GE(choice.blocks, limits.minBlocks);
        ASSERT_LE(choice.blocks, limits.maxBlocks);
        ASSERT_GE(choice.lba, limits.firstLba);
        ASSERT_LE(choice.lba, limits.endLba - limits.span(choice.blocks));
        ASSERT_GE(choice.atomicBound, limits.minAtomicBound);
        ASSERT_LE(choice.atomicBound, limits.maxAtomicBound);
      }
    }
  }
}

TEST_P(EveryLbaAgent, RepeatsWithItsSeedAndOnlyWithIt) {
  const LbaLimits limits{.endLba = 50'000, .minBlocks = 1, .maxBlocks = 32, .maxAtomicBound = 8};
  const auto a = makeLbaAgent(GetParam(), limits, 11);
  const auto b = makeLbaAgent(GetParam(), limits, 11);
  const auto other = makeLbaAgent(GetParam(), limits, 12);
  int different = 0;
  for (int i = 0; i < 1000; ++i) {
    const LbaChoice x = a->next();
    const LbaChoice y = b->next();
    const LbaChoice z = other->next();
    ASSERT_EQ(std::tie(x.lba, x.blocks, x.atomicBound), std::tie(y.lba, y.blocks, y.atomicBound));
    different += std::tie(x.lba, x.blocks) != std::tie(z.lba, z.blocks) ? 1 : 0;
  }
  EXPECT_GT(different, 900);
}

TEST_P(EveryLbaAgent, UsesEveryLengthAndReachesBothEndsOfASmallRange) {
  const LbaLimits limits{.firstLba = 10, .endLba = 42, .minBlocks = 2, .maxBlocks = 5};
  const auto agent = makeLbaAgent(GetParam(), limits, 3);
  std::set<uint32_t> lengths;
  uint64_t lowest = 1000;
  uint64_t highest = 0;
  for (int i = 0; i < 4000; ++i) {
    const LbaChoice choice = agent->next();
    lengths.insert(choice.blocks);
    lowest = std::min(lowest, choice.lba);
    highest = std::max(highest, choice.lba + choice.blocks);
  }
  EXPECT_EQ(lengths, (std::set<uint32_t>{2, 3, 4, 5}));
  EXPECT_EQ(lowest, 10U);
  EXPECT_EQ(highest, 42U);
}

INSTANTIATE_TEST_SUITE_P(All, EveryLbaAgent, ::testing::ValuesIn(lbaAgentNames()),
                         [](const auto& instance) { return instance.param; });

TEST(SequentialAgent, FollowsWithoutGapsAndWraps) {
  const LbaLimits limits{.firstLba = 100, .endLba = 200, .minBlocks = 1, .maxBlocks = 7};
  const auto agent = makeLbaAgent("sequential", limits, 5);
  uint64_t expected = 100;
  int wraps = 0;
  for (int i = 0; i < 500; ++i) {
    const LbaChoice choice = agent->next();
    if (expected == 200) {
      expected = 100;
      ++wraps;
    }
    ASSERT_EQ(choice.lba, expected);
    expected += choice.blocks;
  }
  EXPECT_GT(wraps, 10);
}

TEST(SequentialAgent, LeavesARestThatIsShorterThanTheShortestCommand) {
  const auto agent = makeLbaAgent("sequential", {.endLba = 11, .minBlocks = 4, .maxBlocks = 4}, 5);
  EXPECT_EQ(agent->next().lba, 0U);
  EXPECT_EQ(agent->next().lba, 4U);
  EXPECT_EQ(agent->next().lba, 0U);
}

TEST(SequentialAgent, WithSkipCommandsTakesTheOtherLbasInTheNextPass) {
  const auto agent = makeLbaAgent("sequential", {.endLba = 101, .minBlocks = 5, .maxBlocks = 5, .lbaStep = 2}, 5);
  std::set<uint64_t> parities;
  for (int i = 0; i < 40; ++i) {
    parities.insert(agent->next().lba % 2);
  }
  EXPECT_EQ(parities.size(), 2U);
}

TEST(CacheStressAgent, OverlapsItsLatestRangesFarMoreOftenThanMixed) {
  const LbaLimits limits{.endLba = 1'000'000, .minBlocks = 1, .maxBlocks = 16};
  const auto overlaps = [&](const char* name) {
    const auto agent = makeLbaAgent(name, limits, 1);
    std::vector<LbaChoice> latest;
    int count = 0;
    for (int i = 0; i < 5000; ++i) {
      const LbaChoice choice = agent->next();
      const bool hit = std::any_of(latest.begin(), latest.end(), [&](const LbaChoice& other) {
        return choice.lba < other.lba + other.blocks && other.lba < choice.lba + choice.blocks;
      });
      count += hit ? 1 : 0;
      latest.push_back(choice);
      if (latest.size() > 16) {
        latest.erase(latest.begin());
      }
    }
    return count;
  };
  EXPECT_GT(overlaps("cachestress"), 2500);
  EXPECT_LT(overlaps("mixed"), 100);
}

TEST(CacheStressAgent, StaysInASmallRegionForAWhileAndThenMoves) {
  const LbaLimits limits{.endLba = 10'000'000, .minBlocks = 1, .maxBlocks = 16};
  const auto agent = makeLbaAgent("cachestress", limits, 8);
  uint64_t lowest = ~uint64_t{0};
  uint64_t highest = 0;
  for (int i = 0; i < 256; ++i) {
    const LbaChoice choice = agent->next();
    lowest = std::min(lowest, choice.lba);
    highest = std::max(highest, choice.lba + choice.blocks);
  }
  EXPECT_LE(highest - lowest, 16U * 64U);
  for (int i = 0; i < 20'000; ++i) {
    const LbaChoice choice = agent->next();
    lowest = std::min(lowest, choice.lba);
    highest = std::max(highest, choice.lba + choice.blocks);
  }
  EXPECT_GT(highest - lowest, 1'000'000U);
}

TEST(LbaAgents, EveryNameHasHelpAndAnUnknownOneIsRefusedByName) {
  for (const std::string& name : lbaAgentNames()) {
    EXPECT_FALSE(lbaAgentHelp(name).empty());
  }
  EXPECT_TRUE(lbaAgentHelp("zigzag").empty());
  try {
    makeLbaAgent("zigzag", {.endLba = 10}, 0);
    FAIL() << "accepted";
  } catch (const ConfigurationError& error) {
    EXPECT_STREQ(error.what(), "LBA agent 'zigzag' is not known; choose one of mixed, sequential, cachestress");
  }
}

TEST(LbaAgents, LimitsWithoutRoomAreRefused) {
  EXPECT_THROW(makeLbaAgent("mixed", {.endLba = 7, .minBlocks = 1, .maxBlocks = 8}, 0), ConfigurationError);
  EXPECT_THROW(makeLbaAgent("mixed", {.endLba = 15, .minBlocks = 1, .maxBlocks = 8, .lbaStep = 2}, 0),
               ConfigurationError);
  EXPECT_NO_THROW(makeLbaAgent("mixed", {.endLba = 16, .minBlocks = 1, .maxBlocks = 8, .lbaStep = 2}, 0));
  EXPECT_THROW(makeLbaAgent("mixed", {.endLba = 100, .minBlocks = 0, .maxBlocks = 8}, 0), ConfigurationError);
  EXPECT_THROW(makeLbaAgent("mixed", {.endLba = 100, .minBlocks = 9, .maxBlocks = 8}, 0), ConfigurationError);
  EXPECT_THROW(makeLbaAgent("mixed", {.endLba = 100, .minAtomicBound = 0}, 0), ConfigurationError);
}

}  // namespace
}  // namespace corvane::host
