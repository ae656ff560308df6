#include "host/cli/QuietStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace corvane::host {
namespace {

int checked(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

}  // namespace

QuietStreams::QuietStreams() {
  std::fflush(stdout);
  std::fflush(stderr);
  terminal_ = fdopen(checked(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "standard output"), "w");
  error_ = checked(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0), "standard error");
  const int nowhere = checked(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null");
  checked(dup2(nowhere, STDOUT_FILENO), "standard output");
  checked(dup2(nowhere, STDERR_FILENO), "standard error");
  close(nowhere);
}

QuietStreams::~QuietStreams() {
  std::fflush(stdout);
  std::fflush(stderr);
  std::fflush(terminal_);
  dup2(fileno(terminal_), STDOUT_FILENO);
  dup2(error_, STDERR_FILENO);
  std::fclose(terminal_);
  close(error_);
}

}  // namespace corvane::host
