#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/support/LoopDevice.h"
#include "tests/support/ShellCommand.h"

namespace corvane::tests {

/// A small file system on a loop device that fails when it is told to. Unmounted with the object.
class FailingFileSystem {
 public:
  /// Why there can be none here; empty when there can.
  static std::string missing() {
    if (runShell("PATH=$PATH:/sbin:/usr/sbin command -v mkfs.ext4").status != 0) {
      return "mkfs.ext4 is not installed (Debian package e2fsprogs)";
    }
    return LoopDevice::missing();
  }

  /// @param folder where it is mounted; made if it is not there
  /// @param image  the file that holds it
  FailingFileSystem(const std::string& folder, const std::string& image) : folder_(folder) {
    std::filesystem::create_directories(folder);
    std::ofstream(image).close();
    std::filesystem::resize_file(image, bytes);
    if (const ShellEnd made = runShell("PATH=$PATH:/sbin:/usr/sbin mkfs.ext4 -q -F -O ^has_journal '" + image + "'");
        made.status != 0) {
      throw std::runtime_error("mkfs.ext4: " + made.out);
    }
    device_.emplace(image, bytes, 512);
    if (mount(device_->path().c_str(), folder.c_str(), "ext4", 0, nullptr) != 0) {
      throw std::runtime_error(std::string("cannot mount ") + device_->path() + ": " + std::strerror(errno));
    }
  }
  ~FailingFileSystem() { umount2(folder_.c_str(), MNT_DETACH); }
  FailingFileSystem(const FailingFileSystem&) = delete;
  FailingFileSystem& operator=(const FailingFileSystem&) = delete;

  /// From now on nothing can be opened, read or written: everything is answered with EIO.
  void failAll() const {
    constexpr unsigned long shutDown = _IOR('X', 125, uint32_t);  // as every file system of the kernel that knows it
    uint32_t withoutFlush = 2;
    const int file = open(folder_.c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = file >= 0 && ioctl(file, shutDown, &withoutFlush) == 0;
    close(file);
    if (!done) {
      throw std::runtime_error("cannot shut the file system down");
    }
  }

  /// From now on nothing reaches the disk. What is written still goes well, as the kernel keeps it in memory.
  void loseDisk() const { device_->shrink(0); }

 private:
  static constexpr uint64_t bytes = uint64_t{4} << 20;

  std::string folder_;
  std::optional<LoopDevice> device_;
};

}  // namespace corvane::tests
