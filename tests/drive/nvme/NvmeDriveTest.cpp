#include "host/drive/nvme/NvmeDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "host/drive/DriveError.h"
#include "host/ostra/DeviceTable.h"
#include "tests/drive/CommandMaker.h"
#include "tests/drive/nvme/FakeNvme.h"

namespace corvane::host {
namespace {

using testing::HasSubstr;

constexpr uint32_t depth = 8;

class NvmeDriveTest : public testing::Test {
 protected:
  void open(const FakeNvmeSettings& settings = {}, const NvmeOptions& options = {}) {
    auto passthrough = std::make_unique<FakeNvme>(settings);
    fake = passthrough.get();
    drive = std::make_unique<NvmeDrive>(std::move(passthrough), options, "/dev/nvme7n1", depth);
    commands.emplace(*drive);
  }

  std::vector<int> sentOpcodes() const {
    std::vector<int> opcodes;
    for (const NvmeCommand& command : fake->sent) {
      opcodes.push_back(command.opcode);
    }
    return opcodes;
  }

  FakeNvme* fake = nullptr;
  std::unique_ptr<NvmeDrive> drive;
  std::optional<CommandMaker> commands;
};

TEST_F(NvmeDriveTest, DescribesTheNamespaceAndHowItIsReached) {
  open();
  EXPECT_EQ(drive->description(),
            "NVMe /dev/nvme7n1, Fake Controller, serial SERIAL7, firmware 1.0, 8 MiB, 512-byte blocks, volatile write "
            "cache, verify by Compare, trim by deallocating Write Zeroes, atomic writes of up to 8 blocks, fake "
            "controller");
}

TEST_F(NvmeDriveTest, ForcedUnitAccessGoesToTheDrive) {
  open();
  Bytes data(512);
  DriveCommand write = commands->make(CommandKind::write, 5, 1, &data);
  write.forceUnitAccess = true;
  commands->run(write);
  commands->run(CommandKind::write, 5, 1, &data);
  ASSERT_EQ(fake->sent.size(), 2U);
  EXPECT_EQ(fake->sent[0].dwords[2], 0x40000000U);
  EXPECT_EQ(fake->sent[1].dwords[2], 0U);
}

TEST_F(NvmeDriveTest, EverySegmentOfAnAtomicWriteIsACommandOfItsOwn) {
  open();
  Bytes data = randomBytes(1, 16 * 512);
  DriveCommand write = commands->make(CommandKind::writeAtomic, 8, 16, &data);
  write.atomicBound = 8;
  commands->run(write);
  ASSERT_EQ(fake->sent.size(), 2U);
  EXPECT_EQ(fake->sent[0].dwords[0], 8U);
  EXPECT_EQ(fake->sent[0].dwords[2], 7U);
  EXPECT_EQ(fake->sent[1].dwords[0], 16U);
}

TEST_F(NvmeDriveTest, WhatIsTooLongForOneCommandIsCut) {
  open({.mdts = 1, .wzsl = 2});
  Bytes data = randomBytes(1, 40 * 512);
  commands->run(CommandKind::write, 0, 40, &data);
  EXPECT_EQ(fake->sent.size(), 3U);
  EXPECT_EQ(commands->read(0, 40), data);
  EXPECT_EQ(fake->sent.size(), 6U);
  EXPECT_EQ(commands->run(CommandKind::trim, 0, 40).status, scsi_status::good);
  EXPECT_EQ(fake->sent.size(), 8U);
  EXPECT_EQ(commands->read(0, 40), Bytes(40 * 512));
}

TEST_F(NvmeDriveTest, AVerifyThatDiffersIsReadToFindOutWhere) {
  open({.mdts = 1});
  Bytes data = randomBytes(1, 40 * 512);
  commands->run(CommandKind::write, 0, 40, &data);
  fake->sent.clear();
  EXPECT_EQ(commands->run(CommandKind::verify, 0, 40, &data).status, scsi_status::good);
  EXPECT_THAT(sentOpcodes(), testing::ElementsAre(5, 5, 5));
  fake->sent.clear();
  fake->sector(21)[3] ^= 1;
  fake->sector(23)[3] ^= 1;
  const DriveCompletion completion = commands->run(CommandKind::verify, 0, 40, &data);
  EXPECT_EQ(senseNumber(completion), 0x0E1D00U);
  EXPECT_EQ(senseInformation(completion), 21U);
  EXPECT_THAT(sentOpcodes(), testing::ElementsAre(5, 5, 2));
}

TEST_F(NvmeDriveTest, AMiscompareThatNoReadConfirmsStaysOneWithoutAPlace) {
  open();
  Bytes data = randomBytes(1, 4 * 512);
  commands->run(CommandKind::write, 0, 4, &data);
  fake->failNext(5, 0x285);
  const DriveCompletion completion = commands->run(CommandKind::verify, 0, 4, &data);
  EXPECT_EQ(senseNumber(completion), 0x0E1D00U);
  EXPECT_EQ(senseInformation(completion), ~uint64_t{0});
}

TEST_F(NvmeDriveTest, AReadAfterAMiscompareThatFailsIsAReadError) {
  open();
  Bytes data = randomBytes(1, 4 * 512);
  fake->failNext(2, 0x281);
  EXPECT_EQ(senseNumber(commands->run(CommandKind::verify, 0, 4, &data)), 0x031100U);
}

TEST_F(NvmeDriveTest, WithProtectionTheHostComparesItsBytesToo) {
  open({.metadataBytes = 8, .protectionType = 1});
  Bytes data = randomBytes(1, 4 * 520);
  commands->run(CommandKind::write, 10, 4, &data);
  fake->sector(12)[519] ^= 1;
  EXPECT_EQ(senseInformation(commands->run(CommandKind::verify, 10, 4, &data)), 12U);
}

TEST_F(NvmeDriveTest, SeparateMetadataAreComparedToo) {
  open({.metadataBytes = 8, .metadataExtended = false});
  Bytes data = randomBytes(1, 4 * 520);
  commands->run(CommandKind::write, 10, 4, &data);
  EXPECT_EQ(std::memcmp(fake->sector(11), &data[520], 520), 0);
  EXPECT_EQ(commands->run(CommandKind::verify, 10, 4, &data).status, scsi_status::good);
  fake->sector(13)[515] ^= 1;
  EXPECT_EQ(senseInformation(commands->run(CommandKind::verify, 10, 4, &data)), 13U);
}

TEST_F(NvmeDriveTest, WithoutTransferredProtectionTheReferenceTagIsTheLba) {
  open({.metadataBytes = 8, .protectionType = 1}, {.protection = false});
  Bytes data = randomBytes(1, 3 * 512);
  commands->run(CommandKind::write, 0x1234, 3, &data);
  EXPECT_EQ(fake->sent.back().dwords[2], 0x20000002U);
  EXPECT_EQ(fake->sent.back().dwords[4], 0x1234U);
  const std::array<uint8_t, 8> expected{0, 0, 0, 0, 0x35, 0x12, 0, 0};
  EXPECT_EQ(std::memcmp(fake->sector(0x1235) + 512, expected.data(), expected.size()), 0);
  EXPECT_EQ(commands->read(0x1234, 3), data);
  EXPECT_EQ(fake->sent.back().dwords[2], 0x20000002U);
}

TEST_F(NvmeDriveTest, ADeallocatingTrimIsOneRangeAndNeverCut) {
  open({.wzsl = 1}, {.trim = NvmeOptions::Trim::deallocate});
  commands->run(CommandKind::trim, 100, 1000);
  EXPECT_THAT(sentOpcodes(), testing::ElementsAre(9));
  EXPECT_EQ(commands->read(100, 1), Bytes(512));
  EXPECT_NE(commands->read(99, 1), Bytes(512));
  EXPECT_EQ(commands->read(1099, 1), Bytes(512));
  EXPECT_NE(commands->read(1100, 1), Bytes(512));
}

TEST_F(NvmeDriveTest, AnErrorOfOneBlockNamesItAndOneOfManyDoesNot) {
  open();
  Bytes one(512);
  Bytes two(2 * 512);
  fake->failNext(2, 0x4281);
  const DriveCompletion single = commands->run(CommandKind::read, 9, 1, &one);
  EXPECT_EQ(senseNumber(single), 0x031100U);
  EXPECT_EQ(senseInformation(single), 9U);
  EXPECT_EQ(single.bytesTransferred, 0U);
  fake->failNext(1, 0x280);
  EXPECT_EQ(senseInformation(commands->run(CommandKind::write, 9, 2, &two)), ~uint64_t{0});
}

TEST_F(NvmeDriveTest, AfterAnErrorNothingMoreOfTheCommandIsSent) {
  open({.mdts = 1});
  Bytes data(40 * 512);
  fake->failNext(1, 0x280);
  commands->run(CommandKind::write, 0, 40, &data);
  EXPECT_EQ(fake->sent.size(), 1U);
}

TEST_F(NvmeDriveTest, ACommandThatTheKernelGaveUpIsAborted) {
  open();
  Bytes data(512);
  fake->failNext(2, -EINTR);
  const DriveCompletion completion = commands->run(CommandKind::read, 9, 1, &data);
  EXPECT_EQ(completion.status, scsi_status::aborted);
  EXPECT_EQ(completion.senseBytes, 0U);
}

TEST_F(NvmeDriveTest, ACommandThatTheKernelRefusesEndsTheTest) {
  open();
  Bytes data(512);
  fake->failNext(2, -ENODEV);
  try {
    commands->run(CommandKind::read, 9, 1, &data);
    ADD_FAILURE();
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("NVMe device '/dev/nvme7n1': a read at LBA 9 failed: No such device"));
  }
  // And the drive can still be left in order.
  drive->reset();
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, true));
}

