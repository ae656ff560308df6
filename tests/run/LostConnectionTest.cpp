// What the step loop does when the drive throws that its connection is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/drive/DriveError.h"
#include "tests/run/StepLoopFixture.h"

namespace corvane::host {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using testing::FakeAgent;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::nothing;
using testing::Seen;
using ::testing::SizeIs;
using testing::StepLoopFixture;

struct CountingObserver final : RunObserver {
  void onReset(uint32_t) override { ++resets; }
  void onConnectionLost(uint32_t drive, std::string_view cause) override {
    told.push_back(std::to_string(drive) + " " + std::string(cause));
  }
  int resets = 0;
  std::vector<std::string> told;
};

/// A fake drive whose resets fail, when they are told to.
class LostConnectionTest : public StepLoopFixture {
 protected:
  LostConnectionTest() {
    settings.observer = &observer;
    settings.driveIndex = 3;
    settings.journal = &journal;
  }

  [[noreturn]] static void lose() { throw DriveConnectionLost("cable pulled"); }
  void loseAtNextPoll() {
    drive.onPoll = [this] {
      drive.onPoll = nullptr;
      lose();
    };
  }
  void loseAtNextSubmit() {
    drive.onSubmit = [this](const DriveCommand&) {
      drive.onSubmit = nullptr;
      lose();
    };
  }

  void expectOneLoss() {
    EXPECT_EQ(drive.resets, 1);
    EXPECT_THAT(agent.calls, ElementsAre("deviceReset"));
    EXPECT_THAT(observer.told, ElementsAre("3 cable pulled"));
    EXPECT_EQ(observer.resets, 0);
    EXPECT_EQ(counters.connectionsLost.get(), 1U);
    EXPECT_EQ(counters.resets.get(), 0U);
    EXPECT_EQ(counters.outstanding.get(), 0U);
    ASSERT_THAT(journal.incidents(), SizeIs(1));
    EXPECT_EQ(journal.incidents()[0].what, Incident::What::connectionLost);
  }

  CountingObserver observer;
  CommandJournal journal{64, 16, clock};
};

TEST_F(LostConnectionTest, WhenACommandIsSentIsADeviceResetToTheAgent) {
  issue(CommandKind::write);
  loseAtNextSubmit();
  issue(CommandKind::read);
  expectOneLoss();
  EXPECT_EQ(host->tags().outstanding(), 0U);
  EXPECT_EQ(journal.byNumber(1)->end, JournalEntry::End::lost);
  EXPECT_EQ(journal.byNumber(2)->end, JournalEntry::End::lost);
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, nothing);
  EXPECT_EQ(seen.status, nothing);
  issue(CommandKind::write);
  EXPECT_EQ(host->tags().outstanding(), 1U);
}

TEST_F(LostConnectionTest, WhenTheDriveIsAskedForAnswersIsADeviceResetToTheAgent) {
  issue(CommandKind::write);
  loseAtNextPoll();
  issue(CommandKind::write);
  expectOneLoss();
  EXPECT_EQ(host->tags().outstanding(), 0U);
}

TEST_F(LostConnectionTest, WhileEveryTagIsWaitedForIsADeviceResetToTheAgent) {
  loop(2);
  issue(CommandKind::write);
  drive.onPoll = [this, polls = 0]() mutable {
    if (++polls == 500) {
      drive.onPoll = nullptr;
      lose();
    }
  };
  issue(CommandKind::write);
  expectOneLoss();
}

TEST_F(LostConnectionTest, WhatEndedBeforeItCountsAndIsDeliveredFirst) {
  issue(CommandKind::write);
  stepWith([this](vdl::DriveThread& thread) {
    host->variables().u64("LBA") = 1000;
    prepare(thread, CommandKind::read);
  });
  drive.completeTag(0);
  loseAtNextSubmit();  // of the read that waited for the write
  idle();
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, 0U);
  EXPECT_EQ(seen.status, scsi_status::good);
  expectOneLoss();
  EXPECT_EQ(journal.byNumber(1)->end, JournalEntry::End::finished);
  EXPECT_EQ(journal.byNumber(2)->end, JournalEntry::End::lost);
}

TEST_F(LostConnectionTest, HeldBackCommandsNeverReachTheDrive) {
  issue(CommandKind::write);
  stepWith([this](vdl::DriveThread& thread) {
    host->variables().u64("LBA") = 1000;
    prepare(thread, CommandKind::read);
  });
  loseAtNextPoll();
  idle();
  expectOneLoss();
  idle();
  EXPECT_THAT(drive.submitted, SizeIs(1));
}

TEST_F(LostConnectionTest, AFlushThatItTookAwayIsReportedAsAbortedOnce) {
  loseAtNextSubmit();
  issue(CommandKind::syncCache);
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, 0U);
  EXPECT_EQ(seen.status, scsi_status::aborted);
  EXPECT_EQ(idle().lastTag, nothing);
}

