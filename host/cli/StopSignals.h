#pragma once

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

  /// Any thread.
  bool received() const;
};

}  // namespace corvane::host
