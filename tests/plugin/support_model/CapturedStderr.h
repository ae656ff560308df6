#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace modeltest {

/// Catches what goes to std::cerr while it lives. The stream's format flags are put back at its end: the agent
/// leaves the stream in hexadecimal.
class CapturedStderr {
 public:
  CapturedStderr() : flags_(std::cerr.flags()), previous_(std::cerr.rdbuf(text_.rdbuf())) {}
  ~CapturedStderr() {
    std::cerr.rdbuf(previous_);
    std::cerr.flags(flags_);
  }
  CapturedStderr(const CapturedStderr&) = delete;
  CapturedStderr& operator=(const CapturedStderr&) = delete;

  /// What came since the last call.
  std::string take() {
    std::string text = text_.str();
    text_.str("");
    return text;
  }

 private:
  std::ostringstream text_;
  std::ios_base::fmtflags flags_;
  std::streambuf* previous_;
};

}  // namespace modeltest
