#include "host/drive/TransferPlan.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

constexpr DriveGeometry geometry{.blocks = 1000, .blockSize = 512};
constexpr uint32_t sector = 512;

class TransferPlanTest : public testing::Test {
 protected:
  DriveCommand make(CommandKind kind, uint64_t lba, uint32_t blocks, uint32_t trailer = 0) {
    DriveCommand command;
    command.kind = kind;
    command.lba = lba;
    command.blocks = blocks;
    command.trailerBytes = trailer;
    data.resize((kind == CommandKind::writeSame ? 1U : blocks) * (sector + trailer));
    for (size_t i = 0; i < data.size(); ++i) {
      data[i] = static_cast<uint8_t>(i / (sector + trailer) + 1);
    }
    command.data = data.data();
    command.dataBytes = data.size();
    return command;
  }

  void expectRun(uint32_t index, uint64_t lba, uint64_t blocks, uint64_t bytes) {
    const TransferPlan::Run run = plan.run(index);
    EXPECT_EQ(run.lba, lba) << "run " << index;
    EXPECT_EQ(run.blocks, blocks) << "run " << index;
    EXPECT_EQ(run.bytes, bytes) << "run " << index;
  }

  std::vector<uint8_t> data;
  TransferPlan plan;
};

TEST_F(TransferPlanTest, AWriteGoesStraightFromTheCommandsMemory) {
  plan.make(make(CommandKind::write, 10, 4), geometry, {});
  ASSERT_EQ(plan.runs(), 1U);
  expectRun(0, 10, 4, 4 * sector);
  EXPECT_EQ(plan.run(0).data, data.data());
  EXPECT_EQ(plan.moves(), TransferPlan::Moves::toDrive);
}

TEST_F(TransferPlanTest, ALongCommandIsCutAtTheLimitAndTheLastRunIsTheRest) {
  plan.make(make(CommandKind::write, 10, 7), geometry, {.mostBlocks = 3});
  ASSERT_EQ(plan.runs(), 3U);
  expectRun(0, 10, 3, 3 * sector);
  expectRun(2, 16, 1, sector);
  EXPECT_EQ(plan.run(2).data, data.data() + 6 * sector);

  plan.make(make(CommandKind::trim, 10, 6), geometry, {.mostBlocks = 3});
  ASSERT_EQ(plan.runs(), 2U);
  expectRun(1, 13, 3, 0);
  EXPECT_EQ(plan.run(1).data, nullptr);
}

TEST_F(TransferPlanTest, AtomicSegmentsBecomeRunsWhereTheTransportKnowsNone) {
  DriveCommand command = make(CommandKind::writeAtomic, 8, 10);
  command.atomicBound = 4;
  plan.make(command, geometry, {});
  EXPECT_EQ(plan.runs(), 1U);
  plan.make(command, geometry, {.splitsAtomicSegments = true});
  ASSERT_EQ(plan.runs(), 3U);
  expectRun(1, 12, 4, 4 * sector);
  expectRun(2, 16, 2, 2 * sector);
}

TEST_F(TransferPlanTest, AStepMakesARunOfEachWrittenBlockButOneReadOfAll) {
  DriveCommand command = make(CommandKind::write, 20, 3);
  command.lbaStep = 2;
  plan.make(command, geometry, {});
  ASSERT_EQ(plan.runs(), 3U);
  expectRun(1, 22, 1, sector);
  EXPECT_EQ(plan.run(1).data, data.data() + sector);

  command = make(CommandKind::read, 20, 3);
  command.lbaStep = 2;
  plan.make(command, geometry, {});
  ASSERT_EQ(plan.runs(), 1U);
  expectRun(0, 20, 5, 5 * sector);
  for (uint8_t i = 0; i < 5; ++i) {
    std::memset(plan.run(0).data + i * sector, 0x40 + i, sector);
  }
  DriveCompletion done;
  plan.finish(done);
  EXPECT_EQ(done.bytesTransferred, 3U * sector);
  EXPECT_EQ(data[0], 0x40);
  EXPECT_EQ(data[sector], 0x42);
  EXPECT_EQ(data[3 * sector - 1], 0x44);
}

