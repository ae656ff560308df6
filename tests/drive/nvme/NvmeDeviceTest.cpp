// What can be seen of opening without an NVMe drive: everything that is none is refused with a clear line.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/drive/AddressComplaint.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

std::string refusal(const std::string& address, Overwriting overwriting = Overwriting::ofEmptyDrives) {
  try {
    openDrive(address, 4, 1, overwriting);
  } catch (const DriveError& error) {
    return error.what();
  }
  return "accepted";
}

TEST(NvmeDevice, WhatIsNoNvmeNamespaceIsNamedWithTheRemedy) {
  const tests::TempFolder folder;
  std::ofstream(folder / "file") << "text";
  EXPECT_THAT(refusal("nvme:" + (folder / "file")), AllOf(HasSubstr("is no device"), HasSubstr("nvme:/dev/nvme0n1")));
  EXPECT_THAT(refusal("nvme:" + (folder / "none")), AllOf(HasSubstr("No such file"), HasSubstr("still there")));
  EXPECT_THAT(refusal("nvme:/dev/null"), HasSubstr("'/dev/null' is not an NVMe namespace; name one"));
}

TEST(NvmeDevice, OtherDisksAreNoNamespacesWhetherOrNotTheyCouldBeOpened) {
  uint32_t disks = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/sys/block")) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("nvme") && std::filesystem::exists("/dev/" + name)) {
      ++disks;
      EXPECT_THAT(refusal("nvme:/dev/" + name, Overwriting::nothing),
                  HasSubstr("'/dev/" + name + "' is not an NVMe namespace; name one"));
    }
  }
  if (disks == 0) {
    GTEST_SKIP() << "there is no disk but those of NVMe";
  }
}

TEST(NvmeDevice, APipeDoesNotHang) {
  const tests::TempFolder folder;
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(refusal("nvme:" + (folder / "pipe")), HasSubstr("is no device"));
}

TEST(NvmeDevice, AddressesThatAreWrongByThemselvesAreRefusedBeforeAnythingIsOpened) {
  EXPECT_THAT(complaint("nvme:"), HasSubstr("it names no namespace; write 'nvme:/dev/nvme0n1'"));
  EXPECT_THAT(complaint("nvme:/dev/none,pi=8"), HasSubstr("pi=8 is not known; it takes on, off"));
  EXPECT_THAT(complaint("nvme:/dev/none,trim=yes"), HasSubstr("it takes auto, zeroes, deallocate, off"));
  EXPECT_THAT(complaint("nvme:/dev/none,verify=drive"), HasSubstr("it takes auto, compare, read"));
  EXPECT_THAT(complaint("nvme:/dev/none,engine=ring"), HasSubstr("it takes auto, uring, threads"));
  EXPECT_THAT(complaint("nvme:/dev/none,vendor=on"), HasSubstr("it takes off, admin"));
  EXPECT_THAT(complaint("nvme:/dev/none,size=1g"), HasSubstr("'size' is not a key of 'nvme:' addresses"));
}

}  // namespace
}  // namespace corvane::host
