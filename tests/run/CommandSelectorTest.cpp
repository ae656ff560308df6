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

/// The choice as it was made before a plan could say anything: part of every recorded seed.
uint64_t plainSelection(const CommandMix& mix, uint32_t e2ePercent, Random& random) {
  uint64_t bits = 0;
  if (mix.writeKinds() >= 2) {
    uint64_t drawn = random.below(uint64_t{mix.write} + mix.writeAtomic + mix.writeSame + mix.trim);
    bits = ConditionSet::trimBit;
    for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame}) {
      if (drawn < mix.weight(kind)) {
        bits = ConditionSet::bitOf(kind);
        break;
      }
      drawn -= mix.weight(kind);
    }
  } else if (mix.writeAtomic != 0) {
    bits = ConditionSet::writeAtomicBit;
  }
  if (mix.read != 0 && mix.verify != 0) {
    const bool read = random.below(uint64_t{mix.read} + mix.verify) < mix.read;
    bits |= read ? ConditionSet::readBit : ConditionSet::verifyBit;
  }
  if (e2ePercent != 0 && random.below(100) < e2ePercent) {
    bits |= ConditionSet::e2eBit;
  }
  return bits;
}

TEST(CommandSelector, AnOlderSeedStillDrawsTheSame) {
  const CommandMix mixes[] = {{},
                              {.write = 3, .writeAtomic = 1, .writeSame = 2, .trim = 5, .read = 2, .verify = 1},
                              {.write = 0, .writeAtomic = 1, .read = 1},
                              {.write = 0, .writeAtomic = 4, .trim = 1, .read = 1},
                              {.write = 1, .read = 5, .verify = 5}};
  for (const CommandMix& mix : mixes) {
    for (const uint32_t e2ePercent : {0U, 30U, 100U}) {
      CommandSelector selector = selectorOf(mix, e2ePercent, 55);
      Random random(55);
      for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(selector.select(0), plainSelection(mix, e2ePercent, random));
      }
    }
  }
}

TEST(CommandSelector, TheSameWeightsAsRandomConditionsDrawTheSame) {
  const CommandMix mix{.write = 3, .writeAtomic = 1, .trim = 2, .read = 4, .verify = 1};
  ConditionPlan plan;
  addRandomCondition(plan, {{"trim", 2}, {"write", 3}, {"atomic", 1}});
  addRandomCondition(plan, {{"verify", 1}, {"read", 4}});
  CommandSelector usual = selectorOf(mix, 20, 6);
  CommandSelector listed = selectorOf(mixUnder({}, plan), 20, 6, plan);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(usual.select(0), listed.select(0));
  }
}

TEST(CommandSelector, APhaseBeginsAtTheEndOfEachPeriod) {
  ConditionPlan plan;
  addConditionName(plan, "hold");
  addConditionPhase(plan, "hold", 100, 10);
  CommandSelector selector = selectorOf({}, 0, 1, plan);
  const uint64_t hold = uint64_t{1} << agentSteps;
  for (const uint64_t set : {100U, 105U, 109U, 200U, 209U, 1000U}) {
    EXPECT_EQ(selector.select(set), hold) << set;
  }
  for (const uint64_t clear : {0U, 9U, 99U, 110U, 199U, 210U}) {
    EXPECT_EQ(selector.select(clear), 0U) << clear;
  }
}

TEST(CommandSelector, WhatHoldsAStepOffLeavesTheOthersToChooseFrom) {
  ConditionPlan plan;
  addConditionName(plan, "quiet");
  setStepCondition(plan, "trim", "trim & !quiet");
  addConditionPhase(plan, "quiet", 100, 50);
  CommandSelector selector = selectorOf({.write = 1, .writeAtomic = 1, .trim = 8, .read = 1}, 0, 3, plan);
  const uint64_t quiet = uint64_t{1} << agentSteps;
  std::map<uint64_t, int> inPhase;
  std::map<uint64_t, int> outside;
  for (int i = 0; i < 2000; ++i) {
    const uint64_t bits = selector.select(100);
    ASSERT_EQ(std::popcount(bits & writeBits), 1);
    EXPECT_NE(bits & quiet, 0U);
    ++inPhase[bits & writeBits];
    ++outside[selector.select(0)];
  }
  EXPECT_EQ(inPhase.count(ConditionSet::trimBit), 0U);
  EXPECT_NEAR(inPhase[ConditionSet::writeBit], 1000, 120);
  EXPECT_NEAR(inPhase[ConditionSet::writeAtomicBit], 1000, 120);
  EXPECT_NEAR(outside[ConditionSet::trimBit], 1600, 100);
}

TEST(CommandSelector, AnEarlierChoiceCanHoldALaterOneOff) {
  ConditionPlan plan;
  addConditionName(plan, "calm");
  addConditionName(plan, "busy");
  setStepCondition(plan, "trim", "trim & !calm");
  addRandomCondition(plan, {{"calm", 1}, {"busy", 1}});
  CommandSelector selector = selectorOf({.write = 1, .trim = 1, .read = 1}, 0, 3, plan);
  const uint64_t calm = uint64_t{1} << agentSteps;
  int trims = 0;
  for (int i = 0; i < 1000; ++i) {
    const uint64_t bits = selector.select(0);
    EXPECT_EQ(std::popcount(bits & (calm | calm << 1)), 1);
    const bool trim = (bits & ConditionSet::trimBit) != 0;
    EXPECT_FALSE(trim && (bits & calm) != 0);
    trims += trim ? 1 : 0;
  }
  EXPECT_NEAR(trims, 250, 60);
}

TEST(CommandSelector, ASingleChoiceIsAlwaysMadeAndDrawsNothing) {
  ConditionPlan plan;
  addRandomCondition(plan, {{"write", 7}});
  CommandSelector selector = selectorOf({.write = 7, .read = 1, .verify = 1}, 0, 8, plan);
  CommandSelector reads = selectorOf({.write = 1, .read = 1, .verify = 1}, 0, 8);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(selector.select(0), ConditionSet::writeBit | reads.select(0));
  }
}

}  // namespace
}  // namespace corvane::host
