#include "host/run/CommandSelector.h"

#include <gtest/gtest.h>

#include <bit>
#include <map>

#include "host/run/ConditionSet.h"

namespace corvane::host {
namespace {

constexpr uint64_t writeBits =
    ConditionSet::writeBit | ConditionSet::writeAtomicBit | ConditionSet::writeSameBit | ConditionSet::trimBit;
constexpr uint64_t readBits = ConditionSet::readBit | ConditionSet::verifyBit;

CommandSelector selectorOf(const CommandMix& mix, uint32_t e2ePercent, uint64_t seed, const ConditionPlan& plan = {}) {
  return {ConditionChoices(mix, plan, ConditionSet(plan)), e2ePercent, seed};
}

TEST(CommandSelector, OneKindOfEachDirectionNeedsNoBit) {
  CommandSelector selector = selectorOf({.write = 1, .read = 1}, 0, 1);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(selector.select(0), 0U);
  }
}

TEST(CommandSelector, AtomicWritesAloneAreAlwaysSelected) {
  CommandSelector selector = selectorOf({.write = 0, .writeAtomic = 3, .read = 1}, 0, 1);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(selector.select(0), ConditionSet::writeAtomicBit);
  }
}

TEST(CommandSelector, SeveralKindsGiveExactlyOneBitOfEachDirectionByWeight) {
  CommandSelector selector =
      selectorOf({.write = 5, .writeAtomic = 1, .writeSame = 2, .trim = 2, .read = 3, .verify = 1}, 0, 4);
  std::map<uint64_t, int> seen;
  constexpr int draws = 10'000;
  for (int i = 0; i < draws; ++i) {
    const uint64_t bits = selector.select(0);
    ASSERT_EQ(std::popcount(bits & writeBits), 1);
    ASSERT_EQ(std::popcount(bits & readBits), 1);
    ASSERT_EQ(bits & ~(writeBits | readBits), 0U);
    ++seen[bits & writeBits];
    ++seen[bits & readBits];
  }
  EXPECT_NEAR(seen[ConditionSet::writeBit], draws * 0.5, 300);
  EXPECT_NEAR(seen[ConditionSet::writeAtomicBit], draws * 0.1, 200);
  EXPECT_NEAR(seen[ConditionSet::writeSameBit], draws * 0.2, 250);
  EXPECT_NEAR(seen[ConditionSet::trimBit], draws * 0.2, 250);
  EXPECT_NEAR(seen[ConditionSet::readBit], draws * 0.75, 300);
}

TEST(CommandSelector, AKindOfWeightZeroIsNeverDrawn) {
  CommandSelector selector =
      selectorOf({.write = 0, .writeAtomic = 0, .writeSame = 1, .trim = 1, .read = 0, .verify = 1}, 0, 4);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(selector.select(0) & ~(ConditionSet::writeSameBit | ConditionSet::trimBit), 0U);
  }
}

TEST(CommandSelector, EndToEndBytesHaveTheirShare) {
  CommandSelector selector = selectorOf({.write = 1, .read = 1}, 25, 9);
  int seen = 0;
  for (int i = 0; i < 4000; ++i) {
    seen += (selector.select(0) & ConditionSet::e2eBit) != 0 ? 1 : 0;
  }
  EXPECT_NEAR(seen, 1000, 120);
  CommandSelector always = selectorOf({.write = 1, .read = 1}, 100, 9);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(always.select(0), ConditionSet::e2eBit);
  }
}

TEST(CommandSelector, ASeedRepeatsItsSelection) {
  const CommandMix mix{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
  CommandSelector a = selectorOf(mix, 50, 77);
  CommandSelector b = selectorOf(mix, 50, 77);
  CommandSelector other = selectorOf(mix, 50, 78);
  int different = 0;
  for (int i = 0; i < 200; ++i) {
    const uint64_t bits = a.select(0);
    EXPECT_EQ(bits, b.select(0));
    different += bits != other.select(0) ? 1 : 0;
  }
  EXPECT_GT(different, 100);
}

}  // namespace
}  // namespace corvane::host
