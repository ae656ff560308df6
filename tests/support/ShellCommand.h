#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace corvane::tests {

struct ShellEnd {
  int status = -1;  ///< exit status; -1 when a signal ended it
  std::string out;  ///< both streams, as they came
};

/// Runs a line in the shell and waits for its end.
inline ShellEnd runShell(const std::string& line) {
  FILE* stream = popen(("{ " + line + "\n} 2>&1").c_str(), "r");
  if (stream == nullptr) {
    throw std::runtime_error("cannot start a shell for: " + line);
  }
  ShellEnd end;
  std::array<char, 4096> piece{};
  for (size_t read = 0; (read = std::fread(piece.data(), 1, piece.size(), stream)) > 0;) {
    end.out.append(piece.data(), read);
  }
  const int status = pclose(stream);
  end.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return end;
}

}  // namespace corvane::tests
