#include "host/drive/guard/Guard.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/blkpg.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/swap.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <optional>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "host/drive/guard/DeviceUse.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ShellCommand.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using tests::LoopDevice;

constexpr uint64_t deviceBytes = 16 << 20;

void runTool(const std::string& line) {
  const tests::ShellEnd end = tests::runShell(line);
  ASSERT_EQ(end.status, 0) << end.out;
}

/// A device that is mounted as long as the object lives.
class Mounted {
 public:
  Mounted(const std::string& device, std::string place) : place_(std::move(place)) {
    std::filesystem::create_directory(place_);
    if (mount(device.c_str(), place_.c_str(), "ext4", 0, nullptr) != 0) {
      throw std::runtime_error("cannot mount " + device);
    }
  }
  ~Mounted() { umount2(place_.c_str(), MNT_DETACH); }
  Mounted(const Mounted&) = delete;
  Mounted& operator=(const Mounted&) = delete;

 private:
  std::string place_;
};

/// One partition of a device, from LBA 2048 to its end, in a table and for the kernel as long as the object lives.
class Partition {
 public:
  explicit Partition(const std::string& device)
      : path_(device + "p1"), device_(open(device.c_str(), O_RDWR | O_CLOEXEC)) {
    std::string table(512, '\0');
    table.replace(446, 16, std::string("\0\0\2\0\x83\0\0\0\0\x08\0\0\0\x60\0\0", 16));
    table.replace(510, 2, "\x55\xaa");
    EXPECT_EQ(pwrite(device_, table.data(), table.size(), 0), static_cast<ssize_t>(table.size()));
    EXPECT_EQ(fsync(device_), 0);
    // Told, not found: not every kernel reads the table by itself.
    part_.start = 2048 * 512;
    part_.length = 24576 * 512;
    part_.pno = 1;
    const bool told = request(BLKPG_ADD_PARTITION);
    // The device is not to be open for writing while it is judged.
    close(device_);
    device_ = open(device.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(told) << "the kernel takes no partition of " << device;
  }
  ~Partition() {
    request(BLKPG_DEL_PARTITION);
    close(device_);
  }
  Partition(const Partition&) = delete;
  Partition& operator=(const Partition&) = delete;

  const std::string& path() const { return path_; }

 private:
  bool request(int operation) {
    blkpg_ioctl_arg argument{operation, 0, sizeof part_, &part_};
    return ioctl(device_, BLKPG, &argument) == 0;
  }

  std::string path_;
  int device_;
  blkpg_partition part_{};
};

/// A process of this program that has a device open as long as the object lives.
class Opener {
 public:
  Opener(const std::string& device, int flags) {
    std::array<int, 2> ready{};
    if (pipe(ready.data()) != 0 || (process_ = fork()) < 0) {
      throw std::runtime_error("cannot start a process");
    }
    if (process_ == 0) {
      const char opened = open(device.c_str(), flags) >= 0 ? 'y' : 'n';
      _exit(write(ready[1], &opened, 1) == 1 && opened == 'y' ? pause() : 1);
    }
    char opened = 'n';
    close(ready[1]);
    const bool told = read(ready[0], &opened, 1) == 1 && opened == 'y';
    close(ready[0]);
    EXPECT_TRUE(told) << "the process could not open " << device;
  }
  ~Opener() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  Opener(const Opener&) = delete;
  Opener& operator=(const Opener&) = delete;

  std::string name() const { return "guard_tests (process " + std::to_string(process_) + ")"; }

 private:
  pid_t process_ = -1;
};

/// An empty loop device.
class GuardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = LoopDevice::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    loop.emplace(folder / "loop.img", deviceBytes, 512);
  }

  const std::string& path() const { return loop->path(); }

  std::string refusal(Overwriting overwriting = Overwriting::ofEmptyDrives) const {
    try {
      openDrive(path(), 4, 1, overwriting);
    } catch (const DriveError& error) {
      return error.what();
    }
    return "accepted";
  }

  std::string inUse(const std::string& how) const {
    return "drive '" + path() + "' is in use: " + how +
           "; free it, name another drive, or give --overwrite to test it all the same";
  }

  tests::TempFolder folder;
  std::optional<LoopDevice> loop;
};

TEST_F(GuardTest, acceptsAnEmptyDrive) { EXPECT_EQ(refusal(), "accepted"); }

TEST_F(GuardTest, refusesWhatIsMounted) {
  runTool("mke2fs -q -t ext4 -U 01234567-89ab-cdef-0123-456789abcdef -L data " + path());
  const Mounted mounted(path(), folder / "mnt");
  EXPECT_EQ(refusal(), inUse("it is mounted at '" + folder / "mnt" + "'"));
}

