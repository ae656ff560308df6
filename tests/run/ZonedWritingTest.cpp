#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include "tests/run/StepLoopFixture.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeAgent;
using ::testing::IsEmpty;
using testing::nothing;
using testing::StepLoopFixture;

constexpr uint64_t zoneBlocks = 64;

/// A host-managed drive that holds every write against the pointer of its zone when it is submitted.
class ZonedWritingTest : public StepLoopFixture {
 protected:
  ZonedWritingTest() { useZones(4); }

  void useZones(uint64_t count) {
    drive.shape = {.blocks = count * zoneBlocks, .zoneBlocks = zoneBlocks};
    drive.offers.hostManaged = true;
    drive.offers.zoneReset = true;
    settings.hostManaged = true;
    settings.ranges.zones = ZoneMap(drive.shape, 0, drive.shape.blocks);
    settings.ranges.zoneResetEveryCommands = 1'000'000;
    drive.onSubmit = [this](const DriveCommand& command) { check(command); };
  }

  void check(const DriveCommand& command) {
    const uint64_t zone = command.lba / zoneBlocks;
    if (command.kind == CommandKind::write) {
      ASSERT_TRUE(pointers.contains(zone)) << "written before it was reset";
      EXPECT_EQ(command.lba, pointers[zone]);
      pointers[zone] = command.endLba();
      EXPECT_LE(pointers[zone], (zone + 1) * zoneBlocks);
      written.insert(zone);
    } else if (command.kind == CommandKind::zoneReset) {
      EXPECT_EQ(command.lba % zoneBlocks, 0U);
      EXPECT_EQ(command.blocks, zoneBlocks);
      pointers[zone] = command.lba;
      drive.completeTag(command.tag);
    }
    if (atOnce && command.kind != CommandKind::zoneReset) {
      drive.completeTag(command.tag);
    }
  }

  void begin(uint32_t depth = 4) { loop(depth).prepareDrive(); }

  uint64_t writeLba() { return host->variables().u64("WriteLBA"); }
  uint32_t writeBlocks() { return host->variables().u32("WriteXferLength"); }

  /// What an agent does for a plain write.
  void prepareWrite(vdl::DriveThread& thread) {
    host->variables().u64("LBA") = writeLba();
    host->variables().u32("XferLength") = writeBlocks();
    ++host->variables().u32("WriteCmdUsed");
    prepare(thread, CommandKind::write);
  }
  /// Where the write of one step went.
  uint64_t write() {
    uint64_t lba = 0;
    stepWith([&](vdl::DriveThread& thread) {
      lba = writeLba();
      prepareWrite(thread);
    });
    return lba;
  }
  void read(uint64_t lba, uint32_t blocks) {
    stepWith([&](vdl::DriveThread& thread) {
      host->variables().u64("LBA") = lba;
      host->variables().u32("XferLength") = blocks;
      prepare(thread, CommandKind::read);
    });
  }

  bool atOnce = true;
  std::map<uint64_t, uint64_t> pointers;  ///< the drive's
  std::set<uint64_t> written;
};

TEST_F(ZonedWritingTest, EveryZoneIsEmptiedBeforeTheTestAndTheAgentNotTold) {
  begin();
  EXPECT_THAT(pointers, ElementsAre(std::pair(0, 0), std::pair(1, 64), std::pair(2, 128), std::pair(3, 192)));
  EXPECT_EQ(drive.submitted.size(), 4U);
  EXPECT_TRUE(host->variables().ranges("CSZoneReset").empty());
  EXPECT_EQ(counters.zoneResets.get(), 0U);
  EXPECT_EQ(loop().commandsIssued(), 0U);
}

TEST_F(ZonedWritingTest, OtherDrivesAreNotTouched) {
  settings.hostManaged = false;
  begin();
  EXPECT_THAT(drive.submitted, IsEmpty());
  EXPECT_EQ(host->variables().u32("HostManaged"), 0U);
}

TEST_F(ZonedWritingTest, TheAgentIsToldWhereToWrite) {
  begin();
  EXPECT_EQ(host->variables().u32("HostManaged"), 1U);
  const uint64_t first = write();
  EXPECT_EQ(first, 0U);
  uint64_t lba = 0;
  stepWith([&](vdl::DriveThread&) { lba = writeLba(); });
  EXPECT_EQ(lba, 64U) << "the next open zone";
  stepWith([&](vdl::DriveThread&) { EXPECT_EQ(writeLba(), lba) << "stays as long as nothing was written"; });
  EXPECT_EQ(write(), 64U);
  EXPECT_EQ(write(), drive.submitted[4].endLba());
}

TEST_F(ZonedWritingTest, ADriveWithoutRoomIsResetWhateverTheConditionSays) {
  addConditionName(settings.conditions, "allowed");
  setStepCondition(settings.conditions, "zone-reset", "allowed");
  settings.ranges.zoneResetEveryCommands = 1;
  begin();
  uint64_t blocks = 0;
  while (counters.zoneResets.get() == 0 && blocks < 5 * zoneBlocks) {
    write();
    blocks += drive.submitted.back().blocks;
  }
  EXPECT_EQ(counters.zoneResets.get(), 1U);
  EXPECT_GT(blocks, 4 * zoneBlocks) << "not before all zones were full";
}

TEST_F(ZonedWritingTest, LengthsAreThoseOfTheTest) {
  settings.minBlocks = 3;
  settings.maxBlocks = 7;
  begin();
  std::set<uint32_t> lengths;
  for (int i = 0; i < 12; ++i) {  // too few to fill a zone
    stepWith([&](vdl::DriveThread& thread) {
      lengths.insert(writeBlocks());
      prepareWrite(thread);
    });
  }
  EXPECT_GE(*lengths.begin(), 3U);
  EXPECT_LE(*lengths.rbegin(), 7U);
  EXPECT_GE(lengths.size(), 2U);
}

