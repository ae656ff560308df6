// What every drive promises, whoever plays it.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <thread>

#include "host/drive/DriveFactory.h"
#include "tests/drive/CommandMaker.h"
#include "tests/drive/ConformanceKinds.h"

namespace corvane::host {
namespace {

class DriveConformance : public testing::TestWithParam<Kind> {
 protected:
  DriveConformance() : stand(GetParam().open(folder)), drive(driveOrPlaceholder()), commands(*drive) {
    sector = drive->geometry().sectorBytes();
  }

  void SetUp() override {
    if (stand.drive == nullptr) {
      GTEST_SKIP() << stand.missing;
    }
  }

  /// Without the drive a simulated one stands there until the test is skipped.
  Drive* driveOrPlaceholder() {
    return stand.drive != nullptr ? stand.drive.get() : (placeholder = openDrive("sim:8m", conformanceDepth)).get();
  }

  Bytes dataOf(uint64_t seed, uint32_t blocks) const { return randomBytes(seed, uint64_t{blocks} * sector); }
  uint64_t last() const { return drive->geometry().blocks - 1; }

  void expectGood(const DriveCompletion& completion) const {
    EXPECT_EQ(completion.status, scsi_status::good);
    EXPECT_EQ(completion.senseBytes, 0U);
  }

  /// That the sense data of a verify name the first block that differs.
  static void expectNames(const DriveCompletion& completion, uint64_t lba) {
    EXPECT_EQ(senseNumber(completion), 0x0E1D00U);
    EXPECT_EQ(senseInformation(completion), lba);
  }