TEST_F(GuardTest, opensWhatIsMountedWhenItMayGo) {
  runTool("mke2fs -q -t ext4 -U 01234567-89ab-cdef-0123-456789abcdef -L data " + path());
  const Mounted mounted(path(), folder / "mnt");
  for (const Overwriting overwriting : {Overwriting::ofAnything, Overwriting::nothing}) {
    AtStake stake;
    EXPECT_EQ(openDrive(path(), 4, 1, overwriting, &stake)->geometry().blocks, deviceBytes / 512);
    EXPECT_THAT(stake.uses, ElementsAre("it is mounted at '" + folder / "mnt" + "'"));
    EXPECT_THAT(stake.contents, ElementsAre("ext4 'data' (UUID 01234567-89ab-cdef-0123-456789abcdef)"));
  }
}

TEST_F(GuardTest, refusesADiskOfWhichAPartitionIsMounted) {
  const Partition first(path());
  runTool("mke2fs -q -t ext4 " + first.path());
  const Mounted mounted(first.path(), folder / "mnt");
  EXPECT_EQ(refusal(), inUse("its partition " + first.path().substr(5) + " is mounted at '" + folder / "mnt" + "'"));
}

TEST_F(GuardTest, refusesADiskWithPartitionsThatNobodyUses) {
  const Partition first(path());
  EXPECT_EQ(refusal(), "drive '" + path() +
                           "' holds a MBR partition table; name another drive, or give --overwrite to destroy what it "
                           "holds");
  EXPECT_EQ(refusal(Overwriting::ofAnything), "accepted");
}

TEST_F(GuardTest, refusesActiveSwapSpaceInSpiteOfOverwrite) {
  runTool("mkswap -q " + path());
  if (swapon(path().c_str(), 0) != 0) {
    GTEST_SKIP() << "the kernel takes no swap space here";
  }
  const std::string refused = refusal();
  const std::string refusedToo = refusal(Overwriting::ofAnything);
  ASSERT_EQ(swapoff(path().c_str()), 0);
  EXPECT_EQ(refused, "drive '" + path() +
                         "' carries the running system: it is active swap space; name another drive, this one is "
                         "refused with --overwrite too");
  EXPECT_EQ(refusedToo, refused);
}

TEST_F(GuardTest, refusesWhatAnotherProgramOpenedExclusively) {
  const Opener other(path(), O_RDONLY | O_EXCL);
  // The loop device keeps itself open, too.
  const std::string own = "guard_tests (process " + std::to_string(getpid()) + ", this program itself)";
  const std::string how = "it is opened exclusively, and opened by ";
  EXPECT_THAT(refusal(), AnyOf(inUse(how + own + ", " + other.name()), inUse(how + other.name() + ", " + own)));
  EXPECT_EQ(refusal(Overwriting::ofAnything), "accepted");
}

TEST_F(GuardTest, refusesWhatAnotherProgramWritesTo) {
  const Opener other(path(), O_RDWR);
  EXPECT_EQ(refusal(), inUse("it is opened for writing by " + other.name()));
}

TEST_F(GuardTest, acceptsWhatAnotherProgramOnlyReads) {
  const Opener other(path(), O_RDONLY);
  EXPECT_EQ(refusal(), "accepted");
}

TEST_F(GuardTest, refusesWhatALoopDeviceStandsOn) {
  const LoopDevice top(path(), deviceBytes, 512);
  const std::string name = top.path().substr(5);
  EXPECT_EQ(refusal(), inUse("the loop device " + name + " (of '" + path() + "') uses it"));
}

TEST_F(GuardTest, showsAReadOnlyDriveAndRefusesToTestIt) {
  loop.reset();
  loop.emplace(folder / "loop.img", deviceBytes, 512, true);
  EXPECT_THAT(refusal(), HasSubstr("is read-only"));
  EXPECT_EQ(refusal(Overwriting::nothing), "accepted");
}

TEST_F(GuardTest, knowsTheDiskOfTheRunningSystem) {
  const SystemView system;
  const std::string root = system.nameOf(system.fileSystemNumberOf("/"));
  if (root.empty()) {
    GTEST_SKIP() << "the root file system is on no device";
  }
  try {
    // Asked only, never opened: a mistake here would cost the machine.
    refuseDeviceInUse("it", "/dev/" + root, Overwriting::ofAnything);
    ADD_FAILURE() << "accepted";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("drive 'it' carries the running system: it is mounted at '/'"));
  }
}

}  // namespace
}  // namespace corvane::host
