#pragma once

#include <cstdint>

namespace vdl {

/// The queue tags of a drive: which are free, in the order in which they will be used, and which are outstanding.
///
/// Tags run from 0 to the queue depth - 1. Used only on the drive's thread.
class FreeTagQueue {
 public:
  /// The tag that the next command will be issued on, without taking it.
  ///
  /// The answer stays the same until the command of this step is issued.
  ///
  /// @return the tag, or 0xFFFFFFFF when every tag is outstanding
  uint32_t peekNextFreeTag();

  /// Takes one outstanding tag back from the drive; each outstanding tag is returned once.
  ///
  /// The command on that tag is gone: its completion, if one comes, is dropped.
  ///
  /// @return the tag, or -1 when none is outstanding
  int32_t getNotFreeTag(uint32_t, bool);

  /// Puts a tag that was taken back at the end of the free queue.
  void pushFreeTag(uint32_t tag, uint32_t);

  /// The implementation's own state.
  struct Impl;
  Impl* impl = nullptr;
};

}  // namespace vdl
