#include "host/drive/guard/SystemView.h"

#include <gtest/gtest.h>

#include "tests/drive/guard/FakeSystem.h"

namespace corvane::host {
namespace {

using testing::FakeSystem;

TEST(SystemView, namesTheDiskOfAScsiGenericNode) {
  FakeSystem system;
  system.disk("sdb", "998:16");
  system.file("/sys/class/scsi_generic/sg3/device/block/sdb/dev", "998:16\n");
  system.file("/sys/class/scsi_generic/sg4/device/type", "1\n");
  EXPECT_EQ(system.view().blockDeviceOf("/dev/sg3"), "/dev/sdb");
  EXPECT_EQ(system.view().blockDeviceOf("/dev/sg4"), "") << "a tape has no block device";
  EXPECT_EQ(system.view().blockDeviceOf("/dev/sg5"), "");
}

TEST(SystemView, namesTheNamespaceOfAnNvmeGenericNode) {
  FakeSystem system;
  system.disk("nvme1n2", "998:32");
  EXPECT_EQ(system.view().blockDeviceOf("/dev/ng1n2"), "/dev/nvme1n2");
  EXPECT_EQ(system.view().blockDeviceOf("/dev/ng1n3"), "") << "a namespace that the kernel made no device of";
}

TEST(SystemView, takesABlockDeviceForItself) {
  FakeSystem system;
  system.disk("sdb", "998:16");
  EXPECT_EQ(system.view().blockDeviceOf("/dev/sdb"), "/dev/sdb");
  EXPECT_EQ(system.view().numberOf("/dev/sdb"), "998:16");
  EXPECT_EQ(system.view().nameOf("998:16"), "sdb");
}

TEST(SystemView, knowsTheDiskOfAPartition) {
  FakeSystem system;
  system.disk("sdb", "998:16");
  system.partition("sdb", "sdb1", "998:17");
  EXPECT_EQ(system.view().diskOf("sdb1"), "sdb");
  EXPECT_EQ(system.view().diskOf("sdb"), "");
}

TEST(SystemView, takesNoFileOrFolderForADevice) {
  FakeSystem system;
  system.disk("sdb", "998:16");
  system.file("/tmp/sdb", "the name of a device, and none");
  EXPECT_EQ(system.view().numberOf("/tmp/sdb"), "");
  EXPECT_EQ(SystemView().numberOf("/dev/null"), "");
  EXPECT_EQ(SystemView().blockDeviceOf("/dev/null"), "");
  EXPECT_EQ(SystemView().blockDeviceOf("/"), "");
}

}  // namespace
}  // namespace corvane::host
