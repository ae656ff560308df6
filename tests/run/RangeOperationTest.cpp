#include "host/run/RangeOperations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "host/drive/DriveError.h"
#include "tests/run/StepLoopFixture.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeAgent;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::nothing;
using ::testing::Pair;
using testing::Seen;
using testing::senseOfKey;
using testing::StepLoopFixture;

using Ranges = std::vector<std::pair<uint64_t, uint64_t>>;

/// Writes go to 1000, 1010, 1020, …; zones have 1000 blocks.
class RangeOperationTest : public StepLoopFixture {
 protected:
  RangeOperationTest() {
    drive.shape = {.blocks = 100'000, .zoneBlocks = 1000};
    answerRangeOperations();
  }

  void resetZones(uint64_t everyCommands, uint64_t firstLba, uint64_t endLba) {
    settings.ranges.zoneResetEveryCommands = everyCommands;
    settings.ranges.zones = ZoneMap(drive.shape, firstLba, endLba);
  }

  void invalidate(uint64_t everyCommands, uint64_t firstLba, uint64_t endLba, uint32_t maxBlocks) {
    settings.ranges.invalidateEveryCommands = everyCommands;
    settings.ranges.firstLba = firstLba;
    settings.ranges.endLba = endLba;
    settings.ranges.maxBlocks = maxBlocks;
  }

  static bool isRangeOperation(const DriveCommand& command) {
    return command.kind == CommandKind::zoneReset || command.kind == CommandKind::invalidate;
  }

  /// Lets these commands end while the first operation on a range is carried out, and then that.
  void answerRangeOperations(std::vector<uint32_t> before = {}) {
    drive.onSubmit = [this, before](const DriveCommand& command) mutable {
      if (isRangeOperation(command)) {
        for (const uint32_t tag : std::exchange(before, {})) {
          drive.completeTag(tag);
        }
        drive.completeTag(command.tag);
      }
    };
  }

  Ranges pushed(const char* name) {
    Ranges ranges;
    vdl::LBARange range{};
    while (host->variables().ranges(name).tryPop(range)) {
      ranges.emplace_back(range.first, range.end);
    }
    return ranges;
  }
  /// What the agent finds in its queue at the beginning of a step in which it does nothing else.
  Ranges pushedBeforeExecute(const char* name) {
    Ranges ranges;
    stepWith([&](vdl::DriveThread&) { ranges = pushed(name); });
    return ranges;
  }
  Ranges resets() { return pushedBeforeExecute("CSZoneReset"); }
  Ranges invalidations() { return pushedBeforeExecute("CVNInvalidateRanges"); }

  size_t rangeOperations() const {
    return static_cast<size_t>(std::count_if(drive.submitted.begin(), drive.submitted.end(), isRangeOperation));
  }
};

TEST_F(RangeOperationTest, TheHostIsAWriterOfExactlyTheQueuesThatItUses) {
  resetZones(1, 5000, 6000);
  loop();
  EXPECT_EQ(host->variables().writers("CSZoneReset"), 1U);
  EXPECT_EQ(host->variables().writers("CVNInvalidateRanges"), 0U);
}

TEST_F(RangeOperationTest, InvalidationsMakeTheHostAWriterOfTheirQueueOnly) {
  invalidate(1, 5000, 6000, 1);
  loop();
  EXPECT_EQ(host->variables().writers("CSZoneReset"), 0U);
  EXPECT_EQ(host->variables().writers("CVNInvalidateRanges"), 1U);
}

TEST_F(RangeOperationTest, AZoneIsResetEachTimeSoManyCommandsWereIssuedAndPushedWithItsEndExcluded) {
  resetZones(2, 5000, 6000);
  loop(8);
  issue(CommandKind::write);
  EXPECT_THAT(resets(), IsEmpty());
  issue(CommandKind::write);
  EXPECT_EQ(rangeOperations(), 0U);
  EXPECT_THAT(resets(), ElementsAre(Pair(5000, 6000)));
  ASSERT_EQ(rangeOperations(), 1U);
  EXPECT_EQ(drive.submitted.back().kind, CommandKind::zoneReset);
  EXPECT_EQ(drive.submitted.back().lba, 5000U);
  EXPECT_EQ(drive.submitted.back().blocks, 1000U);
  EXPECT_EQ(drive.submitted.back().tag, 8U) << "none of the agent's tags";
  EXPECT_THAT(resets(), IsEmpty()) << "once";
  issue(CommandKind::write);
  EXPECT_THAT(resets(), IsEmpty());
  issue(CommandKind::write);
  EXPECT_THAT(resets(), ElementsAre(Pair(5000, 6000)));
  EXPECT_EQ(counters.zoneResets.get(), 2U);
  EXPECT_EQ(counters.invalidations.get(), 0U);
  EXPECT_EQ(loop().commandsIssued(), 4U) << "only the agent's commands count";
  EXPECT_EQ(counters.totals(sector).zoneResets, 2U);
}

TEST_F(RangeOperationTest, AnOperationStaysDueWhileItsConditionDoesNotHold) {
  resetZones(1, 5000, 6000);
  invalidate(1, 7000, 7008, 4);
  addConditionName(settings.conditions, "hold");
  setStepCondition(settings.conditions, "zone-reset", "!hold");
  setStepCondition(settings.conditions, "invalidate", "hold");
  addConditionPhase(settings.conditions, "hold", 2, 1);
  loop(8);
  issue(CommandKind::write);
  EXPECT_THAT(resets(), ElementsAre(Pair(5000, 6000))) << "before the phase";
  EXPECT_EQ(counters.invalidations.get(), 0U);
  issue(CommandKind::write);
  idle();
  EXPECT_EQ(counters.invalidations.get(), 1U) << "in the phase";
  EXPECT_EQ(counters.zoneResets.get(), 1U);
  issue(CommandKind::write);
  EXPECT_THAT(resets(), ElementsAre(Pair(5000, 6000))) << "behind it, as it stayed due";
  EXPECT_EQ(counters.invalidations.get(), 1U);
}

TEST_F(RangeOperationTest, AnInvalidatedRangeIsPushedWithItsLastBlock) {
  invalidate(1, 5000, 5004, 4);
  loop(8);
  for (int i = 0; i < 40; ++i) {
    drive.submitted.clear();
    issue(CommandKind::trim);
    drive.complete(0);
    idle();
    const Ranges ranges = pushed("CVNInvalidateRanges");
    ASSERT_EQ(rangeOperations(), 1U);
    const DriveCommand& command = drive.submitted.back();
    EXPECT_EQ(command.kind, CommandKind::invalidate);
    EXPECT_THAT(ranges, ElementsAre(Pair(command.lba, command.lba + command.blocks - 1)));
    EXPECT_GE(command.lba, 5000U);
    EXPECT_LE(command.endLba(), 5004U);
  }
  EXPECT_EQ(counters.invalidations.get(), 40U);
  EXPECT_EQ(counters.zoneResets.get(), 0U);
  EXPECT_EQ(counters.totals(sector).invalidations, 40U);
}

TEST_F(RangeOperationTest, ThePushComesAfterTheOperationEndedAndBeforeTheNextExecute) {
  resetZones(1, 5000, 6000);
  loop();
  issue(CommandKind::write);
  int polls = 0;
  drive.onSubmit = nullptr;
  drive.onPoll = [&] {
    EXPECT_TRUE(host->variables().ranges("CSZoneReset").empty());
    if (++polls == 300) {
      drive.completeTag(4);
    }
  };
  EXPECT_THAT(resets(), ElementsAre(Pair(5000, 6000)));
  EXPECT_GE(polls, 300);
}

TEST_F(RangeOperationTest, NothingIsIssuedWhileAnOperationRuns) {
  resetZones(1, 5000, 6000);
  loop();
  issue(CommandKind::write);
  int polls = 0;
  drive.onSubmit = nullptr;
  drive.onPoll = [&] {
    if (drive.waiting.back().kind == CommandKind::zoneReset && ++polls == 100) {
      EXPECT_EQ(drive.submitted.size(), 2U);
      drive.completeTag(4);
    }
  };
  issue(CommandKind::write);
  EXPECT_EQ(polls, 100);
  EXPECT_EQ(drive.submitted.size(), 3U);
}

TEST_F(RangeOperationTest, AnOverlappingCommandPostponesUntilTheAgentHasAbsorbedIt) {
  resetZones(1, 1000, 2000);
  loop();
  issue(CommandKind::write);  // in the only zone
  EXPECT_THAT(resets(), IsEmpty());
  drive.completeTag(0);
  EXPECT_THAT(resets(), IsEmpty()) << "its completion is taken at this step's end";
  EXPECT_THAT(resets(), IsEmpty()) << "the agent sees its completion in this step only";
  EXPECT_EQ(rangeOperations(), 0U);
  EXPECT_THAT(resets(), ElementsAre(Pair(1000, 2000)));
}

TEST_F(RangeOperationTest, ACommandOnTheBlockBehindTheZonePostponesToo) {
  resetZones(1, 0, 1000);
  loop();
  issue(CommandKind::read);  // 1000 is the first block behind
  EXPECT_THAT(resets(), IsEmpty());
  EXPECT_EQ(rangeOperations(), 0U);
  drive.completeTag(0);
  idle();
  idle();
  EXPECT_THAT(resets(), ElementsAre(Pair(0, 1000)));
}

TEST_F(RangeOperationTest, ACacheFlushPostpones) {
  resetZones(1, 5000, 6000);
  invalidate(1, 5000, 6000, 8);
  loop();
  issue(CommandKind::syncCache);
  idle();
  EXPECT_EQ(rangeOperations(), 0U);
  drive.completeTag(0);
  idle();
  idle();
  idle();
  EXPECT_EQ(rangeOperations(), 2U) << "both were due";
}

TEST_F(RangeOperationTest, AQuietZoneIsTakenInsteadOfABusyOne) {
  resetZones(1, 1000, 3000);
  loop(1);
  for (int i = 0; i < 20; ++i) {
    drive.onPoll = nullptr;
    drive.onPoll = [this] {
      if (drive.waiting.size() == 1 && drive.waiting[0].tag == 0) {
        drive.complete(0);
      }
    };
    issue(CommandKind::write);  // in the first of the two zones, and published at the step's end
    const Ranges ranges = resets();
    EXPECT_TRUE(ranges.empty() || ranges == Ranges({{2000, 3000}}));
    idle();
    pushed("CSZoneReset");
  }
  EXPECT_GE(counters.zoneResets.get(), 10U);
}

TEST_F(RangeOperationTest, WhatCompletesMeanwhileIsDeliveredInOrderOneAStep) {
  resetZones(4, 5000, 6000);
  loop(8);
  for (int i = 0; i < 4; ++i) {
    issue(CommandKind::write);
  }
  answerRangeOperations({2, 0});
  EXPECT_EQ(idle().lastTag, nothing);
  ASSERT_EQ(rangeOperations(), 1U);
  EXPECT_FALSE(host->tags().isOutstanding(2)) << "the first one is published";
  EXPECT_TRUE(host->tags().isOutstanding(0));
  drive.completeTag(3);
  EXPECT_EQ(idle().lastTag, 2U);
  EXPECT_EQ(idle().lastTag, 0U);
  EXPECT_EQ(idle().lastTag, 3U) << "newer ones come behind those that were kept";
  EXPECT_EQ(idle().lastTag, nothing);
  EXPECT_EQ(counters.outstanding.get(), 1U);
}

TEST_F(RangeOperationTest, KeptCompletionsCountAsOutstandingForTheNextOperation) {
  resetZones(2, 1000, 2000);
  invalidate(2, 5000, 6000, 1);
  loop(8);
  issue(CommandKind::write);
  issue(CommandKind::write);
  answerRangeOperations({0, 1});
  idle();  // the invalidation; both writes, in the only zone, end meanwhile
  EXPECT_EQ(counters.invalidations.get(), 1U);
  EXPECT_THAT(resets(), IsEmpty());
  EXPECT_THAT(resets(), IsEmpty());
  EXPECT_THAT(resets(), ElementsAre(Pair(1000, 2000)));
}

TEST_F(RangeOperationTest, ADeviceResetDropsWhatWasKept) {
  settings.resetEveryCommands = 4;
  resetZones(3, 5000, 6000);
  loop(8);
  for (int i = 0; i < 3; ++i) {
    issue(CommandKind::write);
  }
  answerRangeOperations({2, 0});
  issue(CommandKind::write);
  ASSERT_EQ(rangeOperations(), 1U);
  ASSERT_EQ(drive.resets, 1);
  EXPECT_EQ(counters.outstanding.get(), 0U);
  EXPECT_EQ(idle().lastTag, nothing);
  EXPECT_EQ(idle().lastTag, nothing);
  EXPECT_EQ(host->tags().outstanding(), 0U);
}

TEST_F(RangeOperationTest, APowerCutDropsWhatWasKept) {
  resetZones(3, 5000, 6000);
  loop(8);
  for (int i = 0; i < 3; ++i) {
    issue(CommandKind::write);
  }
  answerRangeOperations({2, 0, 1});
  stepWith([](vdl::DriveThread& thread) {
    FakeAgent::takeTagsBack(thread);
    FakeAgent::apply(thread, ConditionSet::powerToggleBit);
  });
  ASSERT_EQ(rangeOperations(), 1U);
  ASSERT_EQ(drive.powerCycles, 1);
  EXPECT_EQ(idle().lastTag, nothing);
  EXPECT_EQ(idle().lastTag, nothing);
}

TEST_F(RangeOperationTest, AKeptFlushThatAResetTookAwayIsReportedAsAborted) {
  settings.resetEveryCommands = 3;
  resetZones(2, 5000, 6000);
  loop(8);
  issue(CommandKind::write);
  issue(CommandKind::write);
  answerRangeOperations({1});
  issue(CommandKind::syncCache);  // the reset of the zone comes before it
  ASSERT_EQ(rangeOperations(), 1U);
  ASSERT_EQ(drive.resets, 1);
  EXPECT_EQ(idle().status, scsi_status::aborted);
}

TEST_F(RangeOperationTest, DrainingDeliversWhatWasKeptFirst) {
  resetZones(3, 5000, 6000);
  loop(8);
  for (int i = 0; i < 3; ++i) {
    issue(CommandKind::write);
  }
  answerRangeOperations({2, 1});
  idle();
  drive.onPoll = [this] {
    if (!drive.waiting.empty()) {
      drive.complete(0);
    }
  };
  std::vector<uint32_t> delivered;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    delivered.push_back(look(thread).lastTag);
    FakeAgent::apply(thread, 0);
    return 0;
  };
  EXPECT_EQ(loop().drain(), 0);
  EXPECT_THAT(delivered, ElementsAre(2, 1, 0));
}

