#include "host/drive/guard/DeviceClaim.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "tests/drive/guard/FakeSystem.h"
#include "tests/run/FakeDrive.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ShellCommand.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using testing::FakeSystem;
using ::testing::HasSubstr;
using tests::LoopDevice;

/// A loop device that stands for the disk of a SCSI generic node.
class DeviceClaimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = LoopDevice::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    loop.emplace(folder / "loop.img", 16 << 20, 512);
    const std::string name = loop->path().substr(5);
    const std::string number = SystemView().numberOf(loop->path());
    system.disk(name, number);
    system.file("/sys/class/scsi_generic/sg3/device/block/" + name + "/dev", number + "\n");
    system.link(loop->path(), loop->path());
  }

  /// As the factory opens a kind of drive; a simulated one stands for what is behind the generic node.
  std::unique_ptr<Drive> guarded(Overwriting overwriting, bool openerClaims = false) const {
    return openGuarded(
        {.name = "sg:/dev/sg3", .node = "/dev/sg3", .openerClaims = openerClaims}, overwriting, nullptr,
        [] { return openDrive("sim:8m", 4); }, system.view());
  }

  std::string refusal() const {
    try {
      guarded(Overwriting::ofEmptyDrives);
    } catch (const DriveError& error) {
      return error.what();
    }
    return "accepted";
  }

  /// What another one gets who wants the device for himself; 0 when he gets that.
  int errorOfClaim() const {
    const int file = open(loop->path().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    const int error = errno;
    if (file < 0) {
      return error;
    }
    close(file);
    return 0;
  }

  tests::TempFolder folder;
  std::optional<LoopDevice> loop;
  FakeSystem system;
};

TEST_F(DeviceClaimTest, lastsAsLongAsTheDrive) {
  EXPECT_EQ(errorOfClaim(), 0);
  std::unique_ptr<Drive> drive = guarded(Overwriting::ofEmptyDrives);
  EXPECT_EQ(errorOfClaim(), EBUSY);
  drive.reset();
  EXPECT_EQ(errorOfClaim(), 0);
}

TEST_F(DeviceClaimTest, keepsTheDeviceFromBeingMounted) {
  const tests::ShellEnd made = tests::runShell("mke2fs -q -t ext4 " + loop->path());
  ASSERT_EQ(made.status, 0) << made.out;
  const std::string place = folder / "mnt";
  std::filesystem::create_directory(place);
  {
    const std::unique_ptr<Drive> drive = guarded(Overwriting::ofEmptyDrives);
    EXPECT_NE(mount(loop->path().c_str(), place.c_str(), "ext4", MS_RDONLY, nullptr), 0);
    EXPECT_EQ(errno, EBUSY);
  }
  EXPECT_EQ(mount(loop->path().c_str(), place.c_str(), "ext4", MS_RDONLY, nullptr), 0);
  umount2(place.c_str(), MNT_DETACH);
}

TEST_F(DeviceClaimTest, isNotMadeForADriveThatMayBeUsedMeanwhile) {
  for (const Overwriting overwriting : {Overwriting::ofAnything, Overwriting::nothing}) {
    const std::unique_ptr<Drive> drive = guarded(overwriting);
    EXPECT_EQ(errorOfClaim(), 0);
  }
}

TEST_F(DeviceClaimTest, isLeftToWhatOpensTheBlockDeviceItself) {
  const std::unique_ptr<Drive> drive = guarded(Overwriting::ofEmptyDrives, true);
  EXPECT_EQ(errorOfClaim(), 0);
}

TEST_F(DeviceClaimTest, keepsASecondTestAway) {
  const std::unique_ptr<Drive> drive = guarded(Overwriting::ofEmptyDrives);
  EXPECT_THAT(refusal(), HasSubstr("drive 'sg:/dev/sg3' is in use: it is opened exclusively"));
}

TEST_F(DeviceClaimTest, endsWhenTheDriveCannotBeOpened) {
  const auto fail = []() -> std::unique_ptr<Drive> { throw DriveError("it is gone"); };
  EXPECT_THROW(openGuarded({.name = "sg:/dev/sg3", .node = "/dev/sg3", .openerClaims = false},
                           Overwriting::ofEmptyDrives, nullptr, fail, system.view()),
               DriveError);
  EXPECT_EQ(errorOfClaim(), 0);
}

TEST_F(DeviceClaimTest, isRefusedByWhomTheDeviceBelongsTo) {
  const DeviceClaim first("one", loop->path());
  try {
    const DeviceClaim second("two", loop->path());
    ADD_FAILURE() << "claimed twice";
  } catch (const DriveError& error) {
    EXPECT_EQ(error.what(), "drive 'two' is in use: somebody has just mounted or claimed its block device '" +
                                loop->path() +
                                "'; free it, name another drive, or give --overwrite to test it all the same");
  }
}

/// A drive that notes which memory it is told of.
class ToldDrive : public testing::FakeDrive {
 public:
  void useMemory(uint8_t* data, uint64_t bytes) noexcept override { told.emplace_back(data, bytes); }
  std::vector<std::pair<uint8_t*, uint64_t>> told;
};

TEST_F(DeviceClaimTest, passesOnWhichMemoryItsDriveIsLent) {
  auto told = std::make_unique<ToldDrive>();
  const ToldDrive& inner = *told;
  const std::unique_ptr<Drive> drive = withClaim(std::move(told), DeviceClaim("one", loop->path()));
  uint8_t data = 0;
  drive->useMemory(&data, 1);
  drive->useMemory(nullptr, 0);
  EXPECT_EQ(inner.told, (decltype(inner.told){{&data, 1}, {nullptr, 0}}));
}

TEST_F(DeviceClaimTest, endsOnceAlthoughItIsHandedOn) {
  {
    DeviceClaim first("one", loop->path());
    std::optional<DeviceClaim> second(std::move(first));
    EXPECT_EQ(errorOfClaim(), EBUSY);
    second.reset();
    EXPECT_EQ(errorOfClaim(), 0);
  }
  EXPECT_EQ(errorOfClaim(), 0);
}

TEST(DeviceClaim, saysWhyADeviceCannotBeOpened) {
  try {
    const DeviceClaim claim("sg:/dev/sg3", "/dev/corvane-has-no-such-device");
    ADD_FAILURE() << "claimed";
  } catch (const DriveError& error) {
    EXPECT_STREQ(error.what(),
                 "drive 'sg:/dev/sg3' cannot be kept from being mounted during the test: its block device "
                 "'/dev/corvane-has-no-such-device' cannot be opened: No such file or directory; run as root, or give "
                 "--overwrite to test it all the same");
  }
}

}  // namespace
}  // namespace corvane::host
