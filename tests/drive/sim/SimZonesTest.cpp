#include "host/drive/sim/SimZones.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <string>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/drive/AddressComplaint.h"
#include "tests/drive/CommandMaker.h"
#include "tests/support/CommandOf.h"

namespace corvane::host {
namespace {

using testing::HasSubstr;

constexpr uint32_t sector = 512;
constexpr uint32_t unaligned = 0x052104;
constexpr uint32_t boundary = 0x052105;
constexpr uint32_t invalidField = 0x052400;
constexpr uint32_t invalidOperation = 0x052000;

/// Zones of 10 blocks, the last one of 5.
class SimZonesTest : public testing::Test {
 protected:
  std::optional<Sense> write(uint64_t lba, uint32_t blocks, uint32_t step = 1) {
    return zones.admit(commandOf(CommandKind::write, lba, blocks, step));
  }

  DriveGeometry geometry{.blocks = 35, .zoneBlocks = 10};
  SimZones zones{geometry, true};
};

TEST_F(SimZonesTest, AZoneIsWrittenFromItsStartOn) {
  EXPECT_EQ(write(11, 1), sense::unalignedWrite);
  EXPECT_EQ(write(10, 4), std::nullopt);
  EXPECT_EQ(zones.writePointer(19), 14U);
  EXPECT_EQ(write(10, 4), sense::unalignedWrite);
  EXPECT_EQ(write(15, 1), sense::unalignedWrite);
  EXPECT_EQ(zones.admit(commandOf(CommandKind::writeAtomic, 14, 2)), std::nullopt);
  EXPECT_EQ(zones.admit(commandOf(CommandKind::writeSame, 16, 1)), std::nullopt);
  EXPECT_EQ(zones.writePointer(10), 17U);
  EXPECT_EQ(zones.writePointer(0), 0U);
}

TEST_F(SimZonesTest, AZoneTakesBlocksUpToItsEndAndNoneBeyond) {
  EXPECT_EQ(write(10, 9), std::nullopt);
  EXPECT_EQ(write(19, 2), sense::writeBoundaryViolation);
  EXPECT_EQ(zones.writePointer(19), 19U);
  EXPECT_EQ(write(19, 1), std::nullopt);
  EXPECT_EQ(zones.writePointer(19), 20U);
  EXPECT_EQ(write(19, 1), sense::unalignedWrite);
  EXPECT_EQ(write(20, 10), std::nullopt);
}

TEST_F(SimZonesTest, TheLastZoneMayBeShort) {
  EXPECT_EQ(zones.zoneEnd(29), 30U);
  EXPECT_EQ(zones.zoneEnd(30), 35U);
  EXPECT_EQ(write(30, 5), std::nullopt);
  EXPECT_EQ(zones.writePointer(34), 35U);
  EXPECT_EQ(write(34, 1), sense::unalignedWrite);
}

TEST_F(SimZonesTest, AWriteThatLeavesBlocksOutIsUnaligned) {
  EXPECT_EQ(write(0, 2, 2), sense::unalignedWrite);
  EXPECT_EQ(zones.writePointer(0), 0U);
  EXPECT_EQ(write(0, 1, 2), std::nullopt);
}

TEST_F(SimZonesTest, AWriteOfNoBlocksMovesNothing) {
  EXPECT_EQ(write(5, 0), std::nullopt);
  EXPECT_EQ(zones.writePointer(5), 0U);
}

TEST_F(SimZonesTest, AResetIsOfWholeZones) {
  const auto reset = [this](uint64_t lba, uint32_t blocks, uint32_t step = 1) {
    return zones.admit(commandOf(CommandKind::zoneReset, lba, blocks, step));
  };
  EXPECT_EQ(reset(10, 10), std::nullopt);
  EXPECT_EQ(reset(0, 35), std::nullopt);
  EXPECT_EQ(reset(30, 5), std::nullopt);
  EXPECT_EQ(reset(10, 5), sense::invalidField);
  EXPECT_EQ(reset(15, 5), sense::invalidField);
  EXPECT_EQ(reset(30, 4), sense::invalidField);
  EXPECT_EQ(reset(10, 15), sense::invalidField);
  EXPECT_EQ(reset(0, 18, 2), sense::invalidField);
}

TEST_F(SimZonesTest, ARewoundZoneBeginsAnew) {
  write(10, 7);
  write(20, 3);
  zones.rewind(15);
  EXPECT_EQ(zones.writePointer(10), 10U);
  EXPECT_EQ(zones.writePointer(20), 23U);
  EXPECT_TRUE(zones.empty(10));
  EXPECT_FALSE(zones.empty(22));
  EXPECT_TRUE(zones.empty(23));
}

TEST_F(SimZonesTest, AHostAwareDriveTakesWritesAnywhere) {
  SimZones aware(geometry, false);
  EXPECT_EQ(aware.admit(commandOf(CommandKind::write, 8, 20)), std::nullopt);
  EXPECT_FALSE(aware.empty(30));
  EXPECT_EQ(aware.admit(commandOf(CommandKind::zoneReset, 8, 20)), sense::invalidField);
}

/// A drive of 1000 blocks with zones of 64.
class ZonedSimDrive : public testing::Test {
 protected:
  void open(const std::string& keys) {
    drive = openDrive("sim:512000,zones=32k" + keys, 32);
    commands.emplace(*drive);
  }
  Bytes write(uint64_t lba, uint32_t blocks, CommandKind kind = CommandKind::write) {
    Bytes data = randomBytes(++seed, uint64_t{blocks} * sector);
    EXPECT_EQ(commands->run(kind, lba, blocks, &data).status, scsi_status::good) << lba;
    return data;
  }
  uint32_t refusalOf(CommandKind kind, uint64_t lba, uint32_t blocks) {
    Bytes data(uint64_t{kind == CommandKind::writeSame ? 1 : blocks} * sector);
    const bool sends = kind != CommandKind::zoneReset && kind != CommandKind::trim && kind != CommandKind::invalidate;
    return senseNumber(commands->run(kind, lba, blocks, sends ? &data : nullptr));
  }

