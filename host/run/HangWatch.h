#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/run/DriveQueue.h"
#include "host/run/HostClock.h"
#include "host/run/UnansweredCommand.h"

namespace corvane::host {

/// Looks after single commands that a drive never answers while it answers others, and describes what a drive that
/// hangs has not answered. That nothing at all is answered is noticed by DriveQueue.
///
/// One thread. Allocates nothing while nothing hangs.
class HangWatch {
 public:
  /// @param queue      outlives the object, like the clock
  /// @param watchdogMs a command that the drive has had for so long hangs
  HangWatch(const DriveQueue& queue, uint64_t watchdogMs, HostClock& clock);

  /// Once a step; looks at the commands now and then.
  ///
  /// Throws DriveHung when one of them hangs, up to two eighths of the watchdog's time late: it must still hang an
  /// eighth after it was suspected, and after as many answers to others as there are tags, for after the whole process
  /// stood still its own may wait to be taken.
  void look() {
    if (++calls_ % callsPerLook == 0 && clock_.runsByItself()) {
      lookAtClock();
    }
  }

  /// The commands that hang, oldest first.
  std::vector<UnansweredCommand> hanging() const { return hanging(clock_.coarseUs()); }
  /// Commands that hang, in one sentence: how many, and the first few with their ages; empty when there is none.
  std::string describe(const std::vector<UnansweredCommand>& commands) const;
  /// What to do about a drive that hangs, for the end of a sentence.
  std::string remedy() const;

 private:
  static constexpr uint32_t callsPerLook = 64;

  void lookAtClock();
  std::vector<UnansweredCommand> hanging(uint64_t nowUs) const;

  const DriveQueue& queue_;
  HostClock& clock_;
  const uint64_t watchdogUs_;
  uint32_t calls_ = 0;
  uint64_t nextLookUs_ = 0;
  bool suspects_ = false;
  uint64_t suspectedAt_ = 0;  ///< completions by then
};

/// "1.5 s", "250 ms".
std::string secondsText(uint64_t microseconds);

}  // namespace corvane::host
