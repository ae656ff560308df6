#include "tests/support/Shortage.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> countdown{0};  ///< the allocation that fails when it comes to 0; 0: none
std::atomic<uint64_t> failures{0};
std::atomic<int64_t> living{0};

constexpr auto anyAlignment = static_cast<std::align_val_t>(alignof(std::max_align_t));

bool mustFail() noexcept {
  uint64_t left = countdown.load();
  while (left != 0 && !countdown.compare_exchange_weak(left, left - 1)) {
  }
  if (left != 1) {
    return false;
  }
  failures.fetch_add(1);
  return true;
}

/// As the operators of the standard library do.
void callNewHandler() noexcept {
  try {
    if (const std::new_handler handler = std::get_new_handler(); handler != nullptr) {
      handler();
    }
  } catch (const std::bad_alloc&) {
  }
}

void* getOrNull(std::size_t bytes, std::align_val_t alignment = anyAlignment) noexcept {
  if (mustFail()) {
    callNewHandler();
    return nullptr;
  }
  living.fetch_add(1);
  const auto align = static_cast<std::size_t>(alignment);
  return std::aligned_alloc(align, (std::max<std::size_t>(bytes, 1) + align - 1) / align * align);
}

void* getOrThrow(std::size_t bytes, std::align_val_t alignment = anyAlignment) {
  void* memory = getOrNull(bytes, alignment);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void giveBack(void* memory) noexcept {
  living.fetch_sub(memory != nullptr ? 1 : 0);
  std::free(memory);
}

}  // namespace

// Those of the agent's library, too, as the program's are found first.
#define CORVANE_SHOWN __attribute__((visibility("default")))
CORVANE_SHOWN void* operator new(std::size_t bytes) { return getOrThrow(bytes); }
CORVANE_SHOWN void* operator new[](std::size_t bytes) { return getOrThrow(bytes); }
CORVANE_SHOWN void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
CORVANE_SHOWN void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return getOrNull(bytes); }
CORVANE_SHOWN void* operator new(std::size_t bytes, std::align_val_t alignment) { return getOrThrow(bytes, alignment); }
CORVANE_SHOWN void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return getOrNull(bytes, alignment);
}
CORVANE_SHOWN void operator delete(void* memory, std::align_val_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete[](void* memory) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, std::size_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete[](void* memory, std::size_t) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete(void* memory, const std::nothrow_t&) noexcept { giveBack(memory); }
CORVANE_SHOWN void operator delete[](void* memory, const std::nothrow_t&) noexcept { giveBack(memory); }

namespace corvane::tests {

Shortage::Shortage(uint64_t number) {
  failures = 0;
  countdown = number;
}

Shortage::~Shortage() { countdown = 0; }

bool Shortage::end() {
  countdown = 0;
  return failures != 0;
}

int64_t livingAllocations() { return living; }

}  // namespace corvane::tests
