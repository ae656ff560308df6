#include "host/drive/guard/DeviceUse.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/drive/DriveError.h"
#include "host/drive/guard/Guard.h"
#include "tests/drive/guard/FakeSystem.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeSystem;
using ::testing::IsEmpty;

/// A disk with two partitions that nobody uses.
class DeviceUseTest : public ::testing::Test {
 protected:
  DeviceUseTest() {
    system.disk("sdb", "998:16");
    system.partition("sdb", "sdb1", "998:17");
    system.partition("sdb", "sdb2", "998:18");
  }

  /// The clauses; those about the running system end in "!".
  std::vector<std::string> usesOf(const std::string& device) const {
    std::vector<std::string> clauses;
    for (const DeviceUse& use : findUse("/dev/" + device, system.view())) {
      clauses.push_back(use.text + (use.system ? "!" : ""));
    }
    return clauses;
  }

  void mounted(const std::string& number, const std::string& place, const std::string& kind = "ext4",
               const std::string& source = "/dev/x") {
    lines_ += "40 1 " + number + " / " + place + " rw,relatime shared:1 master:2 - " + kind + " " + source + " rw\n";
    system.mounts(lines_);
  }

  FakeSystem system;

 private:
  std::string lines_;
};

TEST_F(DeviceUseTest, isNothingForADiskThatLiesThere) {
  mounted("998:1", "/mnt");
  EXPECT_THAT(usesOf("sdb"), IsEmpty());
  EXPECT_THAT(usesOf("sdb1"), IsEmpty());
  EXPECT_THAT(usesOf("sdx"), IsEmpty());
}

TEST_F(DeviceUseTest, namesEveryPlaceOfAMount) {
  mounted("998:16", "/mnt/my\\040disk");
  mounted("998:16", "/b");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("it is mounted at '/mnt/my disk', '/b'"));
  mounted("998:16", "/c");
  mounted("998:16", "/d");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("it is mounted at '/mnt/my disk', '/b', '/c' and 1 more places"));
}

TEST_F(DeviceUseTest, isThatOfAPartitionToo) {
  mounted("998:17", "/mnt");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("its partition sdb1 is mounted at '/mnt'"));
  EXPECT_THAT(usesOf("sdb1"), ElementsAre("it is mounted at '/mnt'"));
  EXPECT_THAT(usesOf("sdb2"), IsEmpty()) << "a neighbour is not touched";
}

TEST_F(DeviceUseTest, ofAPartitionIsThatOfItsDiskToo) {
  mounted("998:16", "/mnt");
  EXPECT_THAT(usesOf("sdb2"), ElementsAre("the disk sdb that it is part of is mounted at '/mnt'"));
}

TEST_F(DeviceUseTest, standsUnderTheSystemWithItsRootAndBoot) {
  mounted("998:17", "/boot/efi");
  mounted("998:18", "/");
  EXPECT_THAT(usesOf("sdb"),
              ElementsAre("its partition sdb1 is mounted at '/boot/efi'!", "its partition sdb2 is mounted at '/'!"));
}

TEST_F(DeviceUseTest, doesNotTakeOtherPlacesForTheSystem) {
  mounted("998:17", "/bootable");
  mounted("998:18", "/srv/usr");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("its partition sdb1 is mounted at '/bootable'",
                                         "its partition sdb2 is mounted at '/srv/usr'"));
}

TEST_F(DeviceUseTest, followsDeviceMapperToTheSystem) {
  system.holder("sdb2", "dm-0");
  system.disk("dm-0", "997:0");
  system.file("/sys/class/block/dm-0/dm/name", "vg-root\n");
  system.file("/sys/class/block/dm-0/dm/uuid", "LVM-0123\n");
  mounted("997:0", "/");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("the LVM volume 'vg-root' (dm-0) uses its partition sdb2",
                                         "the LVM volume 'vg-root' (dm-0) is mounted at '/'!"));
}

TEST_F(DeviceUseTest, followsDevicesThatStandOnEachOther) {
  system.holder("sdb", "md0");
  system.disk("md0", "9:0");
  system.file("/sys/class/block/md0/md/level", "raid1\n");
  system.holder("md0", "dm-1");
  system.disk("dm-1", "997:1");
  system.file("/sys/class/block/dm-1/dm/name", "secret\n");
  system.file("/sys/class/block/dm-1/dm/uuid", "CRYPT-LUKS2-0123\n");
  mounted("997:1", "/srv");
  EXPECT_THAT(usesOf("sdb"),
              ElementsAre("the RAID array md0 uses it", "the encrypted volume 'secret' (dm-1) uses the RAID array md0",
                          "the encrypted volume 'secret' (dm-1) is mounted at '/srv'"));
  EXPECT_THAT(usesOf("sdb1").front(), "the RAID array md0 uses the disk sdb that it is part of");
}

