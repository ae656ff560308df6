#include "RecordPage.h"

#include <memory>

namespace vdl {

void RecordPage::add(uint64_t blocks) {
  LBARecord* from = records() + count();
  present_ |= blocks;
  LBARecord* to = records() + count();
  // From the top down, until everything that is left stands where it belongs.
  for (uint64_t rest = present_; to != from;) {
    const uint64_t top = std::bit_floor(rest);
    --to;
    if ((blocks & top) != 0) {
      new (to) LBARecord{};
    } else {
      new (to) LBARecord(*--from);
    }
    rest &= ~top;
  }
}

void RecordPage::remove(uint64_t blocks) {
  LBARecord* to = record(static_cast<uint32_t>(std::countr_zero(blocks)));
  const LBARecord* from = to;
  for (uint64_t rest = present_ & ~((blocks & -blocks) - 1); rest != 0; rest &= rest - 1, ++from) {
    if ((blocks & rest & -rest) == 0) {
      *to++ = *from;
    }
  }
  present_ &= ~blocks;
}

void RecordPage::takeOver(const RecordPage& other) {
  std::uninitialized_copy_n(other.records(), other.count(), records());
  present_ = other.present_;
  atomicSeen_ = other.atomicSeen_;
}

PageStore::~PageStore() {
  while (chunks_ != nullptr) {
    Chunk* older = chunks_->older;
    ::operator delete(chunks_);
    chunks_ = older;
  }
}

RecordPage* PageStore::take(uint32_t sizeClass) noexcept {
  void* memory = free_[sizeClass];
  if (memory != nullptr) {
    free_[sizeClass] = free_[sizeClass]->next;
  } else {
    const std::size_t bytes = RecordPage::bytesOf(sizeClass);
    if (roomBytes_ < bytes && !grow()) {
      return nullptr;
    }
    memory = room_;
    room_ += bytes;
    roomBytes_ -= bytes;
  }
  return new (memory) RecordPage(sizeClass);
}

void PageStore::give(RecordPage* page) noexcept {
  const uint32_t sizeClass = page->sizeClass();
  free_[sizeClass] = new (page) Free{free_[sizeClass]};
}

bool PageStore::grow() noexcept {
  void* memory = ::operator new(chunkBytes, std::nothrow);
  if (memory == nullptr) {
    return false;
  }
  chunks_ = new (memory) Chunk{chunks_};
  ++chunkCount_;
  room_ = static_cast<std::byte*>(memory) + sizeof(Chunk);
  roomBytes_ = chunkBytes - sizeof(Chunk);
  return true;
}

}  // namespace vdl
