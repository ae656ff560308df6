#include "host/fault/FaultClass.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace corvane::host {
namespace {

using Kinds = std::set<CommandKind>;

constexpr std::initializer_list<CommandKind> allKinds{
    CommandKind::write,  CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim,      CommandKind::read,
    CommandKind::verify, CommandKind::syncCache,   CommandKind::zoneReset, CommandKind::invalidate};

const DriveGeometry plain{.blocks = 1000, .blockSize = 512};
const DriveGeometry large{.blocks = 1000, .blockSize = 4096};
const DriveGeometry guarded{.blocks = 1000, .blockSize = 512, .protectionBytes = 8};

DriveCommand commandOf(CommandKind kind, uint64_t lba, uint32_t blocks, uint32_t atomicBound = 2) {
  DriveCommand command;
  command.kind = kind;
  command.lba = lba;
  command.blocks = kind == CommandKind::syncCache ? 0 : blocks;
  command.atomicBound = atomicBound;
  return command;
}

/// The kinds that a class can strike when size is no matter.
Kinds kindsOf(FaultClass what) {
  Kinds kinds;
  for (const CommandKind kind : allKinds) {
    if (canStrike(what, commandOf(kind, 3, 16), guarded)) {
      kinds.insert(kind);
    }
  }
  return kinds;
}

TEST(FaultClass, TheListIsInTheOrderOfTheEnumeration) {
  uint8_t next = 0;
  for (const FaultClassInfo& info : faultClasses()) {
    EXPECT_EQ(info.what, static_cast<FaultClass>(next)) << info.name;
    EXPECT_EQ(faultClassInfo(info.what).name, info.name);
    ++next;
  }
  EXPECT_EQ(next, static_cast<uint8_t>(FaultClass::mixedCommands) + 1);
}

TEST(FaultClass, NamesAreUniqueAndFoundAgain) {
  std::set<std::string> names;
  for (const FaultClassInfo& info : faultClasses()) {
    EXPECT_TRUE(names.insert(info.name).second) << info.name;
    EXPECT_EQ(faultClassNamed(info.name), info.what);
    // A description is CLASS:key=value,…: a name must not look like the rest of one.
    EXPECT_EQ(std::string(info.name).find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos);
    EXPECT_STRNE(info.help, "");
  }
}

TEST(FaultClass, NothingElseIsAName) {
  EXPECT_FALSE(faultClassNamed("gremlins"));
  EXPECT_FALSE(faultClassNamed(""));
  EXPECT_FALSE(faultClassNamed("lost"));
  EXPECT_FALSE(faultClassNamed("Lost-Write"));
}

TEST(FaultClass, OnlyFailedCommandsShowOtherwiseThanByAMiscompare) {
  for (const FaultClassInfo& info : faultClasses()) {
    const FaultSymptom expected = info.what == FaultClass::writeSplice  ? FaultSymptom::splice
                                  : info.what == FaultClass::atomicTear ? FaultSymptom::atomicOrder
                                                                        : FaultSymptom::miscompare;
    EXPECT_EQ(info.symptom, expected) << info.name;
  }
}

TEST(FaultClass, AClassStrikesItsKindsOnly) {
  using enum CommandKind;
  const Kinds anyWrite{write, writeAtomic, writeSame};
  EXPECT_EQ(kindsOf(FaultClass::bitFlipRead), Kinds{read});
  EXPECT_EQ(kindsOf(FaultClass::misdirectedRead), Kinds{read});
  EXPECT_EQ(kindsOf(FaultClass::tornWrite), (Kinds{write, writeAtomic}));
  EXPECT_EQ(kindsOf(FaultClass::tornWrite4k), (Kinds{write, writeAtomic}));
  EXPECT_EQ(kindsOf(FaultClass::swappedBlock), (Kinds{write, writeAtomic}));
  EXPECT_EQ(kindsOf(FaultClass::writeSplice), (Kinds{write, writeSame}));
  EXPECT_EQ(kindsOf(FaultClass::atomicTear), Kinds{writeAtomic});
  EXPECT_EQ(kindsOf(FaultClass::trimIgnored), Kinds{trim});
  EXPECT_EQ(kindsOf(FaultClass::trimTooFar), Kinds{trim});
  EXPECT_EQ(kindsOf(FaultClass::writeSameShort), Kinds{writeSame});
  EXPECT_EQ(kindsOf(FaultClass::lyingFlush), Kinds{syncCache});
  EXPECT_EQ(kindsOf(FaultClass::verifyFalseAlarm), Kinds{verify});
  EXPECT_EQ(kindsOf(FaultClass::zoneResetIgnored), Kinds{zoneReset});
  EXPECT_EQ(kindsOf(FaultClass::invalidateIgnored), Kinds{invalidate});
  for (const FaultClass what :
       {FaultClass::bitFlipRest, FaultClass::bitFlipWrite, FaultClass::lostWrite, FaultClass::staleRead,
        FaultClass::misdirectedWrite, FaultClass::orderInversion, FaultClass::readOvertakes, FaultClass::wrongStatus,
        FaultClass::verifyAlwaysEqual, FaultClass::crossTalk, FaultClass::zeroedBlock, FaultClass::protectionDamage,
        FaultClass::mixedCommands}) {
    EXPECT_EQ(kindsOf(what), anyWrite) << faultClassInfo(what).name;
  }
}

TEST(FaultClass, ACommandWithoutBlocksIsStruckByALyingFlushOnly) {
  for (const FaultClassInfo& info : faultClasses()) {
    for (const CommandKind kind : allKinds) {
      const bool flush = info.what == FaultClass::lyingFlush && kind == CommandKind::syncCache;
      EXPECT_EQ(canStrike(info.what, commandOf(kind, 3, 0), guarded), flush)
          << info.name << ", " << commandKindName(kind);
    }
  }
}

TEST(FaultClass, OneBlockIsTornOnlyInsideALargerOne) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic}) {
    EXPECT_FALSE(canStrike(FaultClass::tornWrite, commandOf(kind, 3, 1), plain));
    EXPECT_FALSE(canStrike(FaultClass::tornWrite, commandOf(kind, 3, 1), guarded));
    EXPECT_TRUE(canStrike(FaultClass::tornWrite, commandOf(kind, 3, 2), plain));
    EXPECT_TRUE(canStrike(FaultClass::tornWrite, commandOf(kind, 3, 1), large));
    EXPECT_TRUE(canStrike(FaultClass::tornWrite, commandOf(kind, 3, 1), {.blocks = 1000, .blockSize = 1024}));
  }
}

