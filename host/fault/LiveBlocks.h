#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/drive/Drive.h"

namespace corvane::host {

/// Which blocks somebody who reads back all that he wrote has not looked at since their last good write, as far as
/// the commands alone can tell.
///
/// A read of the very range of a command that failed may only look whether the range can be read at all, so it does
/// not count as a look.
class LiveBlocks {
 public:
  void wrote(const DriveCommand& command) {
    failedRanges_.erase({command.lba, command.blocks});
    for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
      live_.insert(lba);
      lastChange_[lba] = command.kind;
    }
  }

  /// The command ended in no good way or not at all.
  void failed(const DriveCommand& command) {
    drop(command);
    failedRanges_.insert({command.lba, command.blocks});
    for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
      lastChange_.erase(lba);
    }
  }

  /// Whether this read may be one that does not compare.
  bool mayOnlyProbe(const DriveCommand& read) const { return failedRanges_.contains({read.lba, read.blocks}); }

  void looked(const DriveCommand& command) {
    if (!mayOnlyProbe(command)) {
      drop(command);
    }
  }

  bool contains(uint64_t lba) const { return live_.contains(lba); }

  /// What changed the block last; nothing when no command did or the last one failed.
  std::optional<CommandKind> lastChange(uint64_t lba) const {
    const auto found = lastChange_.find(lba);
    return found == lastChange_.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  void drop(const DriveCommand& command) {
    for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
      live_.erase(lba);
    }
  }

  std::unordered_set<uint64_t> live_;
  std::unordered_map<uint64_t, CommandKind> lastChange_;
  std::set<std::pair<uint64_t, uint32_t>> failedRanges_;
};

}  // namespace corvane::host
