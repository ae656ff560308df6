#include "host/cli/OutputFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/cli/UsageError.h"

namespace corvane::host {
namespace {

std::string causeOf(int error) { return std::generic_category().message(error); }

/// A file of another name beside the one that it shall become; gone when destroyed, unless it was renamed.
///
/// Its name is short whatever the other one is, which may be as long as the file system allows.
class TemporaryFile {
 public:
  /// Check `error()` before any use.
  explicit TemporaryFile(const std::string& beside)
      : path_(beside.substr(0, beside.rfind('/') + 1) + ".corvane.tmp-" + std::to_string(getpid())),
        fd_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644)),
        error_(fd_ < 0 ? errno : 0) {}
  ~TemporaryFile() {
    if (fd_ >= 0) {
      close(fd_);
    }
    if (fd_ >= 0 && !renamed_) {
      unlink(path_.c_str());
    }
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// errno of the first failure; 0 when there was none.
  int error() const { return error_; }

  void write(std::string_view text) {
    while (error_ == 0 && !text.empty()) {
      const ssize_t written = ::write(fd_, text.data(), text.size());
      if (written >= 0) {
        text.remove_prefix(static_cast<size_t>(written));
      } else if (errno != EINTR) {
        error_ = errno;
      }
    }
  }

  void renameTo(const std::string& path) {
    if (error_ == 0 && fsync(fd_) != 0 && errno != EINVAL) {
      error_ = errno;
    }
    if (error_ == 0 && rename(path_.c_str(), path.c_str()) != 0) {
      error_ = errno;
    }
    renamed_ = error_ == 0;
  }

 private:
  std::string path_;
  int fd_;
  int error_;
  bool renamed_ = false;
};

[[noreturn]] void refuse(std::string_view flag, const std::string& path, const std::string& fault,
                         std::string_view remedy) {
  throw UsageError(std::string(flag) + " '" + path + "' " + fault + "; " + std::string(remedy));
}

bool sameFile(const std::string& a, const std::string& b) {
  std::error_code fault;
  if (a.empty() || b.empty()) {
    return false;
  }
  if (std::filesystem::equivalent(a, b, fault)) {
    return true;
  }
  // Files that are not there yet have only their names.
  const auto place = [&fault](const std::string& path) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, fault), fault);
  };
  return place(a) == place(b);
}

constexpr std::string_view otherFile = "name a file in a folder that exists and can be written to";

}  // namespace

void prepareOutputDirectory(std::string_view flag, const std::string& path) {
  constexpr std::string_view remedy = "name a folder that can be written to";
  std::error_code fault;
  std::filesystem::create_directories(path, fault);
  const std::error_code madeNone = fault;
  if (!std::filesystem::is_directory(path, fault)) {
    refuse(flag, path, "cannot be created: " + (madeNone ? madeNone.message() : causeOf(ENOTDIR)), remedy);
  }
  if (const int error = TemporaryFile(path + "/").error(); error != 0) {
    refuse(flag, path, "cannot be written to: " + causeOf(error), remedy);
  }
}

void checkDistinct(const std::vector<std::string>& drives, const std::vector<NamedFile>& outputs) {
  std::vector<NamedFile> taken;
  for (const std::string& drive : drives) {
    taken.push_back({.flag = "--drive", .path = drive});
  }
  for (const NamedFile& output : outputs) {
    for (const NamedFile& other : taken) {
      if (sameFile(output.path, other.path)) {
        refuse(output.flag, output.path, "is the file of " + other.flag + " too", "give each a file of its own");
      }
    }
    taken.push_back(output);
  }
}

void checkReplaceable(std::string_view flag, const std::string& path) {
  std::error_code fault;
  const std::filesystem::file_status status = std::filesystem::status(path, fault);
  if (std::filesystem::is_directory(status)) {
    refuse(flag, path, "is a folder", otherFile);
  }
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    refuse(flag, path, "is no regular file", otherFile);
  }
  if (status.type() == std::filesystem::file_type::none) {
    // Such as a name that is too long, which the file beside it does not show.
    refuse(flag, path, "cannot be written: " + fault.message(), otherFile);
  }
  if (const int error = TemporaryFile(path).error(); error != 0) {
    refuse(flag, path, "cannot be written: " + causeOf(error), otherFile);
  }
}

void replaceFile(std::string_view flag, const std::string& path, std::string_view text) {
  TemporaryFile file(path);
  file.write(text);
  file.renameTo(path);
  if (file.error() != 0) {
    refuse(flag, path, "cannot be written: " + causeOf(file.error()), otherFile);
  }
}

}  // namespace corvane::host
