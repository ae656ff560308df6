#include "host/cli/EventFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

std::string systemText(int error) { return std::generic_category().message(error); }

[[noreturn]] void refuse(const std::string& flag, const std::string& path, const std::string& fault) {
  throw UsageError(flag + " '" + path + "' " + fault + "; name a file in a folder that exists and can be written to");
}

}  // namespace

EventFile::EventFile(const std::string& flag, const std::string& path)
    // A pipe that nobody reads must not keep us waiting, nor one that is full hold a drive's test up later.
    : fd_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0644)) {
  if (fd_ < 0) {
    refuse(flag, path, errno == ENXIO ? "is no regular file" : "cannot be written: " + systemText(errno));
  }
  struct stat status {};
  if (fstat(fd_, &status) != 0 || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || S_ISBLK(status.st_mode)) {
    close(fd_);
    refuse(flag, path, "is no regular file");
  }
}

EventFile::~EventFile() { close(fd_); }

void EventFile::empty() {
  bytes_ = 0;
  error_ = ftruncate(fd_, 0) != 0 && errno != EINVAL ? errno : 0;
}

bool EventFile::append(const std::string& line) {
  const std::string whole = line + "\n";
  ssize_t written = 0;
  do {
    written = write(fd_, whole.data(), whole.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(whole.size())) {
    bytes_ += written;
    return true;
  }
  error_ = written < 0 ? errno : ENOSPC;
  if (written > 0 && ftruncate(fd_, bytes_) != 0) {
    error_ = errno;
  }
  return false;
}

bool EventFile::flush() {
  if (fsync(fd_) == 0 || errno == EINVAL) {
    return true;
  }
  error_ = errno;
  return false;
}

std::string EventFile::cause() const { return systemText(error_); }

}  // namespace corvane::host
