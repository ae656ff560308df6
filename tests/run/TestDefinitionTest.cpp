#include "host/run/TestDefinition.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace corvane::host {
namespace {

TEST(CommandMix, NothingSelectsNothingAndWeightsAreKeptByKind) {
  CommandMix mix = CommandMix::nothing();
  uint32_t weight = 0;
  for (const CommandKind kind : {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                 CommandKind::trim, CommandKind::read, CommandKind::verify}) {
    EXPECT_FALSE(mix.selects(kind));
    mix.setWeight(kind, ++weight);
    EXPECT_EQ(mix.weight(kind), weight);
  }
  EXPECT_EQ(mix.writeKinds(), 4U);
  EXPECT_EQ(mix.verify, 6U);
  EXPECT_EQ(mix.weight(CommandKind::syncCache), 0U);
  EXPECT_THROW(mix.setWeight(CommandKind::syncCache, 1), std::invalid_argument);
}

TEST(DriveDisplayName, IsTheFileNameWithoutKeysAndWithoutOddCharacters) {
  EXPECT_EQ(driveDisplayName("file:/tmp/a/x.img,size=64m", 0), "x.img");
  EXPECT_EQ(driveDisplayName("file:my drive#1", 0), "my_drive_1");
  EXPECT_EQ(driveDisplayName("sim:64m,pi=8", 0), "sim0");
  EXPECT_EQ(driveDisplayName("sim:", 3), "sim3");
  EXPECT_EQ(driveDisplayName("file:dir/", 2), "file2");
  EXPECT_EQ(driveDisplayName("iscsi://a%b,c/d@host/iqn.2026-01.example:disk/1,connect=3", 0),
            "iqn.2026-01.example_disk_1");
  EXPECT_EQ(driveDisplayName("/dev/sdb,trim=zero", 0), "sdb");
  EXPECT_EQ(driveDisplayName("/dev/disk/by-path/pci-0000:00:1f.2-ata-1", 0), "pci-0000_00_1f.2-ata-1");
  EXPECT_EQ(driveDisplayName("nvme:/dev/nvme0n1", 0), "nvme0n1");
}

TEST(DriveDisplayName, LeavesRoomForTheRestOfAFileName) {
  EXPECT_EQ(driveDisplayName("file:/tmp/" + std::string(255, 'f') + ",size=8m", 0), std::string(128, 'f'));
  EXPECT_EQ(driveDisplayName("file:" + std::string(128, 'f'), 0), std::string(128, 'f'));
}

TEST(DeriveSeed, DiffersByPurposeIndexAndSeedAndRepeats) {
  std::set<uint64_t> seeds;
  for (const uint64_t seed : {0U, 1U, 2U}) {
    for (const char* purpose : {"lba", "selector", "agent", "drive"}) {
      for (uint64_t index = 0; index < 8; ++index) {
        seeds.insert(deriveSeed(seed, purpose, index));
      }
    }
  }
  EXPECT_EQ(seeds.size(), 3U * 4U * 8U);
  EXPECT_EQ(deriveSeed(5, "lba", 1), deriveSeed(5, "lba", 1));
}

}  // namespace
}  // namespace corvane::host
