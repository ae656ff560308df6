#pragma once

#include <cstdint>

namespace vdl {

/// A range of blocks, `end` excluded.
struct LBARange {
  uint64_t first;
  uint64_t end;
};

/// First-in first-out queue of ranges that agents of one test post to each other.
///
/// Any thread may use it. Each operation takes the queue's mutex; `std::system_error` from a mutex that cannot be
/// locked passes through to the caller.
class LBARangeQueue {
 public:
  /// Appends a range.
  void push(LBARange range);

  /// Whether there is nothing to pop at the moment.
  bool empty();

  /// Removes the oldest range.
  ///
  /// @param out receives the range; untouched when the queue is empty
  /// @return false when the queue is empty
  bool tryPop(LBARange& out);

  /// The implementation's own state.
  struct Impl;
  Impl* impl = nullptr;
};

}  // namespace vdl
