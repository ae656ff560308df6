#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "support/SchedulingBench.h"
#include "support_model/FakeClock.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;

constexpr uint32_t tag = 3;

struct PrepareNextCommand : ::testing::Test {
  PrepareNextCommand() {
    bench.start();
    bench.config().minQueueSize = 0;
    bench.config().maxQueueSize = 4;
    bench.config().randomSelection = false;
    bench.shareRange(200, 4);
    bench.takeLog();
    bench.takeTrace();
  }

  /// One choice, as a letter: what it traced.
  char choose() {
    bench.shareRange(nextLba, 1);
    nextLba += 2;
    EXPECT_EQ(bench.prepareOn(tag), 0);
    const std::vector<Traced> entries = bench.takeTrace();
    if (entries.size() != 1) {
      return '?';
    }
    return entries[0].type == TraceType::WriteIssued ? 'W' : entries[0].type == TraceType::ReadIssued ? 'R' : '?';
  }
  std::string choose(int times) {
    std::string letters;
    for (int i = 0; i < times; ++i) {
      letters += choose();
    }
    return letters;
  }

  SchedulingBench bench;
  uint64_t nextLba = 200;
};

TEST_F(PrepareNextCommand, WithoutAFreeTagOnlyTheCommandBitsAreCleared) {
  auto& config = bench.config();
  config.verifyCondition = onBit(bit::verify);
  config.writeAtomicCondition = vdl::Condition{0, bit::atomic, 0, false};
  config.writeSameCondition = onBit(bit::same);
  config.trimCondition = onBit(bit::trim);
  config.powerToggleCondition = onBit(bit::power);
  config.syncCacheCondition = vdl::Condition{0, bit::sync, 0, false};
  config.e2eCondition = onBit(bit::e2e);
  *bench.data().deviceReset = true;
  bench.thread().conditions = ~uint64_t{0};
  const uint64_t nextId = bench.data().nextCmdId;
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_EQ(bench.thread().conditions, ~uint64_t{0} & ~(bit::read | bit::write | bit::verify | bit::atomic | bit::same |
                                                        bit::trim | bit::power | bit::sync));
  EXPECT_EQ(bench.data().nextCmdId, nextId);
  EXPECT_TRUE(*bench.data().deviceReset);
  EXPECT_FALSE(bench.data().syncIssued);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
}

TEST_F(PrepareNextCommand, NoneMasksAreNotCleared) {
  bench.config().writeCondition = vdl::Condition{bit::write, 0, bit::other, false};
  bench.thread().conditions = bit::other | bit::write;
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_EQ(bench.thread().conditions, bit::other);
}

TEST_F(PrepareNextCommand, TheFreeTagIsOnlyLookedAt) {
  bench.freeTag(tag);
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_EQ(bench.host().tags().front(), tag);
  EXPECT_EQ(bench.data().writeSent.front().tagId, tag);
}

TEST_F(PrepareNextCommand, AlternationFillsToTheMaximumAndDrainsBelowTheMinimum) {
  bench.config().minQueueSize = 2;
  EXPECT_EQ(choose(16), "WWWWRRRWWWRRRWWW");
}

TEST_F(PrepareNextCommand, AlternationStartsWithWritesAndKeepsThePhaseBetweenTheLimits) {
  EXPECT_FALSE(bench.data().readPhase);
  EXPECT_EQ(choose(3), "WWW");
  bench.data().readPhase = true;
  EXPECT_EQ(choose(2), "RR");
  EXPECT_TRUE(bench.data().readPhase);
  bench.data().readPhase = false;
  EXPECT_EQ(choose(2), "WW");
  EXPECT_FALSE(bench.data().readPhase);
}

TEST_F(PrepareNextCommand, BelowTheMinimumThePhaseIsClearedAndAtTheMaximumSet) {
  bench.config().minQueueSize = 1;
  bench.config().maxQueueSize = 1;
  bench.data().readPhase = true;
  EXPECT_EQ(choose(), 'W');
  EXPECT_FALSE(bench.data().readPhase);
  EXPECT_EQ(choose(), 'R');
  EXPECT_TRUE(bench.data().readPhase);
}