  tests::TempFolder folder;
  std::unique_ptr<Drive> placeholder;
  Stand stand;
  Drive* drive;
  CommandMaker commands;
  uint32_t sector = 0;
};

TEST_P(DriveConformance, ReturnsWhatWasWrittenAtBothEnds) {
  Bytes first = dataOf(1, 8);
  Bytes end = dataOf(2, 1);
  expectGood(commands.run(CommandKind::write, 0, 8, &first));
  expectGood(commands.run(CommandKind::write, last(), 1, &end));
  EXPECT_EQ(commands.read(0, 8), first);
  EXPECT_EQ(commands.read(last(), 1), end);
  EXPECT_EQ(commands.read(3, 2), Bytes(first.begin() + 3 * sector, first.begin() + 5 * sector));
}

TEST_P(DriveConformance, AReadSaysHowMuchItBrought) {
  Bytes data(uint64_t{5} * sector);
  const DriveCompletion completion = commands.run(CommandKind::read, 7, 5, &data);
  expectGood(completion);
  EXPECT_EQ(completion.bytesTransferred, uint64_t{5} * sector);
}

TEST_P(DriveConformance, ACompletionCarriesItsCommandsTagAndId) {
  Bytes data = dataOf(1, 1);
  DriveCommand command = commands.make(CommandKind::write, 1, 1, &data);
  command.tag = 17;
  command.id = 0x1234567890;
  const DriveCompletion completion = commands.run(command);
  EXPECT_EQ(completion.tag, 17U);
  EXPECT_EQ(completion.id, 0x1234567890U);
}

TEST_P(DriveConformance, AnAtomicWriteAndForcedUnitAccessWriteToo) {
  Bytes data = dataOf(3, 6);
  DriveCommand atomic = commands.make(CommandKind::writeAtomic, 20, 6, &data);
  const AtomicSegments segments = drive->capabilities().atomicSegments;
  atomic.atomicBound = segments.limited() ? std::min(4U, segments.mostBlocks) : 4;
  atomic.forceUnitAccess = true;
  if (!drive->capabilities().atomicWrite) {
    EXPECT_EQ(senseNumber(commands.run(atomic)), 0x052000U);
    atomic.kind = CommandKind::write;
  }
  expectGood(commands.run(atomic));
  EXPECT_EQ(commands.read(20, 6), data);
}

TEST_P(DriveConformance, AWriteSameRepeatsItsBlock) {
  Bytes around = dataOf(4, 12);
  Bytes one = dataOf(5, 1);
  commands.run(CommandKind::write, 10, 12, &around);
  expectGood(commands.run(CommandKind::writeSame, 12, 7, &one));
  const Bytes found = commands.read(10, 12);
  for (uint32_t i = 0; i < 12; ++i) {
    const Bytes& source = i >= 2 && i < 9 ? one : around;
    const uint64_t offset = i >= 2 && i < 9 ? 0 : i * sector;
    EXPECT_EQ(std::memcmp(&found[i * sector], &source[offset], sector), 0) << "block " << i;
  }
}

TEST_P(DriveConformance, TrimmedBlocksReadAsZerosAndTheirNeighboursStay) {
  if (!drive->capabilities().trim) {
    EXPECT_EQ(senseNumber(commands.run(CommandKind::trim, 43, 13)), 0x052000U);
    return;
  }
  Bytes data = dataOf(6, 24);
  commands.run(CommandKind::write, 40, 24, &data);
  expectGood(commands.run(CommandKind::trim, 43, 13));
  std::fill(data.begin() + 3 * sector, data.begin() + 16 * sector, uint8_t{0});
  EXPECT_EQ(commands.read(40, 24), data);
}

TEST_P(DriveConformance, AVerifySaysEqualOrNamesTheFirstBlockThatDiffers) {
  Bytes data = dataOf(7, 9);
  commands.run(CommandKind::write, 60, 9, &data);
  expectGood(commands.run(CommandKind::verify, 60, 9, &data));
  data[5 * sector + sector - 1] ^= 1;
  data[7 * sector] ^= 1;
  const DriveCompletion differs = commands.run(CommandKind::verify, 60, 9, &data);
  EXPECT_EQ(differs.status, scsi_status::checkCondition);
  EXPECT_EQ(senseNumber(differs), 0x0E1D00U);
  expectNames(differs, 65);
}

TEST_P(DriveConformance, AStepOfTwoLeavesTheBlocksBetween) {
  Bytes before = dataOf(8, 10);
  Bytes data = dataOf(9, 4);
  commands.run(CommandKind::write, 80, 10, &before);
  DriveCommand write = commands.make(CommandKind::write, 81, 4, &data);
  write.lbaStep = 2;
  expectGood(commands.run(write));
  Bytes expected = before;
  for (uint32_t i = 0; i < 4; ++i) {
    std::memcpy(&expected[(1 + 2 * i) * sector], &data[i * sector], sector);
  }
  EXPECT_EQ(commands.read(80, 10), expected);

  Bytes found(uint64_t{4} * sector);
  DriveCommand read = commands.make(CommandKind::read, 81, 4, &found);
  read.lbaStep = 2;
  EXPECT_EQ(commands.run(read).bytesTransferred, uint64_t{4} * sector);
  EXPECT_EQ(found, data);

  DriveCommand verify = commands.make(CommandKind::verify, 81, 4, &data);
  verify.lbaStep = 2;
  expectGood(commands.run(verify));
  data[2 * sector] ^= 1;
  const DriveCompletion differs = commands.run(verify);
  EXPECT_EQ(senseNumber(differs), 0x0E1D00U);
  expectNames(differs, 85);

  if (!drive->capabilities().trim) {
    return;
  }
  DriveCommand trim = commands.make(CommandKind::trim, 80, 5);
  trim.lbaStep = 2;
  expectGood(commands.run(trim));
  for (uint32_t i = 0; i < 10; i += 2) {
    std::fill_n(expected.begin() + i * sector, sector, uint8_t{0});
  }
  EXPECT_EQ(commands.read(80, 10), expected);
}

TEST_P(DriveConformance, EndToEndBytesAreLeftOut) {
  Bytes data = randomBytes(10, uint64_t{3} * (sector + 8));
  DriveCommand write = commands.make(CommandKind::write, 100, 3, &data);
  write.trailerBytes = 8;
  expectGood(commands.run(write));
  const Bytes found = commands.read(100, 3);
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(std::memcmp(&found[i * sector], &data[i * (sector + 8)], sector), 0);
  }
  DriveCommand verify = commands.make(CommandKind::verify, 100, 3, &data);
  verify.trailerBytes = 8;
  expectGood(commands.run(verify));
  data[sector + 8] ^= 1;
  expectNames(commands.run(verify), 101);