  std::unique_ptr<Drive> drive;
  std::optional<CommandMaker> commands;
  uint64_t seed = 0;
};

TEST_F(ZonedSimDrive, SaysWhatItsZonesAre) {
  open("");
  EXPECT_EQ(drive->geometry().zoneBlocks, 64U);
  EXPECT_TRUE(drive->capabilities().zoneReset);
  EXPECT_TRUE(drive->capabilities().trim);
  EXPECT_FALSE(drive->capabilities().hostManaged);
  EXPECT_THAT(drive->description(), HasSubstr(", host-aware zones of 64 blocks"));
  open(",zonemodel=managed");
  EXPECT_TRUE(drive->capabilities().hostManaged);
  EXPECT_FALSE(drive->capabilities().trim);
  EXPECT_THAT(drive->description(), HasSubstr(", host-managed zones of 64 blocks"));
}

TEST(SimDriveWithoutZones, HasNoZoneReset) {
  const auto drive = openDrive("sim:1m", 4);
  EXPECT_FALSE(drive->capabilities().zoneReset);
  EXPECT_EQ(drive->geometry().zoneBlocks, 0U);
  EXPECT_EQ(senseNumber(CommandMaker(*drive).run(CommandKind::zoneReset, 0, 64)), invalidOperation);
}

TEST_F(ZonedSimDrive, AnAwareResetZeroesItsZonesAndLeavesTheOthers) {
  open("");
  const Bytes data = write(0, 256);
  EXPECT_EQ(refusalOf(CommandKind::zoneReset, 64, 128), 0U);
  Bytes expected = data;
  std::fill(expected.begin() + 64 * sector, expected.begin() + 192 * sector, uint8_t{0});
  EXPECT_EQ(commands->read(0, 256), expected);
}

TEST_F(ZonedSimDrive, HalfAZoneIsNotReset) {
  open("");
  const Bytes data = write(0, 128);
  EXPECT_EQ(refusalOf(CommandKind::zoneReset, 0, 96), invalidField);
  EXPECT_EQ(refusalOf(CommandKind::zoneReset, 32, 32), invalidField);
  EXPECT_EQ(commands->read(0, 128), data);
}

TEST_F(ZonedSimDrive, TheLastShortZoneIsReset) {
  open("");
  write(960, 40);
  EXPECT_EQ(refusalOf(CommandKind::zoneReset, 960, 39), invalidField);
  EXPECT_EQ(refusalOf(CommandKind::zoneReset, 960, 40), 0U);
  EXPECT_EQ(commands->read(960, 40), Bytes(40 * sector, 0));
}

TEST_F(ZonedSimDrive, AManagedDriveRefusesWritesOutOfPlace) {
  open(",zonemodel=managed");
  const Bytes data = write(64, 60);
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame}) {
    EXPECT_EQ(refusalOf(kind, 64, 1), unaligned);
    EXPECT_EQ(refusalOf(kind, 125, 1), unaligned);
    EXPECT_EQ(refusalOf(kind, 124, 5), boundary);
  }
  EXPECT_EQ(refusalOf(CommandKind::trim, 64, 8), invalidOperation);
  EXPECT_EQ(refusalOf(CommandKind::write, 999, 2), 0x052100U);
  EXPECT_EQ(commands->read(64, 60), data);
  write(124, 4);
  EXPECT_EQ(refusalOf(CommandKind::zoneReset, 64, 64), 0U);
  write(64, 1);
}

