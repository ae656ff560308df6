#include "AlignedMemory.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

namespace vdl {

namespace {

constexpr std::align_val_t page{4096};
constexpr std::align_val_t hugePage{hugeBlockBytes};

}  // namespace

uint8_t* newPageAligned(uint64_t bytes) noexcept {
  void* memory = ::operator new(bytes, page, std::nothrow);
  if (memory != nullptr) {
    std::memset(memory, 0, bytes);
  }
  return static_cast<uint8_t*>(memory);
}

void deletePageAligned(uint8_t* memory) noexcept { ::operator delete(memory, page); }

void* newHugeBlock() noexcept {
  void* memory = ::operator new(hugeBlockBytes, hugePage, std::nothrow);
  if (memory != nullptr) {
    // A kernel that refuses maps small pages, which is slower and nothing else.
    madvise(memory, hugeBlockBytes, MADV_HUGEPAGE);
  }
  return memory;
}

void deleteHugeBlock(void* memory) noexcept { ::operator delete(memory, hugePage); }

}  // namespace vdl
