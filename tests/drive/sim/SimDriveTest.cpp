#include "host/drive/sim/SimDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/drive/AddressComplaint.h"
#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

constexpr uint32_t sector = 512;

SimSettings settingsOf(bool volatileCache) {
  SimSettings settings;
  settings.geometry.blocks = 10'000;
  settings.depth = 64;
  settings.volatileCache = volatileCache;
  return settings;
}

TEST(SimDrive, OffersEveryKindOfCommand) {
  const SimDrive drive(settingsOf(false));
  const DriveCapabilities& offers = drive.capabilities();
  EXPECT_TRUE(offers.atomicWrite && offers.writeSame && offers.trim && offers.verify && offers.syncCache);
  EXPECT_TRUE(offers.powerToggle && offers.deviceReset);
  EXPECT_FALSE(offers.volatileCache);
  EXPECT_TRUE(SimDrive(settingsOf(true)).capabilities().volatileCache);
}

TEST(SimDrive, WorksWhileItsThreadRunsOnly) { EXPECT_TRUE(SimDrive(settingsOf(false)).capabilities().worksInCalls); }

TEST(SimDrive, SaysWhatItIs) {
  SimSettings settings = settingsOf(true);
  settings.geometry.blocks = 2048;
  settings.geometry.protectionBytes = 8;
  settings.seed = 42;
  EXPECT_EQ(SimDrive(settings).description(),
            "simulated drive, 1.016 MiB, 512-byte blocks with 8 protection bytes, volatile write cache, seed 42");
  EXPECT_THAT(SimDrive(settingsOf(false)).description(), testing::HasSubstr("no volatile cache"));
}

/// What a power cut leaves of blocks that were acknowledged: the numbers of old and of new ones.
std::pair<int, int> afterAPowerCut(bool volatileCache, bool flushed, bool forceUnitAccess) {
  SimDrive drive(settingsOf(volatileCache));
  CommandMaker commands(drive);
  Bytes old = randomBytes(1, 100 * sector);
  Bytes fresh = randomBytes(2, 100 * sector);
  commands.run(CommandKind::write, 0, 100, &old);
  commands.run(CommandKind::syncCache, 0, 0);
  DriveCommand write = commands.make(CommandKind::write, 0, 100, &fresh);
  write.forceUnitAccess = forceUnitAccess;
  commands.run(write);
  if (flushed) {
    commands.run(CommandKind::syncCache, 0, 0);
  }
  drive.powerCycle();
  const Bytes found = commands.read(0, 100);
  std::pair<int, int> count{0, 0};
  for (size_t i = 0; i < 100; ++i) {
    count.first += std::memcmp(&found[i * sector], &old[i * sector], sector) == 0 ? 1 : 0;
    count.second += std::memcmp(&found[i * sector], &fresh[i * sector], sector) == 0 ? 1 : 0;
  }
  return count;
}

TEST(SimDrive, APowerCutTakesWhatAVolatileCacheHeld) {
  const auto [old, fresh] = afterAPowerCut(true, false, false);
  EXPECT_EQ(old + fresh, 100);
  EXPECT_GT(old, 10);
  EXPECT_GT(fresh, 10);
}

TEST(SimDrive, APowerCutLeavesWhatIsSafe) {
  EXPECT_EQ(afterAPowerCut(false, false, false), std::make_pair(0, 100));
  EXPECT_EQ(afterAPowerCut(true, true, false), std::make_pair(0, 100));
  EXPECT_EQ(afterAPowerCut(true, false, true), std::make_pair(0, 100));
}

TEST(SimDrive, AResetLosesNothingThatWasAcknowledged) {
  SimDrive drive(settingsOf(true));
  CommandMaker commands(drive);
  Bytes data = randomBytes(3, 50 * sector);
  commands.run(CommandKind::write, 10, 50, &data);
  drive.reset();
  EXPECT_EQ(commands.read(10, 50), data);
}