TEST_F(ZonedSimDrive, AManagedDriveReadsAndVerifiesZerosFromTheWritePointerOn) {
  open(",zonemodel=managed");
  Bytes expected = write(128, 10);
  expected.resize(64 * sector);
  EXPECT_EQ(commands->read(128, 64), expected);
  EXPECT_EQ(commands->run(CommandKind::verify, 128, 64, &expected).status, scsi_status::good);
  refusalOf(CommandKind::zoneReset, 128, 64);
  EXPECT_EQ(commands->read(128, 64), Bytes(64 * sector, 0));
}

TEST_F(ZonedSimDrive, WritesMayFollowEachOtherBeforeTheFirstIsAnswered) {
  open(",zonemodel=managed");
  std::vector<Bytes> data;
  for (uint64_t i = 0; i < 16; ++i) {
    data.push_back(randomBytes(i, 4 * sector));
  }
  for (uint64_t i = 0; i < 16; ++i) {
    drive->submit(commands->make(CommandKind::write, 4 * i, 4, &data[i]));
  }
  DriveCompletion completion;
  for (int i = 0; i < 16; ++i) {
    ASSERT_TRUE(drive->poll(completion, true));
    EXPECT_EQ(completion.status, scsi_status::good);
  }
  EXPECT_EQ(commands->read(60, 4), data[15]);
}

TEST_F(ZonedSimDrive, ALostWriteHasMovedThePointerAndItsBlocksAreOldOrNew) {
  open(",zonemodel=managed");
  std::set<std::string> seen;
  for (int round = 0; round < 30; ++round) {
    Bytes data = randomBytes(100, 8 * sector);
    drive->submit(commands->make(CommandKind::write, 64, 8, &data));
    drive->submit(commands->make(CommandKind::write, 71, 1, &data));  // refused, and lost too
    drive->reset();
    EXPECT_EQ(refusalOf(CommandKind::write, 64, 1), unaligned);
    const Bytes next = write(72, 1);
    const Bytes found = commands->read(64, 9);
    EXPECT_EQ(Bytes(found.begin() + 8 * sector, found.end()), next);
    for (uint32_t i = 0; i < 8; ++i) {
      const Bytes block(found.begin() + i * sector, found.begin() + (i + 1) * sector);
      const bool old = block == Bytes(sector, 0);
      ASSERT_TRUE(old || block == Bytes(data.begin() + i * sector, data.begin() + (i + 1) * sector));
      seen.insert(old ? "old" : "new");
    }
    ASSERT_EQ(refusalOf(CommandKind::zoneReset, 64, 64), 0U);
  }
  EXPECT_EQ(seen.size(), 2U);
}

