#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "host/cli/Console.h"
#include "host/cli/EventStream.h"
#include "host/cli/Progress.h"
#include "host/run/TestRun.h"

namespace corvane::host {

/// Tells where a test stands whenever it is time to: a status for people, progress events for programs.
///
/// On a terminal the status is redrawn twice a second, elsewhere lines are added every ten seconds. Events come every
/// second. One thread.
class PeriodicReport {
 public:
  static constexpr uint64_t terminalIntervalMs = 500;
  static constexpr uint64_t lineIntervalMs = 10'000;
  static constexpr uint64_t eventIntervalMs = 1000;

  /// Whom it asks; any thread.
  struct Sources {
    std::function<ProgressSnapshot()> progress;
    std::function<std::vector<bool>()> found;  ///< whether there was a finding, by drive
  };
  /// @param out    null: no status; else outlives the object
  /// @param events null: no events; else outlives the object
  PeriodicReport(Sources sources, ProgressFacts facts, Console* out, EventStream* events);
  /// Takes the status away.
  ~PeriodicReport();
  PeriodicReport(const PeriodicReport&) = delete;
  PeriodicReport& operator=(const PeriodicReport&) = delete;

  /// Tells what is due.
  ///
  /// @param nowMs  since the test began; the first intervals begin at 0
  /// @param signal that asks the test to stop; 0: none so far. The first time it is told at once.
  /// @return milliseconds from `nowMs` until something is due again
  uint64_t tell(uint64_t nowMs, int signal);

  /// Tells of a signal that has not been told of yet; `tell` does the same.
  ///
  /// @return whether there was one
  bool tellStop(int signal);

 private:
  /// One of the things that are told.
  struct Turn {
    uint64_t intervalMs;
    uint64_t dueMs;

    /// Whether it is due; then its next time is the first one after now.
    bool take(uint64_t nowMs);
  };

  const Sources sources_;
  Progress progress_;
  Console* const out_;
  EventStream* const events_;
  Turn status_;
  Turn event_;
  bool stopTold_ = false;
};

}  // namespace corvane::host
