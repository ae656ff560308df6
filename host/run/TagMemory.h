#pragma once

#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// Destination memory of reads, one piece for each queue tag.
///
/// Every piece begins on a page, as direct I/O wants it. Pages cost memory only once they are used.
class TagMemory {
 public:
  /// Throws ConfigurationError when the address space is not to be had.
  TagMemory(uint32_t tags, uint64_t bytesPerTag);
  ~TagMemory();
  TagMemory(const TagMemory&) = delete;
  TagMemory& operator=(const TagMemory&) = delete;

  /// Tells a drive of the memory, until the end of the object. The drive outlives it, or `forgetDrive` is called.
  void lendTo(Drive& drive);
  /// The drive is gone.
  void forgetDrive() { drive_ = nullptr; }

  /// `bytesPerTag` bytes that live as long as the object.
  uint8_t* of(uint32_t tag) { return base_ + tag * stride_; }

 private:
  uint64_t stride_ = 0;
  uint64_t bytes_ = 0;
  uint8_t* base_ = nullptr;
  Drive* drive_ = nullptr;  ///< that was told; may be null
};

}  // namespace corvane::host
