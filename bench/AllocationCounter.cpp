#include "bench/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> calls{0};

void* counted(std::size_t bytes) {
  calls.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void* countedOrThrow(std::size_t bytes) {
  void* memory = counted(bytes);
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
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace corvane::bench {

uint64_t allocations() { return calls.load(std::memory_order_relaxed); }

}  // namespace corvane::bench
