#include "support/ScarceMemory.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

struct Failure {
  bool armed = false;
  benchtest::ScarceMemory::Kind kind{};
  std::size_t minBytes = 0;
  uint64_t first = 0;
  uint64_t count = 0;
  uint64_t seen = 0;
  uint64_t failed = 0;
};
thread_local Failure failure;

constexpr auto anyAlignment = static_cast<std::align_val_t>(alignof(std::max_align_t));

void* get(benchtest::ScarceMemory::Kind kind, std::size_t bytes, std::align_val_t alignment) noexcept {
  if (failure.armed && failure.kind == kind && bytes >= failure.minBytes) {
    ++failure.seen;
    if (failure.seen >= failure.first && failure.seen - failure.first < failure.count) {
      ++failure.failed;
      return nullptr;
    }
  }
  const auto align = static_cast<std::size_t>(alignment);
  return std::aligned_alloc(align, (std::max<std::size_t>(bytes, 1) + align - 1) / align * align);
}

void* getOrThrow(std::size_t bytes, std::align_val_t alignment = anyAlignment) {
  void* memory = get(benchtest::ScarceMemory::Kind::throwing, bytes, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* getOrNull(std::size_t bytes, std::align_val_t alignment = anyAlignment) noexcept {
  return get(benchtest::ScarceMemory::Kind::nothrow, bytes, alignment);
}

}  // namespace

void* operator new(std::size_t bytes) { return getOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return getOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
void* operator new(std::size_t bytes, std::align_val_t alignment) { return getOrThrow(bytes, alignment); }
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return getOrNull(bytes, alignment);
}
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace benchtest {

ScarceMemory::ScarceMemory(Kind kind, std::size_t minBytes, uint64_t first, uint64_t count) {
  failure = Failure{true, kind, minBytes, first, count, 0, 0};
}

ScarceMemory::~ScarceMemory() { failure = Failure{}; }

uint64_t ScarceMemory::failed() const { return failure.failed; }

}  // namespace benchtest