TEST_F(LostConnectionTest, WhileTheLastCommandsAreWaitedForLeavesNothingToWaitFor) {
  loop(4);
  issue(CommandKind::write);
  issue(CommandKind::read);
  agent.onExecute = [](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, 0);
    EXPECT_EQ(thread.freeTags->peekNextFreeTag(), TagPool::none);
    return 0;
  };
  loseAtNextPoll();
  EXPECT_EQ(loop().drain(), 0);
  expectOneLoss();
}

TEST_F(LostConnectionTest, AfterTheTestIsGivenUpQuietly) {
  issue(CommandKind::write);
  loseAtNextPoll();
  loop().abandon();
  EXPECT_EQ(drive.resets, 1);
  EXPECT_EQ(counters.outstanding.get(), 0U);
  EXPECT_EQ(journal.byNumber(1)->end, JournalEntry::End::lost);
  EXPECT_THAT(agent.calls, IsEmpty());
}

TEST_F(LostConnectionTest, OfAReadAfterTheTestIsTriedAgain) {
  loop();
  loseAtNextPoll();
  drive.onSubmit = [this](const DriveCommand& command) {
    if (drive.resets != 0) {
      drive.completeTag(command.tag);
    }
  };
  EXPECT_THAT(loop().readNow(7, 1), SizeIs(sector));
  EXPECT_EQ(drive.resets, 1);
}

TEST_F(LostConnectionTest, AgainAndAgainWithoutACommandThatEndsIsAFailedDrive) {
  loop();
  drive.onSubmit = [](const DriveCommand&) { lose(); };
  for (uint32_t i = 1; i < StepLoop::lossesInARow; ++i) {
    issue(CommandKind::write);
  }
  try {
    issue(CommandKind::write);
    FAIL() << "went on";
  } catch (const DriveError& error) {
    EXPECT_EQ(dynamic_cast<const DriveConnectionLost*>(&error), nullptr);
    EXPECT_THAT(error.what(), AllOf(HasSubstr("lost 16 times and no command ended in between"),
                                    HasSubstr("cable pulled"), HasSubstr("check the connection")));
  }
}

TEST_F(LostConnectionTest, AfterEachCommandThatEndsBeginsToCountAgain) {
  loop();
  for (uint32_t i = 0; i < 3 * StepLoop::lossesInARow; ++i) {
    drive.onSubmit = nullptr;
    issue(CommandKind::write);
    drive.complete(0);
    idle();
    loseAtNextSubmit();
    issue(CommandKind::write);
  }
  EXPECT_EQ(counters.connectionsLost.get(), 3 * StepLoop::lossesInARow);
}

TEST_F(LostConnectionTest, EndsATestThatCannotBearItAndSaysWhy) {
  settings.lossEndsTest = "with that it cannot go on; leave it out";
  loseAtNextSubmit();
  try {
    issue(CommandKind::write);
    FAIL() << "went on";
  } catch (const DriveError& error) {
    EXPECT_STREQ(error.what(),
                 "the connection to the drive was lost (cable pulled), and with that it cannot go on; leave it out");
  }
  EXPECT_EQ(counters.connectionsLost.get(), 1U);
  EXPECT_THAT(observer.told, SizeIs(1));
  EXPECT_THAT(agent.calls, IsEmpty());
}

/// A zone of 100 blocks is reset, or a block of it is invalidated, ahead of each other command.
class LostConnectionOfRangesTest : public LostConnectionTest {
 protected:
  LostConnectionOfRangesTest() {
    drive.shape = {.blocks = 100'000, .zoneBlocks = 100};
    settings.ranges.journal = &journal;
    settings.ranges.zones = ZoneMap(drive.shape, 5000, 5100);
    settings.ranges.firstLba = 5000;
    settings.ranges.endLba = 5100;
  }

  std::vector<vdl::LBARange> pushedBeforeExecute(const char* name) {
    std::vector<vdl::LBARange> ranges;
    stepWith([&](vdl::DriveThread&) {
      vdl::LBARange range{};
      while (host->variables().ranges(name).tryPop(range)) {
        ranges.push_back(range);
      }
    });
    return ranges;
  }

  /// The operation is lost with the connection; the next one is answered.
  void loseOperation() {
    drive.onSubmit = [this](const DriveCommand& command) {
      if (command.kind != CommandKind::zoneReset && command.kind != CommandKind::invalidate) {
        return;
      }
      if (drive.resets == 0) {
        lose();
      }
      drive.completeTag(command.tag);
    };
  }
};

TEST_F(LostConnectionOfRangesTest, AZoneResetThatItTookAwayIsDoneAgainBeforeTheAgentGoesOn) {
  settings.ranges.zoneResetEveryCommands = 1;
  issue(CommandKind::write);
  loseOperation();
  uint32_t executed = 0;
  agent.onExecute = [&executed](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, 0);
    ++executed;
    return 0;
  };
  EXPECT_EQ(loop().step(), 0);
  expectOneLoss();
  EXPECT_EQ(executed, 0U);
  const std::vector<vdl::LBARange> pushed = pushedBeforeExecute("CSZoneReset");
  ASSERT_THAT(pushed, SizeIs(1));
  EXPECT_EQ(pushed[0].first, 5000U);
  EXPECT_EQ(counters.zoneResets.get(), 1U);
}