TEST(FaultClass, ATearAt4kNeedsABoundaryWithinTheCommand) {
  const auto tears = [](uint64_t lba, uint32_t blocks, const DriveGeometry& geometry, uint32_t step = 1) {
    DriveCommand command = commandOf(CommandKind::write, lba, blocks);
    command.lbaStep = step;
    return canStrike(FaultClass::tornWrite4k, command, geometry);
  };
  EXPECT_FALSE(tears(0, 8, plain));
  EXPECT_FALSE(tears(8, 8, plain));
  EXPECT_FALSE(tears(7, 1, plain));
  EXPECT_TRUE(tears(7, 2, plain));
  EXPECT_TRUE(tears(0, 9, plain));
  EXPECT_TRUE(tears(1, 8, plain));
  EXPECT_TRUE(tears(0, 5, plain, 2));
  EXPECT_FALSE(tears(0, 4, plain, 2));
  EXPECT_FALSE(tears(5, 1, large));
  EXPECT_TRUE(tears(5, 2, large));
  EXPECT_FALSE(tears(2, 2, {.blocks = 1000, .blockSize = 2048}));
  EXPECT_TRUE(tears(1, 2, {.blocks = 1000, .blockSize = 2048}));
}

TEST(FaultClass, AnAtomicTearNeedsASegmentOfTwoBlocks) {
  EXPECT_TRUE(canStrike(FaultClass::atomicTear, commandOf(CommandKind::writeAtomic, 3, 2, 2), plain));
  EXPECT_TRUE(canStrike(FaultClass::atomicTear, commandOf(CommandKind::writeAtomic, 3, 2, 64), plain));
  EXPECT_FALSE(canStrike(FaultClass::atomicTear, commandOf(CommandKind::writeAtomic, 3, 16, 1), plain));
  EXPECT_FALSE(canStrike(FaultClass::atomicTear, commandOf(CommandKind::writeAtomic, 3, 16, 0), plain));
  EXPECT_FALSE(canStrike(FaultClass::atomicTear, commandOf(CommandKind::writeAtomic, 3, 1, 2), plain));
}

TEST(FaultClass, SomeFaultsNeedASecondBlock) {
  EXPECT_FALSE(canStrike(FaultClass::swappedBlock, commandOf(CommandKind::write, 3, 1), large));
  EXPECT_TRUE(canStrike(FaultClass::swappedBlock, commandOf(CommandKind::write, 3, 2), large));
  EXPECT_FALSE(canStrike(FaultClass::writeSameShort, commandOf(CommandKind::writeSame, 3, 1), plain));
  EXPECT_TRUE(canStrike(FaultClass::writeSameShort, commandOf(CommandKind::writeSame, 3, 2), plain));
  EXPECT_TRUE(canStrike(FaultClass::writeSplice, commandOf(CommandKind::write, 3, 1), plain));
  EXPECT_TRUE(canStrike(FaultClass::wrongStatus, commandOf(CommandKind::write, 3, 1), plain));
}

TEST(FaultClass, OnlyProtectionBytesCanBeDamaged) {
  EXPECT_TRUE(canStrike(FaultClass::protectionDamage, commandOf(CommandKind::write, 3, 1), guarded));
  EXPECT_FALSE(canStrike(FaultClass::protectionDamage, commandOf(CommandKind::write, 3, 1), plain));
}

}  // namespace
}  // namespace corvane::host