TEST_F(PrepareNextCommand, MinimumAboveTheMaximumAlwaysWritesBelowTheMinimum) {
  bench.config().minQueueSize = 4;
  bench.config().maxQueueSize = 2;
  EXPECT_EQ(choose(7), "WWWWRWR");
}

TEST_F(PrepareNextCommand, FinishedAndOutstandingWritesCount) {
  bench.finishedWrite(10, 1, 1);
  bench.finishedWrite(12, 1, 1);
  bench.write(14, 1, 1);
  bench.takeTrace();
  EXPECT_EQ(choose(2), "WR");
}

TEST_F(PrepareNextCommand, OneOutstandingWriteBesideManyFinishedOnesCounts) {
  for (const uint64_t lba : {10U, 12U, 14U}) {
    bench.finishedWrite(lba, 1, 1);
  }
  bench.write(16, 1, 1);
  bench.takeTrace();
  EXPECT_EQ(choose(), 'R') << "four of four";
}

TEST_F(PrepareNextCommand, WritesThatAreReadAlreadyOrNeverDoNotCount) {
  bench.write(10, 1, 1);
  bench.readBack(2);
  bench.write(12, 1, 3);
  bench.data().writeSent.back().readBack = 0;
  bench.config().maxQueueSize = 1;
  bench.takeTrace();
  EXPECT_EQ(choose(2), "WR");
}

TEST_F(PrepareNextCommand, AlternationDrawsNothing) {
  vdl::RandomNumberGenerator<unsigned long> same;
  same.init(5, 0, std::numeric_limits<unsigned long>::max());
  bench.data().rng.init(5, 0, std::numeric_limits<unsigned long>::max());
  bench.shareRange(200, 8);
  ASSERT_EQ(bench.prepareOn(tag), 0);
  EXPECT_EQ(*bench.data().bucketIndex, static_cast<uint32_t>(same()) % 56);
}

TEST_F(PrepareNextCommand, ReadWithNothingToReadFailsWithItsStatus) {
  bench.config().maxQueueSize = 0;
  EXPECT_EQ(bench.prepareOn(tag), -1200);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAReadOrVerify(): failed to select write to read"},
                                           LogLine{2, "doARead(): Invalid WriteSent and WriteFinished"}));
}

TEST_F(PrepareNextCommand, OneBitOfTheAllMaskSelectsTheAtomicWrite) {
  bench.config().writeAtomicCondition = vdl::Condition{0, bit::atomic | bit::other, 0, false};
  EXPECT_EQ(bench.prepareOn(tag, bit::atomic), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::PreReadIssued, 200, 4, 1, tag}));
}

TEST_F(PrepareNextCommand, AtomicWriteThatIsTheOnlyKindIsStillNotTakenUnselected) {
  bench.config().writeCondition = {};
  bench.config().writeAtomicCondition = onBit(bit::atomic);
  EXPECT_EQ(bench.prepareOn(tag), -1050);
  EXPECT_EQ(bench.takeLog().at(0), (LogLine{2, "No write command selected"}));
  EXPECT_THAT(bench.data().preReadSent, IsEmpty());
  EXPECT_EQ(bench.thread().conditions, 0U);
}

TEST_F(PrepareNextCommand, ConfiguredAtomicWriteIsNotTakenUnselected) {
  bench.config().writeAtomicCondition = onBit(bit::atomic);
  EXPECT_EQ(bench.prepareOn(tag, bit::write), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteIssued, 200, 4, 1, tag}));
}

