#pragma once

#include <cstdint>
#include <vector>

#include "host/drive/Drive.h"
#include "host/run/DriveCounters.h"
#include "host/run/HostClock.h"
#include "host/run/OrderingFence.h"

namespace corvane::host {

/// The commands of one drive between their issue and the delivery of their completions.
///
/// Above an ordering fence it adds waiting, with a watchdog, and commands of the host's own, which are waited for on
/// the spot. What else completes meanwhile is kept and delivered later, in the order in which it came.
///
/// DriveConnectionLost of the drive passes through each operation that submits or polls: every command is outstanding
/// until `forgetAll` then, which comes after a reset of the drive.
///
/// Allocates nothing after its construction. One thread.
class DriveQueue {
 public:
  /// @param drive      outlives the object, like the other references; nobody else submits to it or polls it
  /// @param agentTags  the agent's commands have tags below this
  /// @param ownCommand whether `runAlone` will be used, which takes a place in the drive beside the agent's
  /// @param watchdogMs a drive that completes nothing for so long has failed
  DriveQueue(Drive& drive, uint32_t agentTags, bool ownCommand, uint64_t watchdogMs, DriveCounters& counters,
             HostClock& clock);

  /// Issues a command of the agent.
  void submit(const DriveCommand& command) { fence_.submit(command); }

  /// Takes the next completion of an agent's command, if there is one.
  bool poll(DriveCompletion& out);

  /// Waits for a completion of an agent's command, of which at least one is outstanding.
  ///
  /// Throws DriveError when the watchdog's time is over.
  void wait(DriveCompletion& out);

  /// Carries out a command of the host's own and waits until it has ended. No outstanding command may overlap it.
  ///
  /// @param command gets its tag here
  ///
  /// Throws DriveError when the watchdog's time is over.
  DriveCompletion runAlone(DriveCommand command);

  /// Forgets all outstanding commands and every completion that was kept. For after a reset or a power cut.
  void forgetAll();

  /// Commands submitted whose completions were not taken.
  uint32_t outstanding() const { return fence_.outstanding() + keptCount_; }
  /// Completions that the drive has sent so far, those of the host's own commands included.
  uint64_t completions() const { return completions_; }
  bool isOutstanding(uint32_t tag) const { return fence_.isOutstanding(tag); }
  /// The command on a tag, until the next one is submitted on it.
  const DriveCommand& command(uint32_t tag) const { return fence_.command(tag); }
  /// Tags that may have commands: the agent's, and behind them the host's own.
  uint32_t tags() const { return tags_; }
  /// When the drive was sent the outstanding command on a tag; see OrderingFence.
  uint64_t sentUs(uint32_t tag) const { return fence_.sentUs(tag); }
  /// Whether the drive has not taken the outstanding command on a tag.
  bool isUnsent(uint32_t tag) const { return fence_.isUnsent(tag); }

 private:
  bool pollDrive(DriveCompletion& out);
  /// Past the kept completions.
  void waitForDrive(DriveCompletion& out);
  void keep(const DriveCompletion& completion);

  HostClock& clock_;
  const uint64_t watchdogMs_;
  const uint32_t ownTag_;
  const uint32_t tags_;
  OrderingFence fence_;
  std::vector<DriveCompletion> kept_;  ///< a ring
  uint32_t keptFirst_ = 0;
  uint32_t keptCount_ = 0;
  uint64_t completions_ = 0;
};

}  // namespace corvane::host
