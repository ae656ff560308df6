#pragma once

#include <cstdio>

namespace corvane::host {

/// Keeps what an agent prints by itself from the terminal, as long as it lives: the standard streams go nowhere, and
/// `terminal` is where standard output went before.
class QuietStreams {
 public:
  /// Throws std::system_error when the streams cannot be turned away.
  QuietStreams();
  ~QuietStreams();
  QuietStreams(const QuietStreams&) = delete;
  QuietStreams& operator=(const QuietStreams&) = delete;

  std::FILE* terminal() const { return terminal_; }

 private:
  std::FILE* terminal_;
  int error_;
};

}  // namespace corvane::host
