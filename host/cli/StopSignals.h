#pragma once

#include <chrono>

namespace corvane::host {

class TestRun;

/// While the object lives, SIGINT and SIGTERM stop a test: the first one lets it finish what is outstanding and
/// report, a second one kills the program as if nobody had caught it.
///
/// One object at a time; made and destroyed on the main thread.
class StopSignals {
 public:
  /// @param test must outlive the object
  explicit StopSignals(TestRun& test);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// The number of the first signal that came; 0: none. Any thread.
  int received() const;

  /// Waits until the time is over, the first signal comes or somebody calls `wake`; one thread.
  void wait(std::chrono::milliseconds time) const;
  /// Ends the wait that goes on, or else the next one. Any thread.
  void wake() const;
};

}  // namespace corvane::host