/// A draw decides: the low byte of one number, against a bound that falls with the queue's filling.
struct RandomChoice : ::testing::Test {
  static uint32_t seedWithLowByte(uint8_t wanted) {
    vdl::RandomNumberGenerator<unsigned long> rng;
    for (uint32_t seed = 1;; ++seed) {
      rng.init(seed, 0, std::numeric_limits<unsigned long>::max());
      if (static_cast<uint8_t>(rng()) == wanted) {
        return seed;
      }
    }
  }
  /// Whether it writes with `count` of `max` waiting.
  static bool writes(uint32_t count, uint32_t max, uint8_t lowByte) {
    SchedulingBench bench;
    bench.start();
    for (uint32_t i = 0; i < count; ++i) {
      bench.finishedWrite(2 * i, 1, 1);
    }
    bench.config().minQueueSize = 0;
    bench.config().maxQueueSize = max;
    bench.config().randomSelection = true;
    bench.shareRange(500, 1);
    bench.takeTrace();
    bench.data().rng.init(seedWithLowByte(lowByte), 0, std::numeric_limits<unsigned long>::max());
    EXPECT_EQ(bench.prepareOn(tag), 0);
    const bool wrote = bench.takeTrace().at(0).type == TraceType::WriteIssued;
    EXPECT_EQ(bench.data().readPhase, !wrote);
    return wrote;
  }
};

TEST_F(RandomChoice, UpToTwentyFourPercentWritesAreThreeOfFour) {
  EXPECT_FALSE(writes(1, 25, 63));
  EXPECT_TRUE(writes(1, 25, 64));
  EXPECT_FALSE(writes(6, 25, 63));
  EXPECT_TRUE(writes(6, 25, 64));
}

TEST_F(RandomChoice, FromTwentyFiveToSeventyFivePercentWritesAreHalf) {
  EXPECT_FALSE(writes(6, 24, 127));
  EXPECT_TRUE(writes(6, 24, 128));
  EXPECT_FALSE(writes(18, 24, 127));
  EXPECT_TRUE(writes(18, 24, 128));
}

TEST_F(RandomChoice, AboveSeventyFivePercentWritesAreOneOfFour) {
  EXPECT_FALSE(writes(19, 25, 191));
  EXPECT_TRUE(writes(19, 25, 192));
}

TEST_F(RandomChoice, PercentIsRoundedDown) {
  EXPECT_TRUE(writes(1, 5, 64)) << "20 percent";
  EXPECT_TRUE(writes(61, 244, 128)) << "25 percent";
  EXPECT_FALSE(writes(61, 244, 127));
  EXPECT_TRUE(writes(60, 244, 64)) << "24.6 percent";
}

TEST_F(RandomChoice, TheLimitsStandAboveTheDraw) { EXPECT_FALSE(writes(4, 4, 255)); }

/// Power is to be cut 10 seconds after it came on.
struct PowerToggle : PrepareNextCommand {
  PowerToggle() : clock(1700000000, 0) {
    bench.config().powerToggleCondition = onBit(bit::power);
    bench.config().powerToggleFreq = 10;
    bench.data().powerOnTime = 1700000000000.0;
    bench.takeTrace();
  }

  modeltest::FakeClock clock;
};

TEST_F(PowerToggle, IsNotDueBeforeItsTime) {
  clock.set(1700000009, 999000);
  EXPECT_EQ(choose(), 'W');
  EXPECT_EQ(bench.thread().conditions, bit::write);
}

TEST_F(PowerToggle, CutsPowerOnTimeAndIssuesNothing) {
  clock.set(1700000010, 123000);
  bench.write(10, 1, 1);
  bench.takeTrace();
  bench.freeTag(tag);
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_EQ(bench.thread().conditions, bit::power);
  EXPECT_EQ(bench.host().tags().outstanding(), 0U) << "the drive is reset first";
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_EQ(*bench.data().lastTagID, 255U);
  const uint32_t lowMilliseconds = 3487928203U;
  const std::vector<Traced> entries = bench.takeTrace();
  ASSERT_FALSE(entries.empty());
  EXPECT_EQ(entries.back(), (Traced{TraceType::PowerToggleOff, 0, 0, 0, lowMilliseconds}));
  EXPECT_EQ(bench.data().nextCmdId, 2U);
}