TEST_F(RangeOperationTest, AbandoningTakesWhatWasKept) {
  resetZones(2, 5000, 6000);
  loop(8);
  issue(CommandKind::write);
  issue(CommandKind::write);
  answerRangeOperations({1, 0});
  idle();
  loop().abandon();
  EXPECT_EQ(counters.outstanding.get(), 0U);
  EXPECT_EQ(drive.polls, 5) << "two steps, two completions and the reset; nothing more was waited for";
}

TEST_F(RangeOperationTest, AFailedOperationIsADriveErrorAndPushesNothing) {
  resetZones(1, 5000, 6000);
  loop();
  issue(CommandKind::write);
  drive.onSubmit = [this](const DriveCommand& command) {
    drive.completeTag(command.tag, scsi_status::checkCondition, senseOfKey(5));
  };
  try {
    loop().step();
    FAIL() << "nobody was told";
  } catch (const DriveError& error) {
    EXPECT_STREQ(error.what(),
                 "the drive failed a zone reset of LBA 5000 to 5999 (status 0x02, sense key 0x05, code 0x00, qualifier "
                 "0x00); check the drive, or run without zone resets");
  }
  EXPECT_THAT(pushed("CSZoneReset"), IsEmpty());
  EXPECT_EQ(counters.zoneResets.get(), 0U);
}

