// Zoned namespaces behind the drive: order of writes, ends of zones, resets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "host/drive/nvme/NvmeDrive.h"
#include "tests/drive/CommandMaker.h"
#include "tests/drive/nvme/FakeNvme.h"

namespace corvane::host {
namespace {

constexpr uint32_t depth = 16;
constexpr uint64_t zone = 64;

class NvmeZones : public testing::TestWithParam<uint64_t> {
 protected:
  NvmeZones() {
    auto passthrough = std::make_unique<FakeNvme>(
        FakeNvmeSettings{.blocks = 1024, .commandSet = 2, .zoneBlocks = zone, .kernelBytes = 4096, .seed = GetParam()});
    fake = passthrough.get();
    drive = std::make_unique<NvmeDrive>(std::move(passthrough), NvmeOptions{}, "/dev/ng0n1", depth);
    commands.emplace(*drive);
  }

  /// The last blocks of one, from that block on, and three of the other.
  static Bytes joined(const Bytes& one, uint64_t from, const Bytes& other) {
    Bytes bytes(one.size() - from * 512 + 3 * 512);
    std::copy(one.begin() + static_cast<std::ptrdiff_t>(from * 512), one.end(), bytes.begin());
    std::copy_n(other.begin(), 3 * 512, bytes.end() - 3 * 512);
    return bytes;
  }

  FakeNvme* fake = nullptr;
  std::unique_ptr<NvmeDrive> drive;
  std::optional<CommandMaker> commands;
};

/// Has no memory for a command while `full`.
class FullNvme : public FakeNvme {
 public:
  using FakeNvme::FakeNvme;
  void submit(const NvmeRequest& request) override {
    if (full) {
      throw std::bad_alloc();
    }
    FakeNvme::submit(request);
  }
  bool full = false;
};

TEST(NvmeZonesOfAFullMachine, AWriteThatCannotBeStartedHoldsUpNoOther) {
  auto passthrough = std::make_unique<FullNvme>(FakeNvmeSettings{.blocks = 1024, .commandSet = 2, .zoneBlocks = zone});
  FullNvme* const fake = passthrough.get();
  NvmeDrive drive(std::move(passthrough), NvmeOptions{}, "/dev/ng0n1", 2);
  CommandMaker commands(drive);
  Bytes data(512);
  fake->full = true;
  for (int i = 0; i < 3; ++i) {
    EXPECT_THROW(drive.submit(commands.make(CommandKind::write, 0, 1, &data)), std::bad_alloc);
  }
  fake->full = false;
  EXPECT_EQ(commands.run(CommandKind::write, 0, 1, &data).status, scsi_status::good);
  EXPECT_EQ(fake->writePointer(0), 1U);
}

TEST_P(NvmeZones, WritesOfAZoneReachTheDriveInTheOrderInWhichTheyCame) {
  std::vector<Bytes> data;
  for (uint64_t i = 0; i < depth; ++i) {
    data.push_back(randomBytes(i, 12 * 512));
  }
  // Four zones in turn, each with four writes of two commands each.
  for (uint64_t i = 0; i < depth; ++i) {
    drive->submit(commands->make(CommandKind::write, i % 4 * zone + i / 4 * 12, 12, &data[i]));
  }
  DriveCompletion completion;
  uint32_t ends = 0;
  for (; drive->poll(completion, true); ++ends) {
    EXPECT_EQ(completion.status, scsi_status::good);
  }
  EXPECT_EQ(ends, depth);
  for (uint64_t i = 0; i < depth; ++i) {
    EXPECT_EQ(commands->read(i % 4 * zone + i / 4 * 12, 12), data[i]);
  }
}

TEST_P(NvmeZones, AWriteThatFailsLetsTheNextOneOfItsZoneGo) {
  Bytes first(512);
  Bytes second(512);
  fake->failNext(0x01, 0x280);
  drive->submit(commands->make(CommandKind::write, 0, 1, &first));
  drive->submit(commands->make(CommandKind::write, 1, 1, &second));
  DriveCompletion completion;
  ASSERT_TRUE(drive->poll(completion, true));
  EXPECT_EQ(senseNumber(completion), 0x030300U);
  ASSERT_TRUE(drive->poll(completion, true));
  EXPECT_EQ(senseNumber(completion), 0x052104U);
}

TEST_P(NvmeZones, AResetDropsAlsoTheWritesThatWereStillWaiting) {
  Bytes data(512);
  for (uint64_t i = 0; i < depth; ++i) {
    drive->submit(commands->make(CommandKind::write, i, 1, &data));
  }
  drive->reset();
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, true));
  EXPECT_LE(fake->writePointer(0), 1U);
  EXPECT_EQ(commands->run(CommandKind::zoneReset, 0, zone).status, scsi_status::good);
  EXPECT_EQ(commands->run(CommandKind::write, 0, 1, &data).status, scsi_status::good);
}

