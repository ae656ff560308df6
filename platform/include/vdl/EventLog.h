#pragma once

#include <cstdint>

namespace vdl {

/// The log of one drive's test.
///
/// Ownership: the framework's; an agent only borrows it for the length of a callback. Any thread may log.
class EventLog {
 public:
  /// Appends one line, without a newline at its end.
  ///
  /// @param level  0 information, 1 warning, 2 error or anything that an operator must see
  /// @param format printf format of the arguments that follow
  [[gnu::format(printf, 3, 4)]] void logf(int level, const char* format, ...);

  /// Text of a status code.
  ///
  /// @return a string that lives as long as the process; never null, unknown codes have a text of their own
  const char* errStr(int status) const;

  /// The implementation's own state.
  struct Impl;
  Impl* impl = nullptr;
};

}  // namespace vdl