/// What resets left of a write of 8 blocks that was outstanding, a letter a 512 bytes: o old, n new, ? neither.
std::set<std::string> leftByResets(SimSettings settings, DriveCommand like, uint64_t lba, int rounds) {
  settings.geometry.blocks = 10'000;
  SimDrive drive(settings);
  CommandMaker commands(drive);
  std::set<std::string> seen;
  const uint64_t bytes = uint64_t{8} * settings.geometry.blockSize;
  Bytes old = randomBytes(1, bytes);
  Bytes fresh = randomBytes(2, bytes);
  for (int round = 0; round < rounds; ++round) {
    commands.run(CommandKind::write, lba, 8, &old);
    DriveCommand command = commands.make(like.kind, lba, 8, like.kind == CommandKind::trim ? nullptr : &fresh);
    command.atomicBound = like.atomicBound;
    drive.submit(command);
    drive.reset();
    Bytes expected = like.kind == CommandKind::trim ? Bytes(bytes, 0) : fresh;
    const Bytes found = commands.read(lba, 8);
    std::string left;
    for (size_t i = 0; i < bytes; i += 512) {
      left += std::memcmp(&found[i], &old[i], 512) == 0        ? 'o'
              : std::memcmp(&found[i], &expected[i], 512) == 0 ? 'n'
                                                               : '?';
    }
    seen.insert(left);
  }
  return seen;
}

TEST(SimDrive, AResetLeavesAnySubsetOfAnOutstandingWritesBlocks) {
  for (const CommandKind kind : {CommandKind::write, CommandKind::trim}) {
    DriveCommand like;
    like.kind = kind;
    const std::set<std::string> seen = leftByResets(settingsOf(false), like, 3, 400);
    EXPECT_THAT(seen, testing::AllOf(testing::Contains("oooooooo"), testing::Contains("nnnnnnnn")));
    EXPECT_THAT(seen, testing::Contains(testing::StartsWith("on")));  // not only the first blocks
    EXPECT_THAT(seen, testing::Each(testing::Not(testing::HasSubstr("?"))));
    EXPECT_GT(seen.size(), 60U);
  }
}

TEST(SimDrive, AResetLeavesWholeSegmentsOfAnAtomicWriteHoweverElseItTears) {
  for (const TearUnit unit : {TearUnit::block, TearUnit::sector, TearUnit::fourKiB}) {
    SimSettings settings = settingsOf(false);
    settings.geometry.blockSize = 1024;
    settings.tear = unit;
    DriveCommand like;
    like.kind = CommandKind::writeAtomic;
    like.atomicBound = 3;
    // Segments count from the command's LBA, which is not a multiple of the bound.
    EXPECT_THAT(leftByResets(settings, like, 4, 300),
                testing::ElementsAre("nnnnnnnnnnnnnnnn", "nnnnnnnnnnnnoooo", "nnnnnnoooooonnnn", "nnnnnnoooooooooo",
                                     "oooooonnnnnnnnnn", "oooooonnnnnnoooo", "oooooooooooonnnn", "oooooooooooooooo"));
  }
}

TEST(SimDrive, AnAtomicWriteWithoutBoundIsLeftAsAWhole) {
  DriveCommand like;
  like.kind = CommandKind::writeAtomic;
  EXPECT_THAT(leftByResets(settingsOf(false), like, 4, 50), testing::ElementsAre("nnnnnnnn", "oooooooo"));
}

TEST(SimDrive, TornBySectorsABlockOf4096BytesIsNeitherOldNorNew) {
  SimSettings settings = settingsOf(false);
  settings.geometry.blockSize = 4096;
  settings.tear = TearUnit::sector;
  const std::set<std::string> seen = leftByResets(settings, DriveCommand{.kind = CommandKind::write}, 0, 20);
  EXPECT_TRUE(std::any_of(seen.begin(), seen.end(), [](const std::string& left) {
    const std::string block = left.substr(0, 8);
    return block.find('o') != std::string::npos && block.find('n') != std::string::npos;
  }));
  settings.tear = TearUnit::block;
  for (const std::string& left : leftByResets(settings, DriveCommand{.kind = CommandKind::write}, 0, 20)) {
    for (size_t block = 0; block < 64; block += 8) {
      EXPECT_EQ(left.substr(block, 8), std::string(8, left[block]));
    }
  }
}