  Bytes one = randomBytes(11, sector + 8);
  DriveCommand same = commands.make(CommandKind::writeSame, 100, 2, &one);
  same.trailerBytes = 8;
  expectGood(commands.run(same));
  EXPECT_EQ(std::memcmp(commands.read(101, 1).data(), one.data(), sector), 0);
}

TEST_P(DriveConformance, DataMayStandAnywhereInMemory) {
  Bytes memory = randomBytes(12, uint64_t{4} * sector + 3);
  DriveCommand write = commands.make(CommandKind::write, 120, 4);
  write.data = memory.data() + 3;
  write.dataBytes = uint64_t{4} * sector;
  expectGood(commands.run(write));
  EXPECT_EQ(commands.read(120, 4), Bytes(memory.begin() + 3, memory.end()));
  Bytes target(uint64_t{4} * sector + 1, 0xEE);
  DriveCommand read = commands.make(CommandKind::read, 120, 4);
  read.data = target.data() + 1;
  read.dataBytes = uint64_t{4} * sector;
  expectGood(commands.run(read));
  EXPECT_EQ(std::memcmp(target.data() + 1, memory.data() + 3, read.dataBytes), 0);
  EXPECT_EQ(target[0], 0xEE);
}

TEST_P(DriveConformance, AFlushIsGood) { expectGood(commands.run(CommandKind::syncCache, 0, 0)); }

TEST_P(DriveConformance, ManyCommandsAtOnceAreAnsweredOnceEach) {
  std::vector<Bytes> data;
  for (uint32_t i = 0; i < conformanceDepth; ++i) {
    data.push_back(dataOf(100 + i, 2));
  }
  for (uint32_t i = 0; i < conformanceDepth; ++i) {
    DriveCommand command = commands.make(CommandKind::write, 200 + 2 * i, 2, &data[i]);
    command.tag = i;
    drive->submit(command);
  }
  std::set<uint32_t> tags;
  DriveCompletion completion;
  while (drive->poll(completion, true)) {
    expectGood(completion);
    EXPECT_TRUE(tags.insert(completion.tag).second);
  }
  EXPECT_EQ(tags.size(), conformanceDepth);
  for (uint32_t i = 0; i < conformanceDepth; ++i) {
    EXPECT_EQ(commands.read(200 + 2 * i, 2), data[i]);
  }
}

TEST_P(DriveConformance, SleepingOnItLosesNothing) {
  std::array<Bytes, 4> data;
  for (uint32_t i = 0; i < 4; ++i) {
    data.at(i) = dataOf(i, 4);
    DriveCommand command = commands.make(i == 3 ? CommandKind::write : CommandKind::read, i * 4, 4, &data.at(i));
    command.tag = i;
    drive->submit(command);
  }
  DriveCompletion completion;
  std::set<uint32_t> ended;
  while (ended.size() < 4) {
    while (drive->poll(completion, false)) {
      EXPECT_TRUE(ended.insert(completion.tag).second);
    }
    if (ended.size() < 4 && !drive->waitUpTo(10'000'000)) {
      std::this_thread::yield();
    }
  }
  EXPECT_FALSE(drive->waitUpTo(60'000'000)) << "nothing is under way that could end it";
}

TEST_P(DriveConformance, WithNothingOutstandingThereIsNothingToWaitFor) {
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, false));
  EXPECT_FALSE(drive->poll(completion, true));
}

TEST_P(DriveConformance, ImpossibleCommandsAreRefusedAndChangeNothing) {
  Bytes old = dataOf(13, 2);
  commands.run(CommandKind::write, last() - 1, 2, &old);
  Bytes data = dataOf(14, 3);
  EXPECT_EQ(senseNumber(commands.run(CommandKind::write, last() - 1, 3, &data)), 0x052100U);
  EXPECT_EQ(senseNumber(commands.run(CommandKind::read, last() + 1, 3, &data)), 0x052100U);
  const bool trims = drive->capabilities().trim;
  EXPECT_EQ(senseNumber(commands.run(CommandKind::trim, ~uint64_t{0}, 3)), trims ? 0x052100U : 0x052000U);
  EXPECT_EQ(senseNumber(commands.run(CommandKind::write, last() - 1, 2, &data)), 0x052400U);
  DriveCommand skipping = commands.make(CommandKind::write, last() - 3, 3, &data);
  skipping.lbaStep = 2;
  EXPECT_EQ(commands.run(skipping).status, scsi_status::checkCondition);
  EXPECT_EQ(commands.read(last() - 1, 2), old);
}

TEST_P(DriveConformance, NoBlocksAreNoWork) {
  Bytes nothing;
  expectGood(commands.run(CommandKind::write, 5, 0, &nothing));
  expectGood(commands.run(CommandKind::read, 5, 0, &nothing));
  if (drive->capabilities().trim) {
    expectGood(commands.run(CommandKind::trim, 5, 0));
  }
}

TEST_P(DriveConformance, AResetDropsWhatIsOutstanding) {
  std::vector<Bytes> data;
  for (uint32_t i = 0; i < 16; ++i) {
    data.push_back(dataOf(300 + i, 4));
  }
  for (uint32_t i = 0; i < 16; ++i) {
    drive->submit(commands.make(CommandKind::write, 300 + 4 * i, 4, &data[i]));
  }
  drive->reset();
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, true));
  Bytes again = dataOf(400, 4);
  expectGood(commands.run(CommandKind::write, 300, 4, &again));
  EXPECT_EQ(commands.read(300, 4), again);
}

