#include "host/fault/RecentCommands.h"

#include <gtest/gtest.h>

#include "tests/support/CommandOf.h"

namespace corvane::host {
namespace {

constexpr uint32_t remembered = 256;

RecentCommands recentOf(std::initializer_list<DriveCommand> commands) {
  RecentCommands recent;
  for (const DriveCommand& command : commands) {
    recent.add(command);
  }
  return recent;
}

TEST(RecentCommands, NothingIsFoundBeforeTheFirstCommand) {
  const RecentCommands recent;
  EXPECT_EQ(recent.latestWriteOver(0, UINT64_MAX), nullptr);
  EXPECT_FALSE(recent.wasReadSinceChange(commandOf(CommandKind::writeAtomic, 0, 8), 0));
}

TEST(RecentCommands, TheLatestOfSeveralWritesIsFound) {
  const RecentCommands recent = recentOf({commandOf(CommandKind::write, 10, 10), commandOf(CommandKind::write, 15, 10),
                                          commandOf(CommandKind::writeSame, 40, 5)});
  const RecentCommands::Range* found = recent.latestWriteOver(16, 17);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->first, 15U);
  EXPECT_EQ(found->end, 25U);
  found = recent.latestWriteOver(10, 12);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->first, 10U);
  found = recent.latestWriteOver(44, 50);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->kind, CommandKind::writeSame);
}

TEST(RecentCommands, WritesBesideTheRangeDoNotCount) {
  const RecentCommands recent = recentOf({commandOf(CommandKind::write, 10, 10)});
  EXPECT_EQ(recent.latestWriteOver(0, 10), nullptr);
  EXPECT_EQ(recent.latestWriteOver(20, 30), nullptr);
  EXPECT_NE(recent.latestWriteOver(0, 11), nullptr);
  EXPECT_NE(recent.latestWriteOver(19, 30), nullptr);
}

TEST(RecentCommands, AStepLeavesTheBlocksBetweenOut) {
  const RecentCommands recent = recentOf({commandOf(CommandKind::write, 10, 3, 2)});
  const RecentCommands::Range* found = recent.latestWriteOver(0, 100);
  ASSERT_NE(found, nullptr);
  for (uint64_t lba = 0; lba < 20; ++lba) {
    EXPECT_EQ(found->contains(lba), lba == 10 || lba == 12 || lba == 14) << lba;
  }
}

TEST(RecentCommands, ReadsDoNotHideAWrite) {
  const RecentCommands recent = recentOf({commandOf(CommandKind::write, 10, 10), commandOf(CommandKind::read, 10, 10)});
  EXPECT_NE(recent.latestWriteOver(10, 20), nullptr);
}

TEST(RecentCommands, AnotherChangeHidesTheWriteBeforeIt) {
  for (const CommandKind kind :
       {CommandKind::trim, CommandKind::writeAtomic, CommandKind::zoneReset, CommandKind::invalidate}) {
    const RecentCommands recent = recentOf({commandOf(CommandKind::write, 10, 10), commandOf(kind, 15, 2)});
    EXPECT_EQ(recent.latestWriteOver(10, 20), nullptr) << commandKindName(kind);
    EXPECT_NE(recent.latestWriteOver(10, 15), nullptr) << commandKindName(kind);
  }
}

TEST(RecentCommands, OldCommandsAreForgotten) {
  RecentCommands recent = recentOf({commandOf(CommandKind::write, 10, 10)});
  for (uint32_t i = 1; i < remembered; ++i) {
    recent.add(commandOf(CommandKind::read, 500, 1));
  }
  EXPECT_NE(recent.latestWriteOver(10, 20), nullptr);
  recent.add(commandOf(CommandKind::read, 500, 1));
  EXPECT_EQ(recent.latestWriteOver(10, 20), nullptr);
}

TEST(RecentCommands, AReadOfExactlyTheRangeIsFound) {
  const DriveCommand atomic = commandOf(CommandKind::writeAtomic, 10, 8);
  EXPECT_TRUE(recentOf({commandOf(CommandKind::read, 10, 8)}).wasReadSinceChange(atomic, 17));
  EXPECT_FALSE(recentOf({commandOf(CommandKind::read, 10, 7)}).wasReadSinceChange(atomic, 17));
  EXPECT_FALSE(recentOf({commandOf(CommandKind::read, 9, 8)}).wasReadSinceChange(atomic, 17));
  EXPECT_FALSE(recentOf({commandOf(CommandKind::read, 10, 8, 2)}).wasReadSinceChange(atomic, 17));
  EXPECT_FALSE(recentOf({commandOf(CommandKind::write, 10, 8)}).wasReadSinceChange(atomic, 17));
}

TEST(RecentCommands, OnlyAChangeOfTheRangeEndsWhatAReadFound) {
  const DriveCommand atomic = commandOf(CommandKind::writeAtomic, 10, 8);
  const DriveCommand read = commandOf(CommandKind::read, 10, 8);
  EXPECT_TRUE(recentOf({read, commandOf(CommandKind::read, 12, 2)}).wasReadSinceChange(atomic, 17));
  EXPECT_TRUE(recentOf({read, commandOf(CommandKind::write, 18, 8)}).wasReadSinceChange(atomic, 17));
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeSame, CommandKind::writeAtomic,
                                 CommandKind::trim, CommandKind::zoneReset, CommandKind::invalidate}) {
    EXPECT_FALSE(recentOf({read, commandOf(kind, 17, 8)}).wasReadSinceChange(atomic, 17)) << commandKindName(kind);
    EXPECT_TRUE(recentOf({commandOf(kind, 17, 8), read}).wasReadSinceChange(atomic, 17)) << commandKindName(kind);
  }
}

}  // namespace
}  // namespace corvane::host
