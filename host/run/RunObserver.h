#pragma once

#include <cstdint>
#include <string_view>

namespace corvane::host {

/// Gets told what happens while a test runs.
///
/// Called on the drives' threads, several at once when there are several drives: an implementation does its own
/// locking, returns soon and throws nothing.
class RunObserver {
 public:
  virtual ~RunObserver() = default;

  /// The agent logged a line: 0 information, 1 warning, 2 error.
  virtual void onAgentLine(uint32_t driveIndex, int level, std::string_view text) = 0;
};

}  // namespace corvane::host