TEST_F(NvmeDriveTest, AResetIsTheControllersAndAnswersToNothing) {
  open();
  std::vector<Bytes> data(depth, Bytes(512));
  for (uint32_t i = 0; i < depth; ++i) {
    drive->submit(commands->make(CommandKind::write, i, 1, &data[i]));
  }
  drive->reset();
  EXPECT_EQ(fake->resets, 1U);
  DriveCompletion completion;
  EXPECT_FALSE(drive->poll(completion, true));
  for (uint32_t i = 0; i < depth; ++i) {
    drive->submit(commands->make(CommandKind::write, i, 1, &data[i]));
  }
  while (drive->poll(completion, true)) {
    EXPECT_EQ(completion.status, scsi_status::good);
  }
}

TEST_F(NvmeDriveTest, WithoutAControllerNodeThereIsNoReset) {
  auto passthrough = std::make_unique<FakeNvme>(FakeNvmeSettings{});
  passthrough->resetRefusal = "the kernel names no controller for it";
  const NvmeDrive other(std::move(passthrough), {}, "/dev/ng0n1", depth);
  EXPECT_FALSE(other.capabilities().deviceReset);
  EXPECT_THAT(other.description(), testing::EndsWith(", no reset (the kernel names no controller for it)"));
}

TEST_F(NvmeDriveTest, WorksByItself) {
  open();
  EXPECT_FALSE(drive->capabilities().worksInCalls);
}

