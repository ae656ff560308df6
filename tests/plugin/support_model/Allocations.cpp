#include "support_model/Allocations.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> made{0};
std::atomic<int64_t> live{0};
std::atomic<int64_t> liveSize{0};
thread_local modeltest::Extent last{};

struct Failure {
  bool armed = false;
  std::size_t minBytes = 0;
  uint64_t first = 0;
  uint64_t count = 0;
  uint64_t seen = 0;
  uint64_t failed = 0;
};
thread_local Failure failure;

constexpr auto anyAlignment = static_cast<std::align_val_t>(alignof(std::max_align_t));

void* get(std::size_t bytes, std::align_val_t alignment = anyAlignment) noexcept {
  const auto align = static_cast<std::size_t>(alignment);
  void* memory = std::aligned_alloc(align, (std::max<std::size_t>(bytes, 1) + align - 1) / align * align);
  if (memory != nullptr) {
    ++made;
    ++live;
    liveSize += static_cast<int64_t>(malloc_usable_size(memory));
    last = {static_cast<std::byte*>(memory), static_cast<std::byte*>(memory) + bytes};
  }
  return memory;
}

void* getOrThrow(std::size_t bytes, std::align_val_t alignment = anyAlignment) {
  void* memory = get(bytes, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* getUnlessArmed(std::size_t bytes, std::align_val_t alignment = anyAlignment) noexcept {
  if (failure.armed && bytes >= failure.minBytes) {
    ++failure.seen;
    if (failure.seen >= failure.first && failure.seen - failure.first < failure.count) {
      ++failure.failed;
      return nullptr;
    }
  }
  return get(bytes, alignment);
}

void put(void* memory) noexcept {
  if (memory != nullptr) {
    --live;
    liveSize -= static_cast<int64_t>(malloc_usable_size(memory));
    std::free(memory);
  }
}

}  // namespace

void* operator new(std::size_t bytes) { return getOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return getOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return getUnlessArmed(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return getUnlessArmed(bytes); }
void* operator new(std::size_t bytes, std::align_val_t alignment) { return getOrThrow(bytes, alignment); }
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return getUnlessArmed(bytes, alignment);
}
void operator delete(void* memory, std::align_val_t) noexcept { put(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { put(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { put(memory); }
void operator delete(void* memory) noexcept { put(memory); }
void operator delete[](void* memory) noexcept { put(memory); }
void operator delete(void* memory, std::size_t) noexcept { put(memory); }
void operator delete[](void* memory, std::size_t) noexcept { put(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { put(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { put(memory); }

namespace modeltest {

uint64_t allocations() { return made; }
int64_t liveAllocations() { return live; }
int64_t liveBytes() { return liveSize; }
Extent lastAllocation() { return last; }

FailNothrow::FailNothrow(uint64_t first, uint64_t count, std::size_t minBytes) {
  failure = Failure{true, minBytes, first, count, 0, 0};
}

FailNothrow::~FailNothrow() { failure = Failure{}; }

uint64_t FailNothrow::failed() const { return failure.failed; }

}  // namespace modeltest
