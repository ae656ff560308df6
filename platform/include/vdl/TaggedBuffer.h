#pragma once

#include <cstdint>

namespace vdl {

/// One byte buffer for every queue tag of a drive.
///
/// Ownership: the framework's. Used only on the drive's thread.
class TaggedBuffer {
 public:
  /// The bytes that belong to a tag.
  ///
  /// @param tag  any value; a tag that has no buffer is no error
  /// @param size receives the exact number of bytes, 0 when there is no buffer
  /// @return the first byte, valid until the end of the running callback; null when the tag has no buffer
  uint8_t* getData(uint32_t tag, uint64_t* size);

  /// Gives the tag's buffer back. Harmless for a tag that holds none, and when called again.
  void unlock(uint32_t tag);

  /// The implementation's own state.
  struct Impl;
  Impl* impl = nullptr;
};

}  // namespace vdl
