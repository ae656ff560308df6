#pragma once

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace corvane::tests {

/// A block device of the kernel that keeps its blocks in a file. The kernel takes it away when nobody has it open any
/// more, so also when the test dies.
class LoopDevice {
 public:
  /// Why there can be none here; empty when there can.
  static std::string missing() {
    if (geteuid() != 0) {
      return "loop devices need root";
    }
    const Descriptor control("/dev/loop-control", O_RDWR);
    return control.number < 0 ? "the kernel has no loop devices here" : "";
  }

  /// @param file created with `bytes` bytes when it does not exist
  LoopDevice(const std::string& file, uint64_t bytes, uint32_t blockSize, bool readOnly = false) : file_(file) {
    if (!std::filesystem::exists(file)) {
      std::ofstream(file).close();
      std::filesystem::resize_file(file, bytes);
    }
    const Descriptor backing(file, O_RDWR);
    loop_config config{};
    config.fd = static_cast<uint32_t>(backing.number);
    config.block_size = blockSize;
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR | LO_FLAGS_DIRECT_IO | (readOnly ? LO_FLAGS_READ_ONLY : 0);
    std::strncpy(reinterpret_cast<char*>(config.info.lo_file_name), file.c_str(), LO_NAME_SIZE - 1);
    attach(config);
  }
  ~LoopDevice() { close(fd_); }
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  const std::string& path() const { return path_; }
  const std::string& file() const { return file_; }

  /// Cuts the file off, and the device with it.
  void shrink(uint64_t bytes) const {
    std::filesystem::resize_file(file_, bytes);
    if (ioctl(fd_, LOOP_SET_CAPACITY) != 0) {
      throw std::runtime_error("cannot change the size of " + path_);
    }
  }

 private:
  struct Descriptor {
    Descriptor(const std::string& path, int flags) : number(open(path.c_str(), flags | O_CLOEXEC)) {}
    ~Descriptor() {
      if (number >= 0) {
        close(number);
      }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number;
  };

  void attach(const loop_config& config) {
    const Descriptor control("/dev/loop-control", O_RDWR);
    // One test at a time, until this is closed: another one that was told of the same device would have it open for
    // writing for a moment while this test's drive already looks whether somebody uses it.
    flock(control.number, LOCK_EX);
    // Another program may be quicker to take what the kernel just called free.
    for (int attempt = 0; attempt < 100; ++attempt) {
      const int free = ioctl(control.number, LOOP_CTL_GET_FREE);
      path_ = "/dev/loop" + std::to_string(free);
      fd_ = free < 0 ? -1 : open(path_.c_str(), O_RDWR | O_CLOEXEC);
      if (fd_ >= 0 && ioctl(fd_, LOOP_CONFIGURE, &config) == 0) {
        // Kept open so that it stays, but not for writing, which a test of the drive would take for use.
        const int writable = fd_;
        fd_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        close(writable);
        return;
      }
      const int error = errno;
      if (fd_ >= 0) {
        close(fd_);
      }
      if (error != EBUSY && error != ENXIO) {
        throw std::runtime_error("cannot make " + path_ + " a loop device: " + std::strerror(error));
      }
      usleep(1000);
    }
    throw std::runtime_error("no loop device could be had");
  }

  std::string file_;
  std::string path_;
  int fd_ = -1;
};

}  // namespace corvane::tests
