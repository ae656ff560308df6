#include "support_model/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> made{0};
std::atomic<int64_t> live{0};

struct Failure {
  bool armed = false;
  std::size_t minBytes = 0;
  uint64_t first = 0;
  uint64_t count = 0;
  uint64_t seen = 0;
  uint64_t failed = 0;
};
thread_local Failure failure;

void* get(std::size_t bytes) noexcept {
  void* memory = std::malloc(bytes == 0 ? 1 : bytes);
  if (memory != nullptr) {
    ++made;
    ++live;
  }
  return memory;
}

void* getOrThrow(std::size_t bytes) {
  void* memory = get(bytes);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void* getUnlessArmed(std::size_t bytes) noexcept {
  if (failure.armed && bytes >= failure.minBytes) {
    ++failure.seen;
    if (failure.seen >= failure.first && failure.seen - failure.first < failure.count) {
      ++failure.failed;
      return nullptr;
    }
  }
  return get(bytes);
}

void put(void* memory) noexcept {
  if (memory != nullptr) {
    --live;
    std::free(memory);
  }
}

}  // namespace

void* operator new(std::size_t bytes) { return getOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return getOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return getUnlessArmed(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return getUnlessArmed(bytes); }
void operator delete(void* memory) noexcept { put(memory); }
void operator delete[](void* memory) noexcept { put(memory); }
void operator delete(void* memory, std::size_t) noexcept { put(memory); }
void operator delete[](void* memory, std::size_t) noexcept { put(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { put(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { put(memory); }

namespace modeltest {

uint64_t allocations() { return made; }
int64_t liveAllocations() { return live; }

FailNothrow::FailNothrow(uint64_t first, uint64_t count, std::size_t minBytes) {
  failure = Failure{true, minBytes, first, count, 0, 0};
}

FailNothrow::~FailNothrow() { failure = Failure{}; }

uint64_t FailNothrow::failed() const { return failure.failed; }

}  // namespace modeltest