TEST_F(PowerToggle, IsDueAtExactlyItsTime) {
  clock.set(1700000010, 0);
  EXPECT_EQ(bench.prepareOn(tag), 0);
  EXPECT_EQ(bench.thread().conditions, bit::power);
}

TEST_F(PowerToggle, WaitsForAFreeTagEvenWhenOverdue) {
  clock.set(1700000100, 0);
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_EQ(bench.thread().conditions & bit::power, 0U);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_NE(bench.host().tags().outstanding(), 0U) << "not reset either";
  bench.config().syncCacheCondition = onBit(bit::sync);
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_FALSE(bench.data().syncIssued);
}

TEST_F(PowerToggle, UnconfiguredIsNeverDue) {
  bench.config().powerToggleCondition = {};
  bench.config().powerToggleFreq = 0;
  clock.set(1800000000, 0);
  EXPECT_EQ(choose(), 'W');
}

TEST_F(PowerToggle, FlushesTheCacheFirstAndWaitsForIt) {
  bench.config().syncCacheCondition = onBit(bit::sync);
  clock.set(1700000010, 0);
  EXPECT_EQ(bench.prepareOn(tag), 0);
  EXPECT_TRUE(bench.data().syncIssued);
  EXPECT_EQ(bench.thread().conditions, bit::sync);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::SyncIssued, 0, 0, 0, tag}));
  EXPECT_THAT(bench.data().writeSent, IsEmpty());

  EXPECT_EQ(choose(), 'W') << "commands keep flowing during the flush";
  EXPECT_EQ(bench.thread().conditions, bit::write);

  bench.data().syncDone = true;
  EXPECT_EQ(bench.prepareOn(tag), 0);
  EXPECT_EQ(bench.thread().conditions, bit::power);
  EXPECT_EQ(bench.lastEntry().type, TraceType::PowerToggleOff);
}

TEST_F(PowerToggle, FlushIsNotAskedForBeforeTheTime) {
  bench.config().syncCacheCondition = onBit(bit::sync);
  clock.set(1700000009, 0);
  EXPECT_EQ(choose(), 'W');
  EXPECT_FALSE(bench.data().syncIssued);
}

TEST_F(PowerToggle, CutLeavesARequestedResetForTheNextStep) {
  clock.set(1700000010, 0);
  *bench.data().deviceReset = true;
  EXPECT_EQ(bench.prepareOn(tag), 0);
  EXPECT_EQ(bench.thread().conditions, bit::power);
  EXPECT_TRUE(*bench.data().deviceReset);
}

TEST_F(PowerToggle, FlushAndRequestedResetHappenInOneStep) {
  bench.config().syncCacheCondition = onBit(bit::sync);
  clock.set(1700000010, 0);
  *bench.data().deviceReset = true;
  EXPECT_EQ(bench.prepareOn(tag), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::SyncIssued, 0, 0, 0, tag}));
  EXPECT_FALSE(*bench.data().deviceReset);
  EXPECT_EQ(*bench.data().lastTagID, 255U);
}

TEST_F(PrepareNextCommand, RequestedResetIsDoneOnceInsteadOfACommand) {
  bench.write(10, 1, 1);
  bench.takeTrace();
  *bench.data().deviceReset = true;
  bench.freeTag(tag);
  EXPECT_EQ(bench.prepare(), 0);
  EXPECT_FALSE(*bench.data().deviceReset);
  EXPECT_EQ(bench.host().tags().outstanding(), 0U);
  EXPECT_EQ(*bench.data().lastTagID, 255U);
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_EQ(bench.data().nextCmdId, 2U);
  bench.takeTrace();
  bench.holdTags();
  EXPECT_EQ(choose(), 'W');
}

}  // namespace
}  // namespace benchtest
