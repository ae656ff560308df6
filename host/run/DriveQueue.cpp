#include "host/run/DriveQueue.h"

#include <algorithm>
#include <cassert>
#include <string>
#include <thread>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr uint32_t keenPolls =
    16;  ///< before waiting sleeps or offers the processor to others; a drive in memory needs fewer
constexpr uint32_t briefPauses = 48;  ///< before waiting gives the processor away for longer
constexpr uint64_t firstPauseUs = 8;
constexpr uint64_t longestPauseUs = 1000;
constexpr uint64_t longestSleepUs = 100'000;  ///< before the watchdog looks again
constexpr size_t namedCommands = 8;           ///< in the watchdog's message

/// The pauses between two polls of a drive that cannot be slept on: longer and longer.
class Patience {
 public:
  explicit Patience(HostClock& clock) : clock_(clock) {}

  void pause() {
    if (pauses_ < briefPauses) {
      ++pauses_;
      std::this_thread::yield();
      return;
    }
    clock_.pause(nextUs_);
    nextUs_ = std::min(nextUs_ * 2, longestPauseUs);
  }

 private:
  HostClock& clock_;
  uint32_t pauses_ = 0;
  uint64_t nextUs_ = firstPauseUs;
};

}  // namespace

DriveQueue::DriveQueue(Drive& drive, uint32_t agentTags, bool ownCommand, uint64_t watchdogMs, DriveCounters& counters,
                       HostClock& clock)
    : clock_(clock),
      watchdogMs_(watchdogMs),
      ownTag_(agentTags),
      tags_(agentTags + (ownCommand ? 1 : 0)),
      fence_(drive, agentTags + (ownCommand ? 1 : 0), counters, clock),
      kept_(ownCommand ? agentTags : 0) {}

bool DriveQueue::poll(DriveCompletion& out) {
  if (keptCount_ == 0) {
    return pollDrive(out);
  }
  out = kept_[keptFirst_];
  keptFirst_ = (keptFirst_ + 1) % static_cast<uint32_t>(kept_.size());
  --keptCount_;
  return true;
}

bool DriveQueue::pollDrive(DriveCompletion& out) {
  const bool came = fence_.poll(out);
  completions_ += came ? 1U : 0U;
  return came;
}

void DriveQueue::wait(DriveCompletion& out) {
  if (!poll(out)) {
    waitForDrive(out);
  }
}

DriveCompletion DriveQueue::runAlone(DriveCommand command) {
  command.tag = ownTag_;
  fence_.submit(command);
  DriveCompletion completion;
  for (;;) {
    waitForDrive(completion);
    if (completion.tag == ownTag_) {
      return completion;
    }
    keep(completion);
  }
}

void DriveQueue::keep(const DriveCompletion& completion) {
  // There is room: each of them holds its tag until it is delivered.
  assert(keptCount_ < kept_.size());
  kept_[(keptFirst_ + keptCount_) % kept_.size()] = completion;
  ++keptCount_;
}

void DriveQueue::waitForDrive(DriveCompletion& out) {
  for (uint32_t polls = 0; polls < keenPolls; ++polls) {
    if (pollDrive(out)) {
      return;
    }
  }
  // Never asleep for good, so that a drive that hangs is noticed.
  const uint64_t beganUs = clock_.steadyUs();
  Patience patience(clock_);
  while (!pollDrive(out)) {
    if (clock_.steadyUs() - beganUs >= watchdogMs_ * 1000) {
      throw DriveError("the drive completed nothing for " + std::to_string(watchdogMs_ / 1000) +
                       " s, outstanding are " + fence_.describeOutstanding(namedCommands) +
                       "; check the drive and its connection");
    }
    if (!fence_.waitUpTo(longestSleepUs)) {
      patience.pause();
    }
  }
}

void DriveQueue::forgetAll() {
  fence_.forgetAll();
  keptCount_ = 0;
}

}  // namespace corvane::host
