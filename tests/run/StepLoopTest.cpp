#include "host/run/StepLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/drive/DriveError.h"
#include "host/run/ConditionSet.h"
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
using testing::senseOfKey;
using testing::StepLoopFixture;

class StepLoopTest : public StepLoopFixture {};

TEST_F(StepLoopTest, TheTestsLimitsAreThereBeforeTheAgentStarts) {
  settings.minLba = 100;
  settings.maxLba = 5000;
  settings.deviceInterface = 1;
  loop();
  EXPECT_EQ(host->variables().u32("TestMaxXferLength"), 8U);
  EXPECT_EQ(host->variables().u64("MinLBA"), 100U);
  EXPECT_EQ(host->variables().u64("MaxLBA"), 5000U);
  EXPECT_EQ(host->variables().u32("DeviceInterface"), 1U);
  EXPECT_EQ(host->variables().u32("LastTagID"), nothing);
  EXPECT_EQ(host->variables().u32("LastStatusByte"), nothing);
  EXPECT_EQ(host->variables().writers("CSZoneReset"), 0U);
}

TEST_F(StepLoopTest, EveryStepPublishesANewRange) {
  const Seen first = idle();
  const Seen second = idle();
  EXPECT_EQ(first.lba, 1000U);
  EXPECT_EQ(first.blocks, 1U);
  EXPECT_EQ(first.bound, 2U);
  EXPECT_EQ(second.lba, 1010U);
  EXPECT_EQ(second.blocks, 2U);
  EXPECT_EQ(second.bound, 3U);
  EXPECT_EQ(lbaAgent.calls, 2U);
}

TEST_F(StepLoopTest, WithSkipGenTheSameRangeIsPublishedAgainAndTheFlagCleared) {
  const Seen first = stepWith([this](vdl::DriveThread&) {
    host->variables().u64("LBA") = 77;
    host->variables().u32("XferLength") = 5;
    host->variables().u32("AtomicBound") = 9;
    host->variables().u32("SkipGen") = 1;
  });
  const Seen second = idle();
  EXPECT_EQ(second.lba, first.lba);
  EXPECT_EQ(second.blocks, first.blocks);
  EXPECT_EQ(second.bound, first.bound);
  EXPECT_EQ(second.skipGen, 0U);
  EXPECT_EQ(lbaAgent.calls, 1U);
  EXPECT_EQ(idle().lba, 1010U);
}

TEST_F(StepLoopTest, SelectionsAreSetBeforeExecuteAndCleanedUpAfterTheStep) {
  settings.mix = {.write = 0, .writeAtomic = 1, .read = 1};
  EXPECT_EQ(idle().conditions, ConditionSet::writeAtomicBit);
  loop();
  host->thread().conditions |= uint64_t{1} << 40;
  issue(CommandKind::read);
  const Seen seen = idle();
  EXPECT_EQ(seen.conditions, ConditionSet::writeAtomicBit | uint64_t{1} << 40)
      << "the applied read must be gone and foreign bits kept";
}

TEST_F(StepLoopTest, NoAppliedConditionIssuesNothing) {
  idle();
  EXPECT_THAT(drive.submitted, IsEmpty());
  EXPECT_EQ(loop().commandsIssued(), 0U);
}

TEST_F(StepLoopTest, OneAppliedConditionIssuesOneCommandOnThePeekedTag) {
  const Seen seen = issue(CommandKind::write);
  ASSERT_EQ(drive.submitted.size(), 1U);
  const DriveCommand& command = drive.submitted[0];
  EXPECT_EQ(command.kind, CommandKind::write);
  EXPECT_EQ(command.tag, seen.nextTag);
  EXPECT_EQ(command.lba, 1000U);
  EXPECT_EQ(command.blocks, 1U);
  EXPECT_EQ(command.lbaStep, 1U);
  EXPECT_EQ(command.dataBytes, sector);
  EXPECT_EQ(command.data, writeMemory[command.tag].data()) << "the data must not be copied";
  EXPECT_FALSE(command.forceUnitAccess);
  EXPECT_EQ(loop().commandsIssued(), 1U);
  EXPECT_TRUE(host->tags().isOutstanding(command.tag));
}

