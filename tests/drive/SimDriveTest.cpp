#include "host/drive/SimDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>

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

TEST(SimDrive, AResetLeavesAnOutstandingWriteUndoneHalfDoneOrDone) {
  SimDrive drive(settingsOf(false));
  CommandMaker commands(drive);
  std::set<std::string> seen;
  for (uint64_t round = 0; round < 100; ++round) {
    Bytes old = randomBytes(2 * round, 8 * sector);
    Bytes fresh = randomBytes(2 * round + 1, 8 * sector);
    commands.run(CommandKind::write, 0, 8, &old);
    drive.submit(commands.make(CommandKind::write, 0, 8, &fresh));
    drive.reset();
    const Bytes found = commands.read(0, 8);
    size_t done = 0;
    while (done < 8 && std::memcmp(&found[done * sector], &fresh[done * sector], sector) == 0) {
      ++done;
    }
    // Its first blocks are new, all others old.
    ASSERT_EQ(std::memcmp(found.data() + done * sector, old.data() + done * sector, (8 - done) * sector), 0);
    seen.insert(done == 0 ? "undone" : done == 8 ? "done" : "half");
  }
  EXPECT_THAT(seen, testing::ElementsAre("done", "half", "undone"));
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