TEST_F(NvmeDriveTest, PowerIsNotOursToCut) {
  open();
  EXPECT_FALSE(drive->capabilities().powerToggle);
  EXPECT_THROW(drive->powerCycle(), std::logic_error);
}

TEST_F(NvmeDriveTest, MoreCommandsThanItWasMadeForAreAProgrammersError) {
  open();
  Bytes data(512);
  for (uint32_t i = 0; i < depth; ++i) {
    drive->submit(commands->make(CommandKind::read, i, 1, &data));
  }
  EXPECT_THROW(drive->submit(commands->make(CommandKind::read, 9, 1, &data)), std::logic_error);
  drive->reset();  // done with the data before they go
}

Bytes vendorBlock(const Bytes& descriptor) {
  Bytes block(24 + descriptor.size());
  block[0] = static_cast<uint8_t>(block.size());
  block[6] = static_cast<uint8_t>(descriptor.size());
  std::copy(descriptor.begin(), descriptor.end(), block.begin() + 24);
  return block;
}

int send(NvmeDrive& drive, const Bytes& block) {
  return drive.sendVendorRequest(block.data(), static_cast<uint32_t>(block.size()));
}

TEST_F(NvmeDriveTest, VendorRequestsAreUnknownUnlessTheyWereAskedFor) {
  open();
  EXPECT_EQ(send(*drive, vendorBlock({0xC0, 1})), VendorDevice::unsupported);
  EXPECT_TRUE(fake->adminCommands.empty());
}

TEST_F(NvmeDriveTest, AVendorRequestIsAnAdminCommandWithTheDescriptorsBytes) {
  open({}, {.vendorAdmin = true});
  EXPECT_EQ(send(*drive, vendorBlock({0xC4, 1, 2, 3, 4, 5, 6})), 0);
  ASSERT_EQ(fake->adminCommands.size(), 1U);
  EXPECT_EQ(fake->adminCommands[0].opcode, 0xC4);
  EXPECT_EQ(fake->adminCommands[0].nsid, 1U);
  EXPECT_EQ(fake->adminCommands[0].dwords[0], 0x04030201U);
  EXPECT_EQ(fake->adminCommands[0].dwords[1], 0x0605U);
  EXPECT_EQ(fake->adminCommands[0].dataBytes, 0U);
  Bytes longest(25, 0xAA);
  longest[0] = 0xFF;
  EXPECT_EQ(send(*drive, vendorBlock(longest)), 0);
  EXPECT_EQ(fake->adminCommands[1].dwords[5], 0xAAAAAAAAU);
}

TEST_F(NvmeDriveTest, AVendorRequestThatIsNoneIsNotSent) {
  open({}, {.vendorAdmin = true});
  EXPECT_EQ(send(*drive, vendorBlock({0xBF, 1})), VendorDevice::unsupported);
  EXPECT_EQ(send(*drive, vendorBlock({})), VendorDevice::badArgument);
  EXPECT_EQ(send(*drive, vendorBlock(Bytes(26, 0xC0))), VendorDevice::badArgument);
  Bytes beyond = vendorBlock({0xC0, 1});
  beyond[6] = 3;
  EXPECT_EQ(send(*drive, beyond), VendorDevice::badArgument);
  EXPECT_TRUE(fake->adminCommands.empty());
}

TEST_F(NvmeDriveTest, AVendorCommandThatFailsIsAnError) {
  open({}, {.vendorAdmin = true});
  fake->adminResult = 0x4001;
  EXPECT_EQ(send(*drive, vendorBlock({0xC0})), VendorDevice::unsupported);
  fake->adminResult = 0x7C0;
  EXPECT_EQ(send(*drive, vendorBlock({0xC0})), 5);
}

}  // namespace
}  // namespace corvane::host