TEST_F(LostConnectionOfRangesTest, AnInvalidationThatItTookAwayIsDoneAgainOverTheSameRange) {
  settings.ranges.invalidateEveryCommands = 1;
  settings.ranges.maxBlocks = 8;
  issue(CommandKind::write);
  loseOperation();
  EXPECT_EQ(loop().step(), 0);
  expectOneLoss();
  const DriveCommand lost = drive.submitted.back();
  const std::vector<vdl::LBARange> pushed = pushedBeforeExecute("CVNInvalidateRanges");
  ASSERT_THAT(pushed, SizeIs(1));
  EXPECT_EQ(pushed[0].first, lost.lba);
  EXPECT_EQ(pushed[0].end, lost.endLba() - 1);
}

TEST_F(LostConnectionOfRangesTest, ACompletionThatWasPublishedIsSeenBeforeTheReset) {
  settings.ranges.zoneResetEveryCommands = 2;
  issue(CommandKind::write);
  drive.completeTag(0);
  issue(CommandKind::write);  // and the first one's completion is published
  loseOperation();
  std::vector<std::string> order;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    order.push_back("tag " + std::to_string(host->variables().u32("LastTagID")) + " after " +
                    std::to_string(agent.calls.size()) + " resets");
    EXPECT_EQ(thread.freeTags->peekNextFreeTag(), TagPool::none);
    FakeAgent::apply(thread, 0);
    return 0;
  };
  EXPECT_EQ(loop().step(), 0);
  EXPECT_THAT(order, ElementsAre("tag 0 after 0 resets"));
  expectOneLoss();
  EXPECT_EQ(host->tags().outstanding(), 0U);
  EXPECT_EQ(idle().lastTag, nothing);
}

TEST_F(LostConnectionOfRangesTest, AtTheEmptyingOfAHostManagedDriveIsNoAffairOfTheAgents) {
  drive.shape = {.blocks = 400, .zoneBlocks = 100};
  drive.offers.hostManaged = true;
  settings.hostManaged = true;
  settings.ranges.zones = ZoneMap(drive.shape, 0, 400);
  settings.ranges.zoneResetEveryCommands = 1'000'000;
  std::vector<uint64_t> emptied;
  drive.onSubmit = [&](const DriveCommand& command) {
    if (command.lba == 200 && drive.resets == 0) {
      lose();
    }
    emptied.push_back(command.lba);
    drive.completeTag(command.tag);
  };
  loop().prepareDrive();
  EXPECT_THAT(emptied, ElementsAre(0, 100, 200, 300));
  EXPECT_EQ(drive.resets, 1);
  EXPECT_THAT(agent.calls, IsEmpty());
}

TEST_F(LostConnectionOfRangesTest, LeavesZonesAloneWhosePointersNobodyKnows) {
  drive.shape = {.blocks = 400, .zoneBlocks = 100};
  drive.offers.hostManaged = true;
  settings.hostManaged = true;
  settings.ranges.zones = ZoneMap(drive.shape, 0, 400);
  settings.ranges.zoneResetEveryCommands = 1'000'000;
  drive.onSubmit = [this](const DriveCommand& command) {
    if (command.kind == CommandKind::zoneReset) {
      drive.completeTag(command.tag);
    }
  };
  loop().prepareDrive();
  uint64_t lostAt = 0;
  stepWith([&](vdl::DriveThread& thread) {
    SharedVariables& variables = host->variables();
    lostAt = variables.u64("LBA") = variables.u64("WriteLBA");
    variables.u32("XferLength") = variables.u32("WriteXferLength");
    ++variables.u32("WriteCmdUsed");
    prepare(thread, CommandKind::write);
  });
  loseAtNextPoll();
  idle();
  ASSERT_EQ(counters.connectionsLost.get(), 1U);
  for (int i = 0; i < 8; ++i) {
    uint64_t next = 0;
    stepWith([&](vdl::DriveThread&) {
      next = host->variables().u64("WriteLBA");
      ++host->variables().u32("WriteCmdUsed");
    });
    EXPECT_NE(next / 100, lostAt / 100);
  }
}

}  // namespace
}  // namespace corvane::host
