#include "bench/AllocationCounter.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> calls{0};

constexpr auto anyAlignment = static_cast<std::align_val_t>(alignof(std::max_align_t));

void* counted(std::size_t bytes, std::align_val_t alignment = anyAlignment) {
  calls.fetch_add(1, std::memory_order_relaxed);
  const auto align = static_cast<std::size_t>(alignment);
  return std::aligned_alloc(align, (std::max<std::size_t>(bytes, 1) + align - 1) / align * align);
}

void* countedOrThrow(std::size_t bytes, std::align_val_t alignment = anyAlignment) {
  void* memory = counted(bytes, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

void* operator new(std::size_t bytes) { return countedOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return countedOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return counted(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return counted(bytes); }
void* operator new(std::size_t bytes, std::align_val_t alignment) { return countedOrThrow(bytes, alignment); }
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return counted(bytes, alignment);
}
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace corvane::bench {

uint64_t allocations() { return calls.load(std::memory_order_relaxed); }

}  // namespace corvane::bench
