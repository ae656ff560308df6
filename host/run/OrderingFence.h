#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/framework/TagPool.h"
#include "host/run/DriveCounters.h"
#include "host/run/HostClock.h"
#include "host/run/RegionCounts.h"

namespace corvane::host {

/// Stands between the step loop and a drive and makes overlapping commands behave as if executed in issue order.
///
/// A command goes to the drive only when every earlier command that it conflicts with has been taken from `poll`.
/// Two commands conflict when their LBAs overlap and one of them changes the medium, or when one of them is a cache
/// flush, which so becomes a barrier. Everything else the drive may reorder as it likes. Since a conflicting
/// successor was not even submitted, the completions of conflicting commands also come out in issue order.
///
/// A range with an alternating skip mask counts from its first to its last LBA.
///
/// A write on a host-managed drive also waits while an earlier one to its zone is held back or sent again, since the
/// drive takes the writes of a zone only in their order.
///
/// Answers that say nothing about the data (busy, task set full, reservation conflict, unit attention) are never
/// passed on: the command is sent again.
///
/// When the drive throws DriveConnectionLost, the commands stay outstanding until `forgetAll`, which somebody calls
/// after the drive was reset. A completion that had been taken by then is passed on first.
///
/// Allocates nothing after its construction but the text of a loss. One thread.
class OrderingFence {
 public:
  static constexpr uint32_t maxAttempts = 1000;  ///< of one command, about a second altogether

  /// @param drive outlives the object; nobody else submits to it or polls it
  /// @param tags  commands have tags below this; at most TagPool::maxTags
  OrderingFence(Drive& drive, uint32_t tags, DriveCounters& counters, HostClock& clock);

  /// Issues a command: passes it to the drive or holds it back.
  ///
  /// @param command its tag must not be outstanding; the fence gives it its id
  ///
  /// It is outstanding also when DriveConnectionLost is thrown.
  void submit(const DriveCommand& command);

  /// Takes the next completion, if there is one; never blocks on the drive.
  ///
  /// The commands that waited for it are submitted before this returns.
  ///
  /// Throws DriveError when the drive answers one command `maxAttempts` times that it cannot take it now, and
  /// DriveConnectionLost.
  bool poll(DriveCompletion& out);

  /// As Drive::waitUpTo; false also when a command waits to be sent again, which a poll does.
  bool waitUpTo(uint64_t microseconds);

  /// Forgets all outstanding commands. For after a reset or a power cut: what was held back never reaches the drive,
  /// and completions that come late are dropped.
  void forgetAll();

  /// Commands submitted and not yet taken from `poll`.
  uint32_t outstanding() const { return count_; }
  /// Of those, the ones that the drive has not seen yet.
  uint32_t held() const { return held_; }
  /// The outstanding command on a tag; of a tag that has none the last one.
  const DriveCommand& command(uint32_t tag) const { return nodes_[tag].command; }

  bool isOutstanding(uint32_t tag) const { return nodes_[tag].outstanding; }
  /// Whether the outstanding command on a tag is held back or waits to be sent again, so that the drive has not
  /// taken it.
  bool isUnsent(uint32_t tag) const;

  /// When the drive was sent the outstanding command on a tag, in the clock's `coarseUs`. Not for one that it has not.
  uint64_t sentUs(uint32_t tag) const { return nodes_[tag].sentUs; }

  /// The oldest outstanding commands for a message, e.g. "write of 8 blocks at LBA 100 (tag 3)".
  std::string describeOutstanding(size_t most) const;

 private:
  using TagSet = std::array<uint64_t, TagPool::maxTags / 64>;
  struct Node {
    DriveCommand command;
    TagSet successors{};  ///< held commands that wait for this one; empty unless `hasSuccessors`
    uint64_t sentUs = 0;
    uint32_t waitsFor = 0;  ///< conflicting predecessors that are still outstanding
    uint32_t position = 0;  ///< in the dense arrays
    uint32_t attempts = 0;
    bool outstanding = false;
    bool hasSuccessors = false;
  };

  void holdBehindConflicting(Node& node, uint64_t first, uint64_t end, uint8_t writes);
  /// Whether an outstanding command may be in the way of a new one; there is at least one. Counts the new one in its
  /// regions, if they are counted.
  bool mayConflict(uint64_t first, uint64_t end);
  /// @param others of the outstanding commands so many are counted
  bool enterRegions(uint64_t first, uint64_t end, uint32_t others);
  bool isUnsentWriteTo(uint64_t zone, const Node& node) const;
  void pass(Node& node);
  void send(Node& node);
  void giveToDrive(Node& node);
  void sendAgain();
  void keepForRetry(Node& node, const DriveCompletion& completion);
  void remove(uint32_t tag);
  void releaseSuccessors(Node& node);
  void sendReleased();

  Drive& drive_;
  DriveCounters& counters_;
  HostClock& clock_;
  const uint64_t zoneBlocks_;  ///< of a host-managed drive; 0: another drive
  std::vector<Node> nodes_;    ///< by tag
  // The outstanding commands side by side, so that the conflict test of a new one is a walk over a few cache lines.
  // A cache flush is a write of everything.
  std::vector<uint64_t> first_;
  std::vector<uint64_t> end_;
  std::vector<uint32_t> tag_;
  std::vector<uint8_t> writes_;
  RegionCounts regions_;  ///< of the outstanding commands, once there were more than a few of them at once
  bool countsRegions_ = false;
  uint32_t count_ = 0;
  uint32_t held_ = 0;
  uint64_t nextId_ = 1;
  std::vector<uint32_t> toSend_;     ///< scratch of releaseSuccessors
  std::vector<uint32_t> toRetry_;    ///< tags that the drive could not take
  std::optional<std::string> lost_;  ///< why the connection was lost, while it is still to be thrown
};

}  // namespace corvane::host
