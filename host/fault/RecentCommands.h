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
  };

  void add(const DriveCommand& command) {
    ranges_[count_++ % ranges_.size()] = {command.kind, command.lba, command.endLba(), command.blocks};
  }

  /// The latest write or write-same over any of these blocks; null when there is none among the latest commands.
  const Range* latestWriteOver(uint64_t first, uint64_t end) const {
    return latest([=](const Range& range) {
      return (range.kind == CommandKind::write || range.kind == CommandKind::writeSame) && range.first < end &&
             first < range.end;
    });
  }

  /// Whether the range of this command was read, as exactly this range, since a command changed the block.
  bool wasReadSinceChange(const DriveCommand& command, uint64_t lba) const {
    const Range* range = latest([&](const Range& candidate) {
      return candidate.first <= lba && lba < candidate.end &&
             (changesMedium(candidate.kind) || (candidate.first == command.lba && candidate.blocks == command.blocks));
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
