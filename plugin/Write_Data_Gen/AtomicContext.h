#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Event.h"
#include "EventArena.h"
#include "LazyHasher.h"

namespace vdl {

/// The histories of the blocks that one read covered, as they stood when the read was issued, and the judgement of
/// what the read saw: each block on its own (`observe`), then all of them together (`atomicValid`).
///
/// For one read: `AtomicHash::getContext`, then `observe` for every block, then `atomicValid`. A copy is another name
/// for the same context, until one of them is cleared.
class AtomicContext {
 public:
  /// One block: its own copy of the events, and the one that the read's data matched.
  struct Node {
    uint64_t lba = 0;
    Event* history = nullptr;         ///< newest first, in the context's arena
    const Event* observed = nullptr;  ///< an event of `history`; null until `observe` matched one
  };

  /// An atomic write whose blocks are being walked by `atomicValid`.
  struct Segment {
    uint64_t cmd_id;
    uint32_t last;  ///< position of the last block of the context that the segment covers
  };

  /// Copies the events from `first` to the end of its list into the node of `lba`, replacing what was there.
  /// A null `first` does nothing.
  void copyHistory(uint64_t lba, const Event* first);

  /// The observed event; without one the newest event that is neither a marker nor transparent.
  /// Status -1004 when the block is not in the context.
  PeekResult peek(uint64_t lba) const;

  /// Finds the event that explains a block: by what it carries, and only if that fails by its hash. Only events
  /// down to the first one that is not transparent can explain it.
  ///
  /// @return 0; -1003 when no event explains the block; -1004 when the block is not in the context
  int32_t observe(uint64_t lba, ObserveData observed, LazyHasher& hasher) const;

  /// Whether every segment of every atomic write was seen either wholly or not at all.
  ///
  /// Positions count the blocks of the context, not LBAs: a block missing from it shifts those behind it.
  ///
  /// @param failedLba receives the block at which the rule broke; untouched when the answer is true
  bool atomicValid(uint64_t& failedLba) const;

  /// A block's history as a table for people; empty for a block that is not in the context.
  std::string getHistory(uint64_t lba) const;

  /// Forgets everything and keeps the memory for the next read.
  void clear();

  bool empty() const { return size() == 0; }
  std::size_t size() const { return state_ == nullptr ? 0 : state_->nodes.size(); }

 private:
  struct State {
    std::vector<Node> nodes;  ///< ascending by LBA
    EventArena events;
  };

  /// Null for a block that is not in the context.
  Node* find(uint64_t lba) const;

  std::shared_ptr<State> state_;  ///< null while nothing was ever copied into it
};

}  // namespace vdl