TEST_F(StepLoopTest, TheAgentsOwnRangeIsWhatIsIssued) {
  stepWith([this](vdl::DriveThread& thread) {
    host->variables().u64("LBA") = 4321;
    host->variables().u32("XferLength") = 7;
    prepare(thread, CommandKind::read);
  });
  ASSERT_EQ(drive.submitted.size(), 1U);
  EXPECT_EQ(drive.submitted[0].lba, 4321U);
  EXPECT_EQ(drive.submitted[0].blocks, 7U);
  EXPECT_EQ(drive.submitted[0].dataBytes, 7U * sector);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(drive.submitted[0].data) % 4096, 0U);
}

TEST_F(StepLoopTest, EveryKindCarriesWhatItNeeds) {
  settings.forceUnitAccess = true;
  settings.skipCommands = true;
  loop(8);
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                 CommandKind::trim, CommandKind::read, CommandKind::verify, CommandKind::syncCache}) {
    issue(kind);
    while (!drive.waiting.empty()) {
      drive.complete(0);
      idle();
    }
  }
  ASSERT_EQ(drive.submitted.size(), 7U);
  for (const DriveCommand& command : drive.submitted) {
    SCOPED_TRACE(commandKindName(command.kind));
    const bool sync = command.kind == CommandKind::syncCache;
    const bool data = !sync && command.kind != CommandKind::trim;
    EXPECT_EQ(command.data != nullptr, data);
    EXPECT_EQ(command.dataBytes, !data                                    ? 0
                                 : command.kind == CommandKind::writeSame ? sector
                                                                          : uint64_t{command.blocks} * sector);
    EXPECT_EQ(command.blocks == 0, sync);
    EXPECT_EQ(command.lbaStep, sync ? 1U : 2U);
    EXPECT_EQ(command.atomicBound != 0, command.kind == CommandKind::writeAtomic);
    EXPECT_EQ(command.forceUnitAccess, changesMedium(command.kind));
  }
}

TEST_F(StepLoopTest, EndToEndBytesStandBehindEverySectorThatIsSent) {
  settings.e2ePercent = 100;
  protectionBytes = 8;
  loop();
  issue(CommandKind::write);
  issue(CommandKind::verify);
  issue(CommandKind::read);
  ASSERT_EQ(drive.submitted.size(), 3U);
  EXPECT_EQ(drive.submitted[0].trailerBytes, 8U);
  EXPECT_EQ(drive.submitted[0].dataBytes, 528U);
  EXPECT_EQ(drive.submitted[1].trailerBytes, 8U);
  EXPECT_EQ(drive.submitted[1].dataBytes, 2U * 528U);
  EXPECT_EQ(drive.submitted[2].trailerBytes, 0U) << "reads must not bring end-to-end bytes";
  EXPECT_EQ(drive.submitted[2].dataBytes, 3U * 520U);
}

TEST_F(StepLoopTest, NothingFinishedIsAllOnes) {
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, nothing);
  EXPECT_EQ(seen.status, nothing);
  EXPECT_EQ(seen.readValid, 0U);
  EXPECT_EQ(seen.senseBytes, 0U);
}