TEST_F(ZonedSimDrive, ALostResetHasEmptiedAZoneOrNot) {
  open(",zonemodel=managed");
  std::set<std::pair<bool, bool>> seen;
  for (int round = 0; round < 100; ++round) {
    const Bytes first = write(0, 4);
    const Bytes second = write(64, 4);
    drive->submit(commands->make(CommandKind::zoneReset, 0, 128));
    drive->reset();
    const Bytes zeros(4 * sector, 0);
    const std::pair<bool, bool> emptied{commands->read(0, 4) == zeros, commands->read(64, 4) == zeros};
    ASSERT_TRUE(emptied.first || commands->read(0, 4) == first);
    ASSERT_TRUE(emptied.second || commands->read(64, 4) == second);
    // Pointer and content go together.
    ASSERT_EQ(refusalOf(CommandKind::write, 0, 1) == 0, emptied.first);
    ASSERT_EQ(refusalOf(CommandKind::write, 64, 1) == 0, emptied.second);
    ASSERT_EQ(refusalOf(CommandKind::zoneReset, 0, 128), 0U);
    seen.insert(emptied);
  }
  EXPECT_EQ(seen.size(), 4U);
}

TEST_F(ZonedSimDrive, AnInvalidationLeavesWhatIsAboveTheWritePointerZero) {
  open(",zonemodel=managed");
  write(0, 4);
  EXPECT_EQ(refusalOf(CommandKind::invalidate, 0, 8), 0U);
  const Bytes found = commands->read(0, 8);
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(found[i * sector], 0x9A);
  }
  EXPECT_EQ(Bytes(found.begin() + 4 * sector, found.end()), Bytes(4 * sector, 0));
}

TEST_F(ZonedSimDrive, APowerCutTakesNoResetBack) {
  for (const char* model : {",cache=volatile", ",cache=volatile,zonemodel=managed"}) {
    open(model);
    for (int round = 0; round < 10; ++round) {
      write(0, 64);
      refusalOf(CommandKind::zoneReset, 0, 64);
      drive->powerCycle();
      ASSERT_EQ(commands->read(0, 64), Bytes(64 * sector, 0)) << model;
    }
  }
}

TEST(SimZoneKeys, WrongOnesAreRefusedWithTheRemedy) {
  EXPECT_THAT(complaint("sim:1m,zones=1000"), HasSubstr("zones=1000 bytes are not a whole number of sectors of 512 "
                                                        "bytes; choose a multiple, such as 512"));
  EXPECT_THAT(complaint("sim:1m,block=4096,zones=512"), HasSubstr("such as 4096"));
  EXPECT_THAT(complaint("sim:1m,zones=2m"), HasSubstr("zones=2097152 bytes are more than the drive's 1048576"));
  EXPECT_THAT(complaint("sim:1m,zones=big"), HasSubstr("zones=big is not a size"));
  EXPECT_THAT(complaint("sim:1m,zonemodel=managed"), HasSubstr("zonemodel=managed needs zones; add their size"));
  EXPECT_THAT(complaint("sim:1m,zones=64k,zonemodel=strict"), HasSubstr("zonemodel=strict is not known"));
}

TEST(SimZoneKeys, AZoneMayBeTheWholeDrive) {
  EXPECT_EQ(openDrive("sim:1m,zones=1m", 4)->geometry().zoneBlocks, 2048U);
  EXPECT_EQ(complaint("sim:1m,zones=64k,zonemodel=aware"), "accepted");
}

}  // namespace
}  // namespace corvane::host
