#pragma once

#include <cstdint>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/Drive.h"

namespace corvane::host {

/// Decides in which order a simulated drive answers: each command takes a random time, so that short ones overtake.
///
/// Time is counted in polls and not in seconds, so that a seed and a sequence of calls always give the same order. A
/// command takes 1 to twice as many polls as the drive takes commands; who polls between two submissions keeps about
/// a full queue outstanding. Polls that find nothing, one after the other, mean that the caller has nothing else to
/// do: then time runs on to the next answer.
///
/// Allocates nothing after its construction.
class SimSchedule {
 public:
  /// @param depth most commands at once
  SimSchedule(uint32_t depth, uint64_t seed);

  /// Throws std::logic_error when `depth` commands wait already.
  void add(const DriveCommand& command);

  /// One tick: takes the command that is due first.
  ///
  /// @param wait let time pass until there is one
  /// @return false when nothing is due
  bool take(DriveCommand& out, bool wait);

  /// Takes any one; false when nothing waits. For a drive that drops its commands.
  bool takeAny(DriveCommand& out);

  bool empty() const { return heap_.empty(); }

 private:
  struct Entry {
    uint64_t due = 0;
    uint64_t tie = 0;  ///< random order among those that are due together
    DriveCommand command;
  };
  static bool later(const Entry& a, const Entry& b) { return a.due != b.due ? a.due > b.due : a.tie > b.tie; }
  void pop(DriveCommand& out);

  uint32_t depth_;
  Random random_;
  uint64_t now_ = 0;
  uint32_t idlePolls_ = 0;
  std::vector<Entry> heap_;  ///< by std::push_heap: the first due at the front
};

}  // namespace corvane::host