TEST_P(NvmeZones, AReadGoesOverTheEndOfAZoneInPieces) {
  Bytes first = randomBytes(1, 8 * 512);
  Bytes second = randomBytes(2, 8 * 512);
  for (uint64_t lba = 0; lba < zone; lba += 8) {
    commands->run(CommandKind::write, lba, 8, &first);
  }
  commands->run(CommandKind::write, zone, 8, &second);
  const Bytes expected = joined(first, 3, second);
  EXPECT_EQ(commands->read(zone - 5, 8), expected);
}

TEST_P(NvmeZones, AVerifyGoesOverTheEndOfAZoneInPieces) {
  Bytes first = randomBytes(1, zone * 512);
  Bytes second = randomBytes(2, 8 * 512);
  commands->run(CommandKind::write, 0, zone, &first);
  commands->run(CommandKind::write, zone, 8, &second);
  Bytes expected = joined(first, zone - 5, second);
  EXPECT_EQ(commands->run(CommandKind::verify, zone - 5, 8, &expected).status, scsi_status::good);
  expected[6 * 512] ^= 1;
  EXPECT_EQ(senseInformation(commands->run(CommandKind::verify, zone - 5, 8, &expected)), zone + 1);
}

TEST_P(NvmeZones, ZonesAreResetWholeAndOneByOne) {
  Bytes data = randomBytes(1, 8 * 512);
  for (uint64_t i = 0; i < 3; ++i) {
    commands->run(CommandKind::write, i * zone, 8, &data);
  }
  fake->sent.clear();
  EXPECT_EQ(commands->run(CommandKind::zoneReset, 0, 2 * zone).status, scsi_status::good);
  ASSERT_EQ(fake->sent.size(), 2U);
  EXPECT_EQ(fake->sent[1].dwords[0], zone);
  EXPECT_EQ(commands->read(0, 8), Bytes(8 * 512));
  EXPECT_EQ(commands->read(2 * zone, 8), data);
  EXPECT_EQ(senseNumber(commands->run(CommandKind::zoneReset, 0, zone - 1)), 0x052400U);
  EXPECT_EQ(senseNumber(commands->run(CommandKind::zoneReset, 1, zone)), 0x052400U);
}

TEST_P(NvmeZones, WhatTheDriveSaysOfWrongWritesIsPassedOn) {
  Bytes data(8 * 512);
  EXPECT_EQ(senseNumber(commands->run(CommandKind::write, 3, 8, &data)), 0x052104U);
  for (uint64_t lba = 0; lba < zone - 8; lba += 8) {
    commands->run(CommandKind::write, lba, 8, &data);
  }
  Bytes four(4 * 512);
  commands->run(CommandKind::write, zone - 8, 4, &four);
  EXPECT_EQ(senseNumber(commands->run(CommandKind::write, zone - 4, 8, &data)), 0x052105U);
}

TEST_P(NvmeZones, ATrimIsNotOffered) { EXPECT_EQ(senseNumber(commands->run(CommandKind::trim, 0, 8)), 0x052000U); }

INSTANTIATE_TEST_SUITE_P(Orders, NvmeZones, testing::Range<uint64_t>(1, 6));

}  // namespace
}  // namespace corvane::host
