#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "host/drive/Drive.h"

namespace corvane::host {

/// Which blocks somebody who reads back all that he wrote has not looked at since their last good write, as far as
/// the commands alone can tell.
///
/// The next read of the very range of a command that failed may only look whether the range can be read at all, so it
/// does not count as a look.
class LiveBlocks {
 public:
  void wrote(const DriveCommand& command);

  /// The command ended in no good way or not at all.
  void failed(const DriveCommand& command);

  /// Whether this read may be one that does not compare.
  bool mayOnlyProbe(const DriveCommand& read) const { return failedRanges_.contains({read.lba, read.blocks}); }

  /// A read or verify was issued. What it leaves of a write that it meets in part may never be read then.
  void willLook(const DriveCommand& command);

  /// It ended well.
  void looked(const DriveCommand& command);

  /// Zones were emptied. What is in them is unknown then, and nobody waits any more for a write that touched them, nor
  /// for the block behind them.
  void zonesReset(const DriveCommand& command);

  /// The old content of the blocks must be gone; who waits for them only checks that.
  void invalidated(const DriveCommand& command);

  bool contains(uint64_t lba) const { return holds(lba, State::live); }
  bool containsInvalidated(uint64_t lba) const { return holds(lba, State::invalidated); }

  /// Whether a live block may have been given up: a read met a part of the write that wrote it, but not the block. With
  /// reads that slide, that may have been the write's only read.
  bool mayBeGivenUp(uint64_t lba) const {
    const auto found = blocks_.find(lba);
    return found != blocks_.end() && found->second.partlyRead;
  }

  /// What changed the block last; nothing when no command did or the last one failed.
  std::optional<CommandKind> lastChange(uint64_t lba) const {
    const auto found = blocks_.find(lba);
    return found == blocks_.end() ? std::nullopt : std::optional(found->second.kind);
  }

 private:
  enum class State : uint8_t { lookedAt, live, invalidated };
  struct Block {
    CommandKind kind = CommandKind::write;
    State state = State::live;
    bool partlyRead = false;
    uint64_t first = 0;  ///< the range of the command that wrote it
    uint64_t end = 0;    ///< excluded
  };

  bool holds(uint64_t lba, State state) const {
    const auto found = blocks_.find(lba);
    return found != blocks_.end() && found->second.state == state;
  }

  /// Calls `act` for every block whose write touches the range.
  template <typename Act>
  void ofWritesOver(uint64_t first, uint64_t end, Act act) {
    const uint64_t before = first > longest_ ? first - longest_ : 0;
    for (uint64_t lba = before; lba < end + longest_; ++lba) {
      const auto found = blocks_.find(lba);
      if (found != blocks_.end() && found->second.first < end && first < found->second.end) {
        act(lba, found->second);
      }
    }
  }

  std::unordered_map<uint64_t, Block> blocks_;
  uint64_t longest_ = 0;                                       ///< LBAs that the longest write so far covered
  std::multiset<std::pair<uint64_t, uint32_t>> failedRanges_;  ///< that were not read since
};

}  // namespace corvane::host
