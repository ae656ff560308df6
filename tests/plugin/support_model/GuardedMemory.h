#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace modeltest {

/// Bytes behind which nothing can be read or written: whoever tries ends the test program.
class GuardedMemory {
 public:
  explicit GuardedMemory(std::size_t bytes) : mapped_((bytes + page - 1) / page * page + page) {
    void* const memory = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::bad_alloc();
    }
    base_ = static_cast<uint8_t*>(memory);
    if (mprotect(base_ + mapped_ - page, page, PROT_NONE) != 0) {
      munmap(base_, mapped_);
      throw std::bad_alloc();
    }
    first_ = base_ + mapped_ - page - bytes;
  }
  ~GuardedMemory() { munmap(base_, mapped_); }
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  uint8_t* data() const { return first_; }

 private:
  static constexpr std::size_t page = 4096;

  std::size_t mapped_;
  uint8_t* base_ = nullptr;
  uint8_t* first_ = nullptr;
};

}  // namespace modeltest
