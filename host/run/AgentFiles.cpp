#include "host/run/AgentFiles.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace corvane::host {
namespace {

constexpr const char* remedy = "; look at the file system, or name another folder";

/// A sentence about a file that is cut, with why that may be so and what to do.
std::string cut(const std::string& path, const std::string& what) {
  struct statvfs space {};
  const bool full = statvfs(path.c_str(), &space) == 0 && (space.f_bavail == 0 || space.f_favail == 0);
  return "is not complete: " + what + (full ? "; the file system is full; make room, or name another folder" : remedy);
}

/// Why the file cannot be brought to its medium; 0 when it could: a disk that fails shows only then.
int errorOfFlush(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) {
    return errno;
  }
  const int error = fsync(file) != 0 && errno != EINVAL ? errno : 0;
  close(file);
  return error;
}

char lastByteOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  file.seekg(-1, std::ios::end);
  char last = '\0';
  file.get(last);
  return last;
}

}  // namespace

std::string whatIsMissingOfDump(const std::string& path, uint64_t leastBytes) {
  std::error_code fault;
  const uint64_t bytes = std::filesystem::file_size(path, fault);
  if (fault) {
    return "cannot be found again (" + fault.message() + ")" + remedy;
  }
  if (bytes < leastBytes) {
    return cut(path, "it has " + std::to_string(bytes) + " of " + std::to_string(leastBytes) + " bytes");
  }
  const int error = errorOfFlush(path);
  return error == 0 ? "" : "cannot be kept: " + std::generic_category().message(error) + remedy;
}

std::string whatIsMissingOfReport(const std::string& path) {
  if (std::string what = whatIsMissingOfDump(path, 1); !what.empty()) {
    return what;
  }
  return lastByteOf(path) == '\n' ? "" : cut(path, "it breaks off in the middle of a line");
}

}  // namespace corvane::host
