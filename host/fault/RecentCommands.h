#pragma once

#include <array>
#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// The latest commands of a drive that ended well, as ranges.
class RecentCommands {
 public:
  struct Range {
    CommandKind kind = CommandKind::read;
    uint64_t first = 0;
    uint64_t end = 0;  ///< excluded
    uint32_t blocks = 0;
    uint32_t lbaStep = 1;

    /// Whether the command was about this block.
    bool contains(uint64_t lba) const { return lba >= first && lba < end && (lba - first) % lbaStep == 0; }
  };

  void add(const DriveCommand& command) {
    ranges_[count_++ % ranges_.size()] = {command.kind, command.lba, command.endLba(), command.blocks, command.lbaStep};
  }

  /// The latest change of any of these blocks when that was a write or write-same; null when it was another, or none
  /// is among the latest commands.
  const Range* latestWriteOver(uint64_t first, uint64_t end) const {
    const Range* range = latest([=](const Range& candidate) {
      return changesMedium(candidate.kind) && candidate.first < end && first < candidate.end;
    });
    const bool write = range != nullptr && (range->kind == CommandKind::write || range->kind == CommandKind::writeSame);
    return write ? range : nullptr;
  }

  /// Whether the range of this command was read, as exactly this range, since a command changed the block.
  bool wasReadSinceChange(const DriveCommand& command, uint64_t lba) const {
    const Range* range = latest([&](const Range& candidate) {
      return candidate.first <= lba && lba < candidate.end &&
             (changesMedium(candidate.kind) || (candidate.first == command.lba && candidate.blocks == command.blocks &&
                                                candidate.lbaStep == command.lbaStep));
    });
    return range != nullptr && range->kind == CommandKind::read;
  }

 private:
  template <typename Matches>
  const Range* latest(Matches matches) const {
    for (uint64_t back = 1; back <= ranges_.size() && back <= count_; ++back) {
      const Range& range = ranges_[(count_ - back) % ranges_.size()];
      if (matches(range)) {
        return &range;
      }
    }
    return nullptr;
  }

  std::array<Range, 256> ranges_{};
  uint64_t count_ = 0;
};

}  // namespace corvane::host