TEST_F(RangeOperationTest, AFailedInvalidationWithoutSenseDataNamesItsStatus) {
  invalidate(1, 5000, 5001, 1);
  loop();
  issue(CommandKind::write);
  drive.onSubmit = [this](const DriveCommand& command) { drive.completeTag(command.tag, scsi_status::aborted); };
  try {
    loop().step();
    FAIL() << "nobody was told";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("an invalidation of LBA 5000 to 5000 (status 0x40);"));
  }
  EXPECT_THAT(pushed("CVNInvalidateRanges"), IsEmpty());
}

TEST_F(RangeOperationTest, ADriveThatIsBusyIsAskedAgain) {
  resetZones(1, 5000, 6000);
  loop();
  issue(CommandKind::write);
  int refusals = 3;
  drive.onSubmit = [&](const DriveCommand& command) {
    drive.completeTag(command.tag, refusals-- > 0 ? scsi_status::busy : scsi_status::good);
  };
  EXPECT_THAT(resets(), ElementsAre(Pair(5000, 6000)));
  EXPECT_EQ(counters.retried.get(), 3U);
  EXPECT_EQ(counters.zoneResets.get(), 1U);
}

TEST_F(RangeOperationTest, WhenCommandsNeverGetOutOfTheWayTheAgentHasToPause) {
  resetZones(1, 1000, 2000);
  loop(2);
  // The agent keeps the only zone busy for ever: as one command ends, the next one is issued.
  uint32_t pauses = 0;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    const bool free = thread.freeTags->peekNextFreeTag() != nothing;
    pauses += free ? 0U : 1U;
    FakeAgent::apply(thread, free ? ConditionSet::readBit : 0);
    host->variables().u64("LBA") = 1500;
    return 0;
  };
  drive.onPoll = [this] {
    if (drive.waiting.size() == 2) {
      drive.complete(0);
    } else if (drive.waiting.size() == 1 && rangeOperations() == 0 && counters.outstanding.get() == 1) {
      drive.complete(0);
    }
  };
  for (uint32_t i = 0; i < RangeOperations::patience; ++i) {
    ASSERT_EQ(loop().step(), 0);
  }
  EXPECT_EQ(pauses, 0U);
  EXPECT_EQ(rangeOperations(), 0U);
  for (int i = 0; i < 6; ++i) {
    ASSERT_EQ(loop().step(), 0);
  }
  EXPECT_GE(pauses, 1U);
  EXPECT_LE(pauses, 4U);
  EXPECT_EQ(rangeOperations(), 1U);
  EXPECT_THAT(pushed("CSZoneReset"), ElementsAre(Pair(1000, 2000)));
  const uint64_t issued = loop().commandsIssued();
  ASSERT_EQ(loop().step(), 0);
  EXPECT_EQ(loop().commandsIssued(), issued + 1) << "and goes on";
}

}  // namespace
}  // namespace corvane::host
