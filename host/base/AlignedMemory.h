#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

namespace corvane::host {

/// Bytes that begin on a page, as direct I/O wants its memory.
///
/// Grows, never shrinks; growing drops the content. Move-only, frees what it holds.
class AlignedMemory {
 public:
  static constexpr uint64_t alignment = 4096;

  AlignedMemory() = default;

  /// At least `bytes` bytes, uninitialised where they are new. Throws std::bad_alloc.
  uint8_t* atLeast(uint64_t bytes) {
    if (bytes > capacity_) {
      const uint64_t rounded = (bytes + alignment - 1) / alignment * alignment;
      memory_.reset(static_cast<uint8_t*>(std::aligned_alloc(alignment, rounded)));
      if (memory_ == nullptr) {
        capacity_ = 0;
        throw std::bad_alloc();
      }
      capacity_ = rounded;
    }
    return memory_.get();
  }

  uint8_t* data() const { return memory_.get(); }

 private:
  struct Free {
    void operator()(uint8_t* memory) const { std::free(memory); }
  };
  std::unique_ptr<uint8_t, Free> memory_;
  uint64_t capacity_ = 0;
};

}  // namespace corvane::host
