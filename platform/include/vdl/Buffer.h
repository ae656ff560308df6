#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "vdl/Status.h"

namespace vdl {

/// A growable byte buffer that either owns its storage or looks at somebody else's.
///
/// The member order is part of the boundary: both sides of it read and write the members directly. Storage that a
/// Buffer owns always comes from `new (std::nothrow) uint8_t[n]()` and goes back through `delete[]`, whichever
/// side allocates and whichever side frees.
struct Buffer {
  uint8_t* data = nullptr;  ///< first byte, or null
  uint64_t capacity = 0;    ///< bytes of storage behind `data`
  uint64_t size = 0;        ///< bytes in use, counted from `data`
  bool owned = false;       ///< whether `data` is this buffer's to free

  Buffer() = default;
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  /// Takes over the other buffer's storage and leaves the other one empty.
  Buffer(Buffer&& other) noexcept
      : data(std::exchange(other.data, nullptr)),
        capacity(std::exchange(other.capacity, 0)),
        size(std::exchange(other.size, 0)),
        owned(std::exchange(other.owned, false)) {}

  Buffer& operator=(Buffer&& other) noexcept {
    if (this != &other) {
      release();
      data = std::exchange(other.data, nullptr);
      capacity = std::exchange(other.capacity, 0);
      size = std::exchange(other.size, 0);
      owned = std::exchange(other.owned, false);
    }
    return *this;
  }

  /// Frees owned storage; storage that is only looked at stays untouched.
  ~Buffer() { release(); }

  /// Moves the content into new, zeroed storage of n bytes that this buffer owns.
  ///
  /// The used size is kept, cut to n when n is smaller. Storage that was not owned is copied from and left alone.
  ///
  /// @return 0, or -1002 when the memory is not to be had; the buffer is then unchanged
  int reserve(uint64_t n) {
    auto* storage = new (std::nothrow) uint8_t[n]();
    if (storage == nullptr) {
      return status::outOfMemory;
    }
    const uint64_t used = std::min(size, n);
    if (data != nullptr) {
      std::memcpy(storage, data, used);
      if (owned) {
        delete[] data;
      }
    }
    data = storage;
    capacity = n;
    size = used;
    owned = true;
    return status::ok;
  }

  /// Frees what it owns; the buffer is empty and owns nothing afterwards.
  void release() {
    if (owned) {
      delete[] data;
    }
    data = nullptr;
    capacity = 0;
    size = 0;
    owned = false;
  }

  /// Looks at n bytes from p without owning them; p must outlive the view.
  void view(uint8_t* p, uint64_t n) {
    release();
    data = p;
    capacity = n;
    size = n;
  }
};

static_assert(sizeof(Buffer) == 32, "Buffer's layout is shared with other builds of the framework");

}  // namespace vdl
