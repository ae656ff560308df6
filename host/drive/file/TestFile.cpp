#include "host/drive/file/TestFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/base/AlignedMemory.h"
#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

std::string textOf(int error) { return std::generic_category().message(error); }

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) {
    return "a folder";
  }
  if (S_ISBLK(mode)) {
    return "a block device";
  }
  return S_ISCHR(mode) ? "a character device" : "not a regular file";
}

}  // namespace

TestFile::TestFile(const TestFileSettings& settings) : settings_(settings) {
  try {
    openOrCreate();
    checkKind();
    lock();
    settleSize();
    chooseDirect();
    probeHoles();
  } catch (...) {
    if (created_) {
      unlink(settings_.path.c_str());
    }
    if (fd_ >= 0) {
      close(fd_);
    }
    throw;
  }
}

void TestFile::refuseKind(mode_t mode) const {
  fail(std::string("is ") + kindOf(mode) +
       (S_ISBLK(mode) ? "; write 'block:" + settings_.path + "'" : "; name a regular file"));
}

TestFile::~TestFile() { close(fd_); }

void TestFile::openOrCreate() {
  struct stat info {};
  // Asked before it is opened: opening a pipe would wait for its other end.
  if (stat(settings_.path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    refuseKind(info.st_mode);
  }
  fd_ = open(settings_.path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd_ < 0 && errno == ENOENT && settings_.createBytes) {
    fd_ = open(settings_.path.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, 0644);
    created_ = fd_ >= 0;
  } else if (fd_ < 0 && errno == ENOENT) {
    fail("does not exist; give its size to have it created, as in 'file:" + settings_.path + ",size=256m'");
  }
  if (fd_ < 0) {
    fail("cannot be opened: " + textOf(errno) + "; name a file that can be read and written");
  }
}

void TestFile::checkKind() {
  struct stat info {};
  if (fstat(fd_, &info) != 0) {
    fail("cannot be examined: " + textOf(errno));
  }
  if (!S_ISREG(info.st_mode)) {
    refuseKind(info.st_mode);
  }
  sizeBytes_ = static_cast<uint64_t>(info.st_size);
}

void TestFile::lock() {
  if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
    fail(errno == EWOULDBLOCK ? "is in use by another test; wait for its end or name another file"
                              : "cannot be locked: " + textOf(errno));
  }
}

void TestFile::settleSize() {
  if (created_) {
    if (ftruncate(fd_, static_cast<off_t>(*settings_.createBytes)) != 0) {
      fail("cannot be made " + std::to_string(*settings_.createBytes) + " bytes large: " + textOf(errno) +
           "; give a smaller size");
    }
    sizeBytes_ = *settings_.createBytes;
  }
  if (settings_.createBytes && sizeBytes_ != *settings_.createBytes) {
    fail("has " + std::to_string(sizeBytes_) + " bytes and not the " + std::to_string(*settings_.createBytes) +
         " of size=; leave size= out, or remove the file");
  }
  if (sizeBytes_ == 0 || sizeBytes_ % settings_.sectorBytes != 0) {
    fail("has " + std::to_string(sizeBytes_) + " bytes, which are not a whole number of sectors of " +
         std::to_string(settings_.sectorBytes) + " bytes; name another file or another block size");
  }
}

void TestFile::chooseDirect() {
  if (settings_.direct == TestFileSettings::Direct::never) {
    return;
  }
  whyBuffered_ = tryDirect();
  direct_ = whyBuffered_.empty();
  if (direct_) {
    return;
  }
  memoryAlignment_ = 1;
  if (settings_.direct == TestFileSettings::Direct::always) {
    fail("cannot be used with direct=on: " + whyBuffered_ + "; leave it out, or name a file elsewhere");
  }
}

std::string TestFile::tryDirect() {
  if ((settings_.sectorBytes & (settings_.sectorBytes - 1)) != 0) {
    return "sectors of " + std::to_string(settings_.sectorBytes) + " bytes cannot be moved by O_DIRECT";
  }
  const int flags = fcntl(fd_, F_GETFL);
  if (fcntl(fd_, F_SETFL, flags | O_DIRECT) != 0) {
    return "the file system does not take O_DIRECT";
  }
  // Until the file system says otherwise, memory is aligned as transfers are.
  memoryAlignment_ = settings_.sectorBytes;
  struct statx info {};
#ifdef STATX_DIOALIGN
  if (statx(fd_, "", AT_EMPTY_PATH, STATX_DIOALIGN, &info) == 0 && (info.stx_mask & STATX_DIOALIGN) != 0 &&
      info.stx_dio_mem_align != 0) {
    memoryAlignment_ = info.stx_dio_mem_align;
  }
#endif
  AlignedMemory memory;
  uint8_t* sector = memory.atLeast(settings_.sectorBytes);
  if (pread(fd_, sector, settings_.sectorBytes, 0) == static_cast<ssize_t>(settings_.sectorBytes)) {
    return "";
  }
  fcntl(fd_, F_SETFL, flags);
  return "the file system does not take O_DIRECT in units of " + std::to_string(settings_.sectorBytes) + " bytes";
}

void TestFile::probeHoles() {
  // Behind the end, where nothing can be lost.
  punchesHoles_ = fallocate(fd_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(sizeBytes_),
                            static_cast<off_t>(settings_.sectorBytes)) == 0;
}

void TestFile::fail(const std::string& fault) const { throw DriveError("file '" + settings_.path + "' " + fault); }

}  // namespace corvane::host
