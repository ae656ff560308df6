#pragma once

#include <string>

namespace corvane::host {

/// A file that grows by whole lines, each handed to the system in one piece as soon as it is there: whatever kills the
/// program, what was written before stays readable.
class EventFile {
 public:
  /// Opens or creates a regular file, without touching what is in it. Throws UsageError naming the flag and the cause.
  EventFile(const std::string& flag, const std::string& path);
  ~EventFile();
  EventFile(const EventFile&) = delete;
  EventFile& operator=(const EventFile&) = delete;

  /// Takes away what was in it before.
  void empty();

  /// Adds a line; the line break is added. What a full disk took only a part of is taken back.
  ///
  /// @return whether it was written
  bool append(const std::string& line);

  /// Brings what was written to its medium: a disk that fails may show only then.
  ///
  /// @return whether it is there
  bool flush();

  /// Why the last line was not written, or what was written is not kept, in the system's words.
  std::string cause() const;

 private:
  int fd_;
  int error_ = 0;
  long long bytes_ = 0;  ///< those of whole lines
};

}  // namespace corvane::host