TEST(SimDrive, TornBy4KibItsBlocksShareOneFate) {
  SimSettings settings = settingsOf(false);
  settings.tear = TearUnit::fourKiB;
  EXPECT_THAT(leftByResets(settings, DriveCommand{.kind = CommandKind::write}, 13, 60),
              testing::ElementsAre("nnnnnnnn", "nnnooooo", "ooonnnnn", "oooooooo"));
}

TEST(SimDrive, APowerCutTearsAcknowledgedBlocksInTheSameUnits) {
  SimSettings settings = settingsOf(true);
  settings.geometry.blockSize = 4096;
  settings.tear = TearUnit::sector;
  SimDrive drive(settings);
  CommandMaker commands(drive);
  Bytes old = randomBytes(1, uint64_t{10} * 4096);
  Bytes fresh = randomBytes(2, uint64_t{10} * 4096);
  commands.run(CommandKind::write, 0, 10, &old);
  commands.run(CommandKind::syncCache, 0, 0);
  commands.run(CommandKind::write, 0, 10, &fresh);
  drive.powerCycle();
  const Bytes found = commands.read(0, 10);
  int mixed = 0;
  for (size_t block = 0; block < 10; ++block) {
    int kept = 0;
    for (size_t i = block * 4096; i < (block + 1) * 4096; i += 512) {
      const bool isNew = std::memcmp(&found[i], &fresh[i], 512) == 0;
      ASSERT_TRUE(isNew || std::memcmp(&found[i], &old[i], 512) == 0);
      kept += isNew ? 1 : 0;
    }
    mixed += kept != 0 && kept != 8 ? 1 : 0;
  }
  EXPECT_GT(mixed, 5);
}

TEST(SimDrive, AnAcknowledgedAtomicWriteIsNeverTorn) {
  SimSettings settings = settingsOf(true);
  settings.tear = TearUnit::sector;
  SimDrive drive(settings);
  CommandMaker commands(drive);
  Bytes old = randomBytes(1, 32 * sector);
  Bytes fresh = randomBytes(2, 32 * sector);
  commands.run(CommandKind::write, 0, 32, &old);
  commands.run(CommandKind::writeAtomic, 0, 32, &fresh);
  drive.powerCycle();
  EXPECT_EQ(commands.read(0, 32), fresh);
}

TEST(SimDrive, AWrongUnitOfTearingIsRefused) {
  try {
    openDrive("sim:1m,tear=page", 4);
    FAIL() << "accepted";
  } catch (const DriveAddressError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("tear=page is not known; it takes block, sector, 4k"));
  }
  EXPECT_EQ(openDrive("sim:1m,tear=4k", 4)->geometry().blocks, 2048U);
}

TEST(SimDrive, InvalidatedBlocksHoldNewBytesThatAreNobodysDataAndTheirNeighboursStay) {
  SimDrive drive(settingsOf(false));
  CommandMaker commands(drive);
  Bytes data = randomBytes(4, 20 * sector);
  commands.run(CommandKind::write, 0, 20, &data);
  EXPECT_TRUE(drive.capabilities().invalidate);
  EXPECT_EQ(commands.run(CommandKind::invalidate, 5, 10).status, scsi_status::good);
  const Bytes found = commands.read(0, 20);
  EXPECT_EQ(std::memcmp(found.data(), data.data(), 5 * sector), 0);
  EXPECT_EQ(std::memcmp(&found[15 * sector], &data[15 * sector], 5 * sector), 0);
  std::set<std::string> contents;
  for (size_t i = 5; i < 15; ++i) {
    EXPECT_EQ(found[i * sector], 0x9A);
    contents.emplace(&found[i * sector], &found[i * sector] + sector);
    contents.emplace(&data[i * sector], &data[i * sector] + sector);
  }
  EXPECT_EQ(contents.size(), 20U);
  commands.run(CommandKind::invalidate, 5, 10);
  EXPECT_NE(commands.read(5, 10), Bytes(found.begin() + 5 * sector, found.begin() + 15 * sector));
}