TEST_P(DriveConformance, AtomicWritesAreWholeInEverySegmentAfterAnInterruption) {
  if (!drive->capabilities().atomicWrite) {
    Bytes data = dataOf(500, 8);
    EXPECT_EQ(senseNumber(commands.run(CommandKind::writeAtomic, 400, 8, &data)), 0x052000U);
    return;
  }
  const AtomicSegments& segments = drive->capabilities().atomicSegments;
  const uint32_t bound = segments.limited() ? std::min(4U, segments.mostBlocks) : 4;
  const uint64_t segmentBytes = uint64_t{bound} * sector;
  for (uint64_t round = 0; round < 30; ++round) {
    Bytes old = dataOf(500 + 2 * round, 8);
    Bytes fresh = dataOf(501 + 2 * round, 8);
    commands.run(CommandKind::write, 400, 8, &old);
    commands.run(CommandKind::syncCache, 0, 0);
    DriveCommand atomic = commands.make(CommandKind::writeAtomic, 400, 8, &fresh);
    atomic.atomicBound = bound;
    drive->submit(atomic);
    drive->capabilities().powerToggle ? drive->powerCycle() : drive->reset();
    const Bytes found = commands.read(400, 8);
    for (uint32_t segment = 0; segment < 8 / bound; ++segment) {
      const uint64_t offset = segment * segmentBytes;
      const bool isOld = std::memcmp(&found[offset], &old[offset], segmentBytes) == 0;
      const bool isNew = std::memcmp(&found[offset], &fresh[offset], segmentBytes) == 0;
      EXPECT_TRUE(isOld || isNew) << "round " << round << ", segment " << segment;
    }
  }
}

/// A random sequence of commands that never conflict, against an array.
TEST_P(DriveConformance, AgreesWithAnArrayOverRandomCommands) {
  constexpr uint32_t slots = 16;
  constexpr uint32_t slotBlocks = 20;
  Random random(77);
  Bytes model(uint64_t{slots} * slotBlocks * sector);
  commands.run(CommandKind::write, 0, slots * slotBlocks, &model);
  for (int round = 0; round < 40; ++round) {
    // One command in each slot of LBAs, all outstanding together.
    std::vector<Bytes> data(slots);
    std::vector<DriveCommand> sent;
    for (uint32_t slot = 0; slot < slots; ++slot) {
      auto kind = static_cast<CommandKind>(random.below(5));
      const DriveCapabilities& can = drive->capabilities();
      if ((kind == CommandKind::writeAtomic && !can.atomicWrite) || (kind == CommandKind::trim && !can.trim)) {
        kind = CommandKind::write;
      }
      const auto blocks = static_cast<uint32_t>(random.between(1, slotBlocks / 2));
      const uint64_t lba = uint64_t{slot} * slotBlocks + random.below(slotBlocks - blocks + 1);
      data[slot] = dataOf(random.next(), kind == CommandKind::writeSame ? 1 : blocks);
      DriveCommand command = commands.make(kind, lba, blocks, kind == CommandKind::trim ? nullptr : &data[slot]);
      command.tag = slot;
      command.atomicBound = drive->capabilities().atomicSegments.limited() ? 1 : 0;
      sent.push_back(command);
      drive->submit(command);
    }
    DriveCompletion completion;
    while (drive->poll(completion, true)) {
      expectGood(completion);
      const DriveCommand& command = sent[completion.tag];
      uint8_t* place = &model[command.lba * sector];
      for (uint32_t i = 0; i < command.blocks; ++i) {
        if (command.kind == CommandKind::read) {
          ASSERT_EQ(std::memcmp(place + i * sector, command.data + i * sector, sector), 0);
        } else if (command.kind == CommandKind::trim) {
          std::memset(place + i * sector, 0, sector);
        } else {
          const uint64_t source = command.kind == CommandKind::writeSame ? 0 : i * sector;
          std::memcpy(place + i * sector, command.data + source, sector);
        }
      }
    }
  }
  EXPECT_EQ(commands.read(0, slots * slotBlocks), model);
}

std::vector<Kind> allKinds() {
  std::vector<Kind> kinds;
  for (const auto& some : {simKinds(), fileKinds(), blockKinds(), scsiKinds(), iscsiKinds(), nvmeKinds()}) {
    kinds.insert(kinds.end(), some.begin(), some.end());
  }
  return kinds;
}

INSTANTIATE_TEST_SUITE_P(Given, DriveConformance, testing::ValuesIn(givenKinds()),
                         [](const auto& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(Every, DriveConformance, testing::ValuesIn(allKinds()),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace corvane::host
