#include "AlignedMemory.h"

#include <cstring>
#include <new>

namespace vdl {

namespace {

constexpr std::align_val_t page{4096};

}  // namespace

uint8_t* newPageAligned(uint64_t bytes) noexcept {
  void* memory = ::operator new(bytes, page, std::nothrow);
  if (memory != nullptr) {
    std::memset(memory, 0, bytes);
  }
  return static_cast<uint8_t*>(memory);
}

void deletePageAligned(uint8_t* memory) noexcept { ::operator delete(memory, page); }

}  // namespace vdl