TEST_F(StepLoopTest, AReadCompletionIsPublishedOnceWithItsExactSize) {
  issue(CommandKind::write);
  issue(CommandKind::read);  // 2 blocks at 1010
  const DriveCommand read = drive.submitted[1];
  std::memset(read.data, 0x5A, read.dataBytes);
  drive.completeTag(read.tag);
  idle();
  EXPECT_FALSE(host->tags().isOutstanding(read.tag)) << "the tag is free once its completion is published";
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, read.tag);
  EXPECT_EQ(seen.status, scsi_status::good);
  EXPECT_EQ(seen.readValid, 1U);
  EXPECT_EQ(seen.readBytes, 2U * sector);
  EXPECT_EQ(seen.readData, read.data);
  EXPECT_EQ(seen.senseBytes, 0U);
  EXPECT_EQ(tagBytes("RecvCDB[TagID]", read.tag), tagBytes("CDB[TagID]", read.tag));
  EXPECT_EQ(static_cast<uint8_t>(tagBytes("CDB[TagID]", read.tag).at(0)), 0x88);
  const Seen after = idle();
  EXPECT_EQ(after.lastTag, nothing);
  EXPECT_EQ(after.status, nothing);
  EXPECT_EQ(after.readValid, 0U);
  EXPECT_EQ(tagBytes("ReadDataPtr[TagID]", read.tag), "") << "read data are gone after the execute that saw them";
}

TEST_F(StepLoopTest, AShortReadShowsTheBytesThatCame) {
  issue(CommandKind::write);
  issue(CommandKind::read);
  drive.completeTag(1);
  drive.answers.back().bytesTransferred = 700;
  idle();
  const Seen seen = idle();
  EXPECT_EQ(seen.readBytes, 700U);
  EXPECT_EQ(seen.readValid, 1U);
}

TEST_F(StepLoopTest, SenseDataBelongsToItsCommandOnly) {
  issue(CommandKind::write);
  issue(CommandKind::write);
  drive.completeTag(0, scsi_status::checkCondition, senseOfKey(3));
  drive.completeTag(1, scsi_status::checkCondition);
  idle();
  const Seen failed = idle();
  EXPECT_EQ(failed.status, scsi_status::checkCondition);
  EXPECT_EQ(failed.senseBytes, 18U);
  EXPECT_EQ(failed.readValid, 0U);
  EXPECT_EQ(host->variables().buffer("LastErrSenseData").data[0], 0x70);
  const Seen withoutSense = idle();
  EXPECT_EQ(withoutSense.lastTag, 1U);
  EXPECT_EQ(withoutSense.senseBytes, 0U);
  EXPECT_EQ(counters.failed.get(), 2U);
}

TEST_F(StepLoopTest, OneCompletionAStep) {
  for (int i = 0; i < 3; ++i) {
    issue(CommandKind::write);
  }
  drive.completeTag(2);
  drive.completeTag(0);
  drive.completeTag(1);
  idle();
  EXPECT_EQ(idle().lastTag, 2U);
  EXPECT_EQ(idle().lastTag, 0U);
  EXPECT_EQ(idle().lastTag, 1U);
  EXPECT_EQ(idle().lastTag, nothing);
}

TEST_F(StepLoopTest, FreeTagsAreUsedFirstInFirstOut) {
  issue(CommandKind::write);
  drive.completeTag(0);
  idle();
  EXPECT_EQ(issue(CommandKind::write).nextTag, 1U);
  EXPECT_EQ(issue(CommandKind::write).nextTag, 2U);
  EXPECT_EQ(issue(CommandKind::write).nextTag, 3U);
  drive.completeTag(2);
  EXPECT_EQ(issue(CommandKind::write).nextTag, 0U) << "tag 0 went to the end of the queue";
}

TEST_F(StepLoopTest, WithAllTagsOutstandingTheStepWaitsForACompletion) {
  loop(2);
  issue(CommandKind::write);
  int polls = 0;
  drive.onPoll = [&] {
    if (++polls == 300) {
      drive.complete(0);
    }
  };
  issue(CommandKind::write);
  EXPECT_GE(polls, 300);
  EXPECT_EQ(idle().lastTag, 0U);
}

TEST_F(StepLoopTest, WithAFreeTagTheStepDoesNotWait) {
  loop(2);
  issue(CommandKind::write);
  EXPECT_EQ(drive.polls, 1);
  EXPECT_EQ(idle().lastTag, nothing);
}

