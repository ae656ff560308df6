#include "support/ScarceMemory.h"

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

void* get(benchtest::ScarceMemory::Kind kind, std::size_t bytes) noexcept {
  if (failure.armed && failure.kind == kind && bytes >= failure.minBytes) {
    ++failure.seen;
    if (failure.seen >= failure.first && failure.seen - failure.first < failure.count) {
      ++failure.failed;
      return nullptr;
    }
  }
  return std::malloc(bytes == 0 ? 1 : bytes);
}

void* getOrThrow(std::size_t bytes) {
  void* memory = get(benchtest::ScarceMemory::Kind::throwing, bytes);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* getOrNull(std::size_t bytes) noexcept { return get(benchtest::ScarceMemory::Kind::nothrow, bytes); }

}  // namespace

void* operator new(std::size_t bytes) { return getOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return getOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
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
