#include "host/drive/block/BlockDevice.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <system_error>
#include <utility>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr uint32_t largestBlock = 4096;

std::string textOf(int error) { return std::generic_category().message(error); }

std::string kindOf(mode_t mode, const std::string& path) {
  if (S_ISREG(mode)) {
    return "is a regular file; write 'file:" + path + "'";
  }
  const char* kind = S_ISDIR(mode) ? "a folder" : S_ISCHR(mode) ? "a character device" : "not a block device";
  return std::string("is ") + kind + "; name a block device, such as one that 'lsblk -p' lists";
}

}  // namespace

BlockDevice::BlockDevice(std::string path, Overwriting overwriting) : path_(std::move(path)) {
  checkKind();
  open(overwriting);
  try {
    readSizes(overwriting);
    settleAlignment();
    atomicUnits_ = atomicUnitsOf(fd_);
  } catch (...) {
    close(fd_);
    throw;
  }
}

BlockDevice::~BlockDevice() { close(fd_); }

void BlockDevice::checkKind() {
  struct stat info {};
  // Asked before it is opened: opening a pipe would wait for its other end.
  if (stat(path_.c_str(), &info) != 0) {
    fail(errno == ENOENT ? "does not exist; name a block device, such as one that 'lsblk -p' lists"
                         : "cannot be examined: " + textOf(errno) + "; name a device that can be reached");
  }
  if (!S_ISBLK(info.st_mode)) {
    fail(kindOf(info.st_mode, path_));
  }
  traits_ = readBlockTraits("/sys/dev/block/" + std::to_string(major(info.st_rdev)) + ":" +
                            std::to_string(minor(info.st_rdev)));
  if (traits_.hostManagedZones) {
    fail(
        "has zones that are written at their write pointers only, which is not possible through the kernel's block "
        "layer here; name another drive");
  }
}

void BlockDevice::open(Overwriting overwriting) {
  const int flags = (opensForWriting(overwriting) ? O_RDWR : O_RDONLY) | O_DIRECT | O_CLOEXEC;
  fd_ = ::open(path_.c_str(), flags | O_EXCL);
  if (fd_ < 0 && errno == EBUSY && !opensExclusively(overwriting)) {
    shared_ = true;
    fd_ = ::open(path_.c_str(), flags);
  }
  if (fd_ < 0) {
    refuseOpening(errno, overwriting);
  }
}

void BlockDevice::refuseOpening(int error, Overwriting overwriting) const {
  if (error == EBUSY) {
    fail(
        "is mounted, or something else uses it; unmount it or end what uses it, or give --overwrite to test it all the "
        "same and destroy what it holds");
  }
  if (error == EROFS || traits_.readOnly) {
    fail("is read-only; name one that can be written");
  }
  if (error == EACCES || error == EPERM) {
    fail(std::string("may not be opened for reading") + (opensForWriting(overwriting) ? " and writing: " : ": ") +
         textOf(error) + "; become root, or join the group that owns it");
  }
  if (error == ENOMEDIUM) {
    fail("holds no medium; insert one");
  }
  if (error == EINVAL) {
    fail("cannot be used past the page cache (O_DIRECT): " + textOf(error) + "; name another drive");
  }
  fail("cannot be opened: " + textOf(error) + "; see the kernel's log (dmesg) for its state");
}

void BlockDevice::readSizes(Overwriting overwriting) {
  int readOnly = 0;
  int logical = 0;
  unsigned physical = 0;
  uint64_t bytes = 0;
  if (ioctl(fd_, BLKROGET, &readOnly) != 0 || ioctl(fd_, BLKSSZGET, &logical) != 0 ||
      ioctl(fd_, BLKPBSZGET, &physical) != 0 || ioctl(fd_, BLKGETSIZE64, &bytes) != 0) {
    fail("does not tell its sizes: " + textOf(errno) + "; see the kernel's log (dmesg) for its state");
  }
  if (readOnly != 0 && opensForWriting(overwriting)) {
    fail("is read-only; name one that can be written");
  }
  if (bytes == 0) {
    fail("holds no medium, its size is 0 bytes; insert one, or name a device that is attached");
  }
  blockSize_ = static_cast<uint32_t>(logical);
  if (!std::has_single_bit(blockSize_) || blockSize_ > largestBlock || bytes < blockSize_) {
    fail("has blocks of " + std::to_string(logical) + " bytes; name one with at most " + std::to_string(largestBlock));
  }
  blocks_ = bytes / blockSize_;
  physicalExponent_ = physical > blockSize_ ? static_cast<uint32_t>(std::bit_width(physical / blockSize_)) - 1 : 0;
}

void BlockDevice::settleAlignment() {
  // Kernels before that with a word for it wanted memory aligned as the blocks are.
  memoryAlignment_ = traits_.memoryAlignmentBytes != 0 ? traits_.memoryAlignmentBytes : blockSize_;
#ifdef STATX_DIOALIGN
  struct statx info {};
  if (statx(fd_, "", AT_EMPTY_PATH, STATX_DIOALIGN, &info) == 0 && (info.stx_mask & STATX_DIOALIGN) != 0 &&
      info.stx_dio_mem_align != 0) {
    memoryAlignment_ = info.stx_dio_mem_align;
  }
#endif
}

uint64_t BlockDevice::blocksNow() const {
  uint64_t bytes = 0;
  return ioctl(fd_, BLKGETSIZE64, &bytes) == 0 ? bytes / blockSize_ : 0;
}

void BlockDevice::fail(const std::string& fault) const { throw DriveError("block device '" + path_ + "' " + fault); }

}  // namespace corvane::host