TEST(SimDrive, AnInvalidatedBlockMayHaveAnyLengthAndMayLeaveOthersBetween) {
  SimSettings settings = settingsOf(false);
  settings.geometry.blockSize = 1024;
  settings.geometry.protectionBytes = 8;
  SimDrive drive(settings);
  CommandMaker commands(drive);
  Bytes data = randomBytes(4, uint64_t{4} * 1032);
  commands.run(CommandKind::write, 0, 4, &data);
  DriveCommand skipping = commands.make(CommandKind::invalidate, 0, 2);
  skipping.lbaStep = 2;
  EXPECT_EQ(commands.run(skipping).status, scsi_status::good);
  const Bytes found = commands.read(0, 4);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(std::memcmp(&found[i * 1032], &data[i * 1032], 1032) == 0, i % 2 == 1) << i;
    EXPECT_EQ(std::memcmp(&found[i * 1032 + 1024], &data[i * 1032 + 1024], 8) == 0, i % 2 == 1) << i;
  }
}

TEST(SimDrive, APowerCutNeverBringsInvalidatedContentBack) {
  SimDrive drive(settingsOf(true));
  CommandMaker commands(drive);
  Bytes data = randomBytes(5, 100 * sector);
  commands.run(CommandKind::write, 0, 100, &data);
  commands.run(CommandKind::invalidate, 0, 100);
  const Bytes found = commands.read(0, 100);
  drive.powerCycle();
  EXPECT_EQ(commands.read(0, 100), found);
}

TEST(SimDrive, LimitsAtomicSegmentsAsItsAddressSays) {
  const std::unique_ptr<Drive> drive = openDrive("sim:1m,atomic-least=2,atomic-most=8", 4);
  EXPECT_EQ(drive->capabilities().atomicSegments.leastBlocks, 2U);
  EXPECT_EQ(drive->capabilities().atomicSegments.mostBlocks, 8U);
  EXPECT_THAT(drive->description(), testing::HasSubstr("atomic segments of 2 to 8 blocks"));
  CommandMaker commands(*drive);
  Bytes data = randomBytes(1, 8 * sector);
  DriveCommand write = commands.make(CommandKind::writeAtomic, 16, 8, &data);
  write.atomicBound = 8;
  EXPECT_EQ(commands.run(write).status, scsi_status::good);
  write = commands.make(CommandKind::writeAtomic, 20, 8, &data);
  write.atomicBound = 8;
  EXPECT_EQ(commands.run(write).status, scsi_status::checkCondition);
  EXPECT_FALSE(openDrive("sim:1m", 4)->capabilities().atomicSegments.limited());
}

TEST(SimDriveAddress, RefusesLimitsOfAtomicSegmentsThatNothingFits) {
  EXPECT_THAT(complaint("sim:1m,atomic-least=2"), testing::HasSubstr("add it, as in atomic-most=2"));
  EXPECT_THAT(complaint("sim:1m,atomic-least=5,atomic-most=7"), testing::HasSubstr("there is no power of two from"));
  EXPECT_THAT(complaint("sim:1m,atomic-most=65536"), testing::HasSubstr("atomic-most=65536"));
  EXPECT_EQ(complaint("sim:1m,atomic-least=5,atomic-most=8"), "accepted");
}

TEST(SimDrive, ASeedRepeatsEverything) {
  const auto run = [](uint64_t seed) {
    SimSettings settings = settingsOf(true);
    settings.seed = seed;
    SimDrive drive(settings);
    CommandMaker commands(drive);
    std::vector<Bytes> data;
    for (uint64_t i = 0; i < 40; ++i) {
      data.push_back(randomBytes(i, 4 * sector));
    }
    std::vector<uint64_t> order;
    DriveCompletion completion;
    for (uint64_t i = 0; i < 40; ++i) {
      DriveCommand command = commands.make(CommandKind::write, 4 * i, 4, &data[i]);
      drive.submit(command);
      if (drive.poll(completion, false)) {
        order.push_back(completion.id);
      }
    }
    drive.powerCycle();
    commands.run(CommandKind::invalidate, 0, 3);
    return std::make_pair(order, commands.read(0, 160));
  };
  EXPECT_EQ(run(1), run(1));
  EXPECT_NE(run(1), run(2));
}

}  // namespace
}  // namespace corvane::host
