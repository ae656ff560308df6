#include "RecordPage.h"

#include <cstring>
#include <memory>

namespace vdl {

namespace {

/// All bits from the lowest to the highest one of a mask that is not empty.
uint64_t spanOf(uint64_t blocks) { return ~uint64_t{0} >> std::countl_zero(blocks) & ~((blocks & -blocks) - 1); }

}  // namespace

void RecordPage::add(uint64_t blocks) {
  if ((present_ & spanOf(blocks)) != 0) {
    addScattered(blocks);
    return;
  }
  // No record lies between the new ones, which is the rule: those above them move as one.
  LBARecord* const at = record(static_cast<uint32_t>(std::countr_zero(blocks)));
  const auto added = static_cast<uint32_t>(std::popcount(blocks));
  std::memmove(at + added, at, static_cast<std::size_t>(records() + count_ - at) * sizeof(LBARecord));
  std::uninitialized_fill_n(at, added, LBARecord{});
  count_ += added;
  present_ |= blocks;
}

void RecordPage::addScattered(uint64_t blocks) {
  LBARecord* from = records() + count_;
  present_ |= blocks;
  count_ = static_cast<uint32_t>(std::popcount(present_));
  LBARecord* to = records() + count_;
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
  if ((present_ & spanOf(blocks)) != blocks) {
    removeScattered(blocks);
    return;
  }
  LBARecord* const at = record(static_cast<uint32_t>(std::countr_zero(blocks)));
  const auto removed = static_cast<uint32_t>(std::popcount(blocks));
  const LBARecord* const behind = at + removed;
  std::memmove(at, behind, static_cast<std::size_t>(records() + count_ - behind) * sizeof(LBARecord));
  count_ -= removed;
  present_ &= ~blocks;
}

void RecordPage::removeScattered(uint64_t blocks) {
  LBARecord* to = record(static_cast<uint32_t>(std::countr_zero(blocks)));
  const LBARecord* from = to;
  for (uint64_t rest = present_ & ~((blocks & -blocks) - 1); rest != 0; rest &= rest - 1, ++from) {
    if ((blocks & rest & -rest) == 0) {
      *to++ = *from;
    }
  }
  present_ &= ~blocks;
  count_ = static_cast<uint32_t>(std::popcount(present_));
}

void RecordPage::takeOver(const RecordPage& other) {
  std::uninitialized_copy_n(other.records(), other.count(), records());
  present_ = other.present_;
  count_ = other.count_;
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