TEST_F(DeviceUseTest, namesALoopDeviceOnTop) {
  system.disk("loop7", "7:7");
  system.file("/sys/class/block/loop7/loop/backing_file", "/dev/sdb1\n");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("the loop device loop7 (of '/dev/sdb1') uses its partition sdb1"));
}

TEST_F(DeviceUseTest, takesActiveSwapSpaceForTheSystem) {
  system.file("/proc/swaps", "Filename\tType\tSize\tUsed\tPriority\n/dev/sdb2   partition\t1000\t0\t-2\n");
  EXPECT_THAT(usesOf("sdb"), ElementsAre("its partition sdb2 is active swap space!"));
  EXPECT_THAT(usesOf("sdb1"), IsEmpty());
}

TEST_F(DeviceUseTest, namesABtrfsThatIsMountedByAnotherDevice) {
  system.disk("sdc", "998:32");
  for (const char* member : {"sdb1", "sdc"}) {
    system.file(std::string("/sys/fs/btrfs/6e0f/devices/") + member + "/dev", "");
  }
  system.file("/sys/fs/btrfs/features/x", "");
  mounted("0:44", "/srv", "btrfs", "/dev/sdc");
  EXPECT_THAT(usesOf("sdb"),
              ElementsAre("its partition sdb1 is one of the 2 devices of the mounted Btrfs 6e0f, at '/srv'"));
  EXPECT_THAT(usesOf("sdb2"), IsEmpty());
}

TEST_F(DeviceUseTest, takesABtrfsOfAnUnknownSourceForTheSystem) {
  system.file("/sys/fs/btrfs/6e0f/devices/sdb1/dev", "");
  mounted("0:44", "/", "btrfs", "/dev/root");
  EXPECT_THAT(usesOf("sdb1"), ElementsAre("it is one of the 1 devices of the mounted Btrfs 6e0f, at '/'!"));
}

TEST_F(DeviceUseTest, ofTheSystemIsRefusedInSpiteOfOverwrite) {
  mounted("998:18", "/usr");
  mounted("998:17", "/mnt");
  const std::string text =
      "drive '/dev/sdb' carries the running system: its partition sdb2 is mounted at '/usr'; name another drive, this "
      "one is refused with --overwrite too";
  for (const Overwriting overwriting : {Overwriting::ofEmptyDrives, Overwriting::ofAnything}) {
    try {
      refuseDeviceInUse("/dev/sdb", "/dev/sdb", overwriting, system.view());
      ADD_FAILURE() << "accepted";
    } catch (const DriveError& error) {
      EXPECT_EQ(error.what(), text);
    }
  }
  EXPECT_THAT(refuseDeviceInUse("/dev/sdb", "/dev/sdb", Overwriting::nothing, system.view()),
              ElementsAre("its partition sdb1 is mounted at '/mnt'", "its partition sdb2 is mounted at '/usr'"));
}

TEST_F(DeviceUseTest, ofAScsiGenericNodeIsThatOfItsDisk) {
  system.file("/sys/class/scsi_generic/sg3/device/block/sdb/dev", "998:16\n");
  mounted("998:17", "/mnt");
  bool opened = false;
  const auto open = [&opened]() -> std::unique_ptr<Drive> {
    opened = true;
    return nullptr;
  };
  try {
    openGuarded({.name = "sg:/dev/sg3", .node = "/dev/sg3", .openerClaims = false}, Overwriting::ofEmptyDrives, nullptr,
                open, system.view());
    ADD_FAILURE() << "accepted";
  } catch (const DriveError& error) {
    EXPECT_STREQ(error.what(),
                 "drive 'sg:/dev/sg3' is in use: its partition sdb1 is mounted at '/mnt'; free it, name another drive, "
                 "or give --overwrite to test it all the same");
  }
  EXPECT_FALSE(opened) << "a drive in use is not even opened";
}

}  // namespace
}  // namespace corvane::host