TEST_F(ZonedWritingTest, ThereIsRoomBeforeEveryExecuteHoweverLongTheTestWrites) {
  begin();
  for (int i = 0; i < 2000; ++i) {
    stepWith([&](vdl::DriveThread& thread) {
      vdl::LBARange range{};
      while (host->variables().ranges("CSZoneReset").tryPop(range)) {
        EXPECT_EQ(range.end, range.first + zoneBlocks);
      }
      if (thread.freeTags->peekNextFreeTag() != nothing) {
        EXPECT_LT(pointers[writeLba() / zoneBlocks] % zoneBlocks + writeBlocks(), zoneBlocks + 1);
        prepareWrite(thread);
      }
    });
  }
  EXPECT_GE(counters.zoneResets.get(), 1500 / zoneBlocks);
  EXPECT_GE(loop().commandsIssued(), 1500U);
  EXPECT_EQ(written.size(), 4U);
}

TEST_F(ZonedWritingTest, ZonesAreResetAsOftenAsTheTestSaysToo) {
  settings.ranges.zoneResetEveryCommands = 5;
  begin(8);
  for (int i = 0; i < 20; ++i) {
    write();
    idle();
  }
  EXPECT_GE(counters.zoneResets.get(), 3U);
  EXPECT_LE(counters.zoneResets.get(), 4U);
}

TEST_F(ZonedWritingTest, ReadsOfAllFullZonesAreWaitedForBeforeTheNextWrite) {
  useZones(2);
  settings.minBlocks = settings.maxBlocks = 64;
  begin();
  EXPECT_EQ(write(), 0U);
  atOnce = false;
  read(8, 4);
  uint64_t second = 0;
  stepWith([&](vdl::DriveThread& thread) {
    second = writeLba();
    prepareWrite(thread);
  });
  EXPECT_EQ(second, 64U);
  // No zone has room, and a command is outstanding on each.
  drive.onPoll = [this] {
    if (!drive.waiting.empty() && drive.waiting.back().kind != CommandKind::zoneReset) {
      drive.complete(0);
    }
  };
  std::vector<uint32_t> freeTags;
  for (int i = 0; i < 4 && counters.zoneResets.get() == 0; ++i) {
    stepWith([&](vdl::DriveThread& thread) { freeTags.push_back(thread.freeTags->peekNextFreeTag()); });
  }
  EXPECT_EQ(counters.zoneResets.get(), 1U);
  ASSERT_GE(freeTags.size(), 2U);
  EXPECT_EQ(freeTags.front(), nothing);
  EXPECT_NE(freeTags.back(), nothing);
}

TEST_F(ZonedWritingTest, AWriteElsewhereIsTheAgentsFault) {
  begin();
  agent.onExecute = [this](vdl::DriveThread& thread) {
    prepareWrite(thread);
    host->variables().u64("LBA") += 1;
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(ZonedWritingTest, AWriteThatDoesNotTakeThePublishedPlaceIsTheAgentsFault) {
  begin();
  agent.onExecute = [this](vdl::DriveThread& thread) {
    prepareWrite(thread);
    --host->variables().u32("WriteCmdUsed");
    return 0;
  };
  EXPECT_THROW(loop().step(), std::logic_error);
}

TEST_F(ZonedWritingTest, AZoneWhoseWriteFailedIsNotWrittenUntilItIsReset) {
  useZones(2);
  begin();
  atOnce = false;
  EXPECT_EQ(write(), 0U);
  drive.complete(0, scsi_status::checkCondition);
  idle();
  EXPECT_EQ(write(), 64U) << "the first one was the only open zone";
}

TEST_F(ZonedWritingTest, PointersStayAfterADeviceReset) {
  useZones(2);
  settings.resetEveryCommands = 2;
  begin();
  atOnce = false;
  EXPECT_EQ(write(), 0U);
  const uint64_t second = write();
  ASSERT_EQ(drive.resets, 1);
  EXPECT_GT(second, 0U);
  const uint64_t pointer = pointers[0];
  EXPECT_EQ(write(), pointer) << "behind both writes, which the drive took before the reset";
}

TEST_F(ZonedWritingTest, WritesThatTheDriveNeverTookAreTakenBackAfterADeviceReset) {
  useZones(2);
  settings.minBlocks = settings.maxBlocks = 8;
  settings.resetEveryCommands = 3;
  begin();
  atOnce = false;
  read(2, 4);
  EXPECT_EQ(write(), 0U) << "held back, because the read overlaps it";
  write();
  ASSERT_EQ(drive.resets, 1);
  ASSERT_EQ(pointers[0], 0U);
  EXPECT_EQ(write(), 0U);
}

TEST_F(ZonedWritingTest, WritesOfAZoneReachTheDriveInTheirOrderEvenWhenTheFirstIsHeldBack) {
  useZones(2);
  settings.minBlocks = settings.maxBlocks = 8;
  begin();
  atOnce = false;
  read(2, 4);
  write();  // 0 to 7, held back
  write();  // 8 to 15 would overtake it
  EXPECT_EQ(pointers[0], 0U);
  drive.completeTag(0);
  idle();
  EXPECT_EQ(pointers[0], 8U);
  drive.completeTag(1);
  idle();
  EXPECT_EQ(pointers[0], 16U);
}

}  // namespace
}  // namespace corvane::host