TEST_F(TransferPlanTest, TrailersStayBehindAndComeBackAsZeros) {
  plan.make(make(CommandKind::write, 0, 3, 8), geometry, {});
  expectRun(0, 0, 3, 3 * sector);
  EXPECT_EQ(plan.run(0).data[sector], 2);
  EXPECT_EQ(plan.run(0).data[3 * sector - 1], 3);

  plan.make(make(CommandKind::read, 0, 2, 8), geometry, {});
  std::memset(plan.run(0).data, 0x55, 2 * sector);
  DriveCompletion done;
  plan.finish(done);
  EXPECT_EQ(data[sector - 1], 0x55);
  EXPECT_EQ(data[sector], 0);
  EXPECT_EQ(data[sector + 8], 0x55);
  EXPECT_EQ(done.bytesTransferred, 2U * (sector + 8));
}

TEST_F(TransferPlanTest, AWriteSameIsRepeatedHereUnlessTheDriveDoesIt) {
  plan.make(make(CommandKind::writeSame, 30, 5), geometry, {.mostBlocks = 2});
  ASSERT_EQ(plan.runs(), 3U);
  expectRun(0, 30, 2, 2 * sector);
  expectRun(2, 34, 1, sector);
  EXPECT_EQ(plan.run(0).data, plan.run(2).data);
  EXPECT_EQ(std::memcmp(plan.run(0).data, plan.run(0).data + sector, sector), 0);

  plan.make(make(CommandKind::writeSame, 30, 5), geometry, {.repeatsBlock = true});
  ASSERT_EQ(plan.runs(), 1U);
  expectRun(0, 30, 5, sector);
  EXPECT_EQ(plan.run(0).data, data.data());
}

TEST_F(TransferPlanTest, AVerifyIsAReadUnlessTheDriveCompares) {
  plan.make(make(CommandKind::verify, 40, 3), geometry, {.comparesData = true});
  EXPECT_EQ(plan.moves(), TransferPlan::Moves::toDrive);
  EXPECT_EQ(plan.run(0).data, data.data());

  plan.make(make(CommandKind::verify, 40, 3), geometry, {});
  EXPECT_EQ(plan.moves(), TransferPlan::Moves::fromDrive);
  ASSERT_NE(plan.run(0).data, data.data());
  std::memcpy(plan.run(0).data, data.data(), data.size());
  DriveCompletion done;
  plan.finish(done);
  EXPECT_EQ(done.status, scsi_status::good);
  plan.run(0).data[2 * sector] ^= 1;
  plan.finish(done);
  EXPECT_EQ(done.status, scsi_status::checkCondition);
}

TEST_F(TransferPlanTest, MemoryThatTheTransportDoesNotLikeIsReplaced) {
  data.resize(4096);
  DriveCommand command = make(CommandKind::write, 0, 2);
  std::vector<uint8_t> odd(2 * sector + 1);
  command.data = odd.data() + (reinterpret_cast<uintptr_t>(odd.data()) % 2 == 0 ? 1 : 0);
  command.dataBytes = 2 * sector;
  command.data[0] = 0x77;
  plan.make(command, geometry, {.memoryAlignment = 2});
  EXPECT_NE(plan.run(0).data, command.data);
  EXPECT_EQ(plan.run(0).data[0], 0x77);
}

TEST_F(TransferPlanTest, AFlushIsOneRunOfNothing) {
  DriveCommand command;
  command.kind = CommandKind::syncCache;
  plan.make(command, geometry, {.mostBlocks = 4});
  ASSERT_EQ(plan.runs(), 1U);
  expectRun(0, 0, 0, 0);
  EXPECT_EQ(plan.moves(), TransferPlan::Moves::nothing);
}

}  // namespace
}  // namespace corvane::host