TEST_F(StepLoopTest, AQueueOfOneWorks) {
  loop(1);
  drive.answerAtOnce();
  for (int i = 0; i < 5; ++i) {
    const Seen seen = issue(CommandKind::write);
    EXPECT_EQ(seen.nextTag, 0U);
    EXPECT_EQ(seen.lastTag, i == 0 ? nothing : 0U);
  }
  EXPECT_EQ(drive.submitted.size(), 5U);
}

TEST_F(StepLoopTest, TheAgentsStatusEndsTheStepBeforeAnythingIsIssued) {
  loop();
  agent.onExecute = [this](vdl::DriveThread& thread) {
    prepare(thread, CommandKind::write);
    return -1046;
  };
  EXPECT_EQ(loop().step(), -1046);
  EXPECT_THAT(drive.submitted, IsEmpty());
}

TEST_F(StepLoopTest, TwoAppliedConditionsAreTheAgentsFault) {
  loop();
  agent.onExecute = [this](vdl::DriveThread& thread) {
    prepare(thread, CommandKind::write);
    thread.conditions |= ConditionSet::readBit;
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(StepLoopTest, ACommandWithoutAFreeTagIsTheAgentsFault) {
  loop(1);
  agent.onExecute = [this](vdl::DriveThread& thread) {
    prepare(thread, CommandKind::write);
    host->tags().take();
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(StepLoopTest, LengthsOutsideTheTestAreTheAgentsFault) {
  loop();
  for (const uint32_t blocks : {0U, 9U}) {
    agent.onExecute = [this, blocks](vdl::DriveThread& thread) {
      host->variables().u32("XferLength") = blocks;
      FakeAgent::apply(thread, ConditionSet::readBit);
      return 0;
    };
    EXPECT_THROW(loop().step(), std::logic_error);
  }
}

TEST_F(StepLoopTest, WriteDataOfTheWrongSizeIsTheAgentsFault) {
  loop();
  agent.onExecute = [this](vdl::DriveThread& thread) {
    prepare(thread, CommandKind::write);
    host->variables().buffer("WriteData").size -= 1;
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(StepLoopTest, APowerToggleCutsThePowerAndDropsEverything) {
  issue(CommandKind::write);
  issue(CommandKind::read);
  drive.completeTag(0);
  drive.answers.back().bytesTransferred = 0;
  // Acknowledged by the drive but not delivered when the agent takes the tags back.
  const Seen before = stepWith([](vdl::DriveThread& thread) {
    FakeAgent::takeTagsBack(thread);
    FakeAgent::apply(thread, ConditionSet::powerToggleBit);
  });
  EXPECT_EQ(before.lastTag, nothing);
  EXPECT_EQ(drive.powerCycles, 1);
  EXPECT_EQ(drive.resets, 0);
  EXPECT_EQ(counters.powerCycles.get(), 1U);
  EXPECT_EQ(counters.outstanding.get(), 0U);
  const Seen after = idle();
  EXPECT_EQ(after.epo, 1U);
  EXPECT_EQ(after.lastTag, nothing);
  EXPECT_EQ(after.status, nothing);
  EXPECT_EQ(idle().lastTag, nothing) << "the late completion must never be delivered";
}

TEST_F(StepLoopTest, AToggleWithOutstandingTagsIsTheAgentsFault) {
  issue(CommandKind::write);
  agent.onExecute = [](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, ConditionSet::powerToggleBit);
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(StepLoopTest, HeldBackCommandsOfTakenBackTagsNeverReachTheDrive) {
  issue(CommandKind::write);
  stepWith([this](vdl::DriveThread& thread) {
    host->variables().u64("LBA") = 1000;
    prepare(thread, CommandKind::read);
  });
  ASSERT_EQ(drive.submitted.size(), 1U) << "the read waits for the write";
  EXPECT_EQ(counters.heldBack.get(), 1U);
  stepWith([](vdl::DriveThread& thread) { FakeAgent::takeTagsBack(thread); });
  EXPECT_EQ(drive.resets, 1) << "the drive must forget the commands of tags that were taken back";
  idle();
  EXPECT_EQ(drive.submitted.size(), 1U);
  EXPECT_EQ(counters.outstanding.get(), 0U);
}

TEST_F(StepLoopTest, TakingBackOnlySomeTagsIsTheAgentsFault) {
  issue(CommandKind::write);
  issue(CommandKind::write);
  agent.onExecute = [](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, 0);
    thread.freeTags->pushFreeTag(static_cast<uint32_t>(thread.freeTags->getNotFreeTag(0, false)), 0);
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(StepLoopTest, TheDeviceIsResetAfterSoManyCommands) {
  settings.resetEveryCommands = 3;
  issue(CommandKind::write);
  issue(CommandKind::read);
  EXPECT_EQ(drive.resets, 0);
  issue(CommandKind::write);
  EXPECT_EQ(drive.resets, 1);
  EXPECT_THAT(agent.calls, ElementsAre("deviceReset"));
  EXPECT_EQ(host->tags().outstanding(), 0U);
  EXPECT_EQ(counters.resets.get(), 1U);
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, nothing);
  EXPECT_EQ(seen.status, nothing);
  for (int i = 0; i < 3; ++i) {
    issue(CommandKind::write);
  }
  EXPECT_EQ(drive.resets, 2);
}

TEST_F(StepLoopTest, AResetWaitsUntilItsConditionHolds) {
  settings.resetEveryCommands = 2;
  setStepCondition(settings.conditions, "reset", "trim");
  for (int i = 0; i < 3; ++i) {
    issue(CommandKind::write);
    EXPECT_EQ(drive.resets, 0);
  }
  issue(CommandKind::trim);
  EXPECT_EQ(drive.resets, 1) << "looked at when the command has been issued";
  issue(CommandKind::trim);
  EXPECT_EQ(drive.resets, 1) << "two commands behind the last reset";
  issue(CommandKind::trim);
  EXPECT_EQ(drive.resets, 2);
}

TEST_F(StepLoopTest, APhaseKeepsResetsAway) {
  settings.resetEveryCommands = 1;
  addConditionName(settings.conditions, "hold");
  setStepCondition(settings.conditions, "reset", "!hold");
  addConditionPhase(settings.conditions, "hold", 4, 2);
  std::vector<int> resets;
  for (int i = 0; i < 10; ++i) {
    issue(CommandKind::write);
    resets.push_back(drive.resets);
  }
  EXPECT_THAT(resets, ElementsAre(1, 2, 3, 4, 4, 4, 5, 6, 6, 6));
}

TEST_F(StepLoopTest, TheStepRunsWhoseConditionHoldsAfterTheAgent) {
  addConditionName(settings.conditions, "early");
  setStepCondition(settings.conditions, "trim", "trim & early");
  const uint64_t early = uint64_t{1} << agentSteps;
  stepWith([&](vdl::DriveThread& thread) { FakeAgent::apply(thread, ConditionSet::trimBit | early); });
  ASSERT_EQ(drive.submitted.size(), 1U);
  EXPECT_EQ(drive.submitted[0].kind, CommandKind::trim);
  EXPECT_EQ(idle().conditions, 0U) << "a step begins with nothing set";
  agent.onExecute = [](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, ConditionSet::trimBit);
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error) << "no step runs on half of a condition";
}

TEST_F(StepLoopTest, WhatTheAgentsReplaceFlagClearedCarriesNoEndToEndBytes) {
  settings.e2ePercent = 100;
  setStepCondition(settings.conditions, "atomic", "=atomic");
  stepWith([&](vdl::DriveThread& thread) {
    thread.conditions = 0;
    prepare(thread, CommandKind::writeAtomic);
  });
  issue(CommandKind::verify);
  ASSERT_EQ(drive.submitted.size(), 2U);
  EXPECT_EQ(drive.submitted[0].trailerBytes, 0U);
  EXPECT_EQ(drive.submitted[1].trailerBytes, 8U);
}

TEST_F(StepLoopTest, AFlushThatAResetTookAwayIsReportedAsAborted) {
  settings.resetEveryCommands = 2;
  issue(CommandKind::write);
  issue(CommandKind::syncCache);
  ASSERT_EQ(drive.resets, 1);
  const Seen seen = idle();
  EXPECT_EQ(seen.lastTag, 1U);
  EXPECT_EQ(seen.status, scsi_status::aborted);
  EXPECT_EQ(seen.senseBytes, 0U);
  EXPECT_EQ(seen.readValid, 0U);
  EXPECT_EQ(idle().lastTag, nothing) << "once";
}

TEST_F(StepLoopTest, AFlushThatEndedBeforeTheResetIsNotReportedAgain) {
  settings.resetEveryCommands = 2;
  issue(CommandKind::syncCache);
  drive.completeTag(0);
  idle();
  EXPECT_EQ(idle().lastTag, 0U);
  issue(CommandKind::write);
  ASSERT_EQ(drive.resets, 1);
  EXPECT_EQ(idle().lastTag, nothing);
}

TEST_F(StepLoopTest, AnAgentThatLeavesTheRangeOfTheTestIsStoppedBeforeTheDriveSeesIt) {
  settings.minLba = 1000;
  settings.maxLba = 1999;
  const auto issueAt = [this](CommandKind kind, uint64_t lba, uint32_t blocks) {
    stepWith([&](vdl::DriveThread& thread) {
      host->variables().u64("LBA") = lba;
      host->variables().u32("XferLength") = blocks;
      prepare(thread, kind);
    });
  };
  loop(16);
  issueAt(CommandKind::write, 1000, 8);
  issueAt(CommandKind::trim, 1992, 8);
  issueAt(CommandKind::read, 992, 8);
  issueAt(CommandKind::read, 2000, 8);
  ASSERT_EQ(drive.submitted.size(), 4U);
  drive.reset();
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim}) {
    for (const auto& [lba, blocks] : {std::pair{uint64_t{999}, 1U}, {1993, 8}, {2000, 1}, {0, 8}, {UINT64_MAX, 8}}) {
      loop_.reset();  // it is of no use after an exception
      loop(1);
      try {
        issueAt(kind, lba, blocks);
        FAIL() << commandKindName(kind) << " at LBA " << lba;
      } catch (const std::logic_error& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr(commandKindName(kind)), HasSubstr("at LBA " + std::to_string(lba)),
                                        HasSubstr("in a test of LBA 1000 to 1999")));
      }
    }
  }
  EXPECT_EQ(drive.submitted.size(), 4U);
}

TEST_F(StepLoopTest, ACommandThatLeavesBlocksOutCountsUpToItsLastBlock) {
  settings.maxLba = 1006;
  settings.skipCommands = true;
  loop();
  const auto write = [this](uint32_t blocks) {
    stepWith([&](vdl::DriveThread& thread) {
      host->variables().u64("LBA") = 1000;
      host->variables().u32("XferLength") = blocks;
      prepare(thread, CommandKind::write);
    });
  };
  write(4);
  EXPECT_THROW(write(5), std::logic_error);
  EXPECT_EQ(drive.submitted.size(), 1U);
}

TEST_F(StepLoopTest, ADriveThatCompletesNothingIsGivenUpWithItsCommandsNamed) {
  settings.watchdogMs = 5000;
  loop(2);
  issue(CommandKind::write);
  const uint64_t beganUs = clock.steadyUs();
  try {
    issue(CommandKind::write);
    FAIL() << "waits for ever";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("completed nothing for 5 s"));
    EXPECT_THAT(error.what(), HasSubstr("write of 1 blocks at LBA 1000 (tag 0), write of 2 blocks at LBA 1010"));
  }
  const uint64_t waitedUs = clock.steadyUs() - beganUs;
  EXPECT_GE(waitedUs, 5'000'000U);
  EXPECT_LT(waitedUs, 5'100'000U);
}

TEST_F(StepLoopTest, DrainingDeliversEverythingAndIssuesNothing) {
  issue(CommandKind::write);
  issue(CommandKind::write);
  issue(CommandKind::read);
  drive.onPoll = [this] {
    if (!drive.waiting.empty()) {
      drive.complete(drive.waiting.size() - 1);
    }
  };
  std::vector<uint32_t> delivered;
  agent.onExecute = [&](vdl::DriveThread& thread) {
    const Seen seen = look(thread);
    EXPECT_EQ(seen.nextTag, nothing);
    if (seen.lastTag != nothing) {
      delivered.push_back(seen.lastTag);
      EXPECT_EQ(seen.readValid, seen.lastTag == 2 ? 1U : 0U);
    }
    FakeAgent::apply(thread, 0);
    return 0;
  };
  EXPECT_EQ(loop().drain(), 0);
  EXPECT_THAT(delivered, ElementsAre(2, 1, 0));
  EXPECT_EQ(drive.submitted.size(), 3U);
  EXPECT_EQ(counters.outstanding.get(), 0U);
}

TEST_F(StepLoopTest, AFindingWhileDrainingStillWaitsForTheDrive) {
  issue(CommandKind::write);
  issue(CommandKind::write);
  drive.onPoll = [this] {
    if (!drive.waiting.empty()) {
      drive.complete(0);
    }
  };
  agent.onExecute = [&](vdl::DriveThread& thread) {
    FakeAgent::apply(thread, 0);
    return look(thread).lastTag == 0 ? -1046 : 0;
  };
  EXPECT_EQ(loop().drain(), -1046);
  EXPECT_THAT(drive.waiting, IsEmpty());
}

TEST_F(StepLoopTest, AbandoningWaitsForTheDriveWithoutTheAgent) {
  issue(CommandKind::write);
  issue(CommandKind::write);
  int executes = 0;
  agent.onExecute = [&](vdl::DriveThread&) { return ++executes; };
  drive.onPoll = [this] {
    if (!drive.waiting.empty()) {
      drive.complete(0);
    }
  };
  loop().abandon();
  EXPECT_EQ(executes, 0);
  EXPECT_THAT(drive.waiting, IsEmpty());
}

TEST_F(StepLoopTest, CountsWhatWasWrittenReadAndCompared) {
  settings.mix = {.write = 0, .writeAtomic = 1, .read = 1};
  loop(8);
  drive.answerAtOnce();
  issue(CommandKind::writeAtomic);             // 1 block
  issue(CommandKind::read);                    // 2 blocks where the LBA agent said: a pre-read
  stepWith([this](vdl::DriveThread& thread) {  // 3 blocks elsewhere: a read-back
    host->variables().u64("LBA") = 5;
    prepare(thread, CommandKind::read);
  });
  issue(CommandKind::verify);     // 4 blocks
  issue(CommandKind::writeSame);  // 1 block
  issue(CommandKind::trim);       // 2 blocks
  idle();
  const DriveTotals totals = counters.totals(sector);
  EXPECT_EQ(totals.blocksWritten, 2U);
  EXPECT_EQ(totals.blocksRead, 5U);
  EXPECT_EQ(totals.blocksCompared, 7U);
  EXPECT_EQ(totals.blocksTrimmed, 2U);
  EXPECT_EQ(totals.commandsIssued(), 6U);
  EXPECT_EQ(totals.commandsCompleted(), 6U);
  EXPECT_EQ(totals.maxOutstanding, 1U);
}

TEST_F(StepLoopTest, ATrimHasItsParameterListAndNoWriteData) {
  issue(CommandKind::trim);
  const std::string list = tagBytes("ParameterList[TagID]", 0);
  ASSERT_EQ(list.size(), 24U);
  EXPECT_EQ(list.substr(8, 8), std::string("\0\0\0\0\0\0\x03\xE8", 8));
  EXPECT_EQ(static_cast<uint8_t>(tagBytes("CDB[TagID]", 0).at(0)), 0x42);
  EXPECT_EQ(tagBytes("CDB[TagID]", 255), "") << "a tag without a buffer is no error";
}

}  // namespace
}  // namespace corvane::host
