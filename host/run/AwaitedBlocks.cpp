#include "host/run/AwaitedBlocks.h"

namespace corvane::host {
namespace {

constexpr uint32_t firstBits = 6;
constexpr uint32_t wordBits = 64;

}  // namespace

static_assert(sizeof(AwaitedBlock) == 16);

AwaitedBlocks::AwaitedBlocks() : slots_(size_t{1} << firstBits), shift_(wordBits - firstBits) {}

AwaitedBlocks::Page* AwaitedBlocks::addPage(uint64_t number) {
  if (2 * (used_ + 1) > slots_.size()) {
    grow();
  }
  if (free_.empty()) {
    chunks_.push_back(std::make_unique<std::array<Page, chunkPages>>());
    free_.reserve(capacity());
    for (Page& page : *chunks_.back()) {
      free_.push_back(&page);
    }
  }
  Page* page = free_.back();
  free_.pop_back();
  page->number = number;
  insert(page);
  ++used_;
  recent_ = page;
  return page;
}

void AwaitedBlocks::insert(Page* page) {
  size_t at = home(page->number);
  while (slots_[at].page != nullptr) {
    at = (at + 1) & (slots_.size() - 1);
  }
  slots_[at] = {.number = page->number, .page = page};
}

void AwaitedBlocks::removePage(Page* page) {
  const size_t mask = slots_.size() - 1;
  size_t hole = home(page->number);
  while (slots_[hole].page != page) {
    hole = (hole + 1) & mask;
  }
  // Whoever stands behind the hole moves up, unless that is before his home.
  for (size_t at = (hole + 1) & mask; slots_[at].page != nullptr; at = (at + 1) & mask) {
    if (((at - home(slots_[at].number)) & mask) >= ((at - hole) & mask)) {
      slots_[hole] = slots_[at];
      hole = at;
    }
  }
  slots_[hole] = {};
  --used_;
  free_.push_back(page);
  recent_ = nullptr;
}

void AwaitedBlocks::grow() {
  std::vector<Slot> old(slots_.size() * 2);
  old.swap(slots_);
  --shift_;
  for (const Slot& slot : old) {
    if (slot.page != nullptr) {
      insert(slot.page);
    }
  }
}

void AwaitedBlocks::clear() {
  for (Slot& slot : slots_) {
    if (slot.page != nullptr) {
      *slot.page = {};
      free_.push_back(slot.page);
      slot = {};
    }
  }
  used_ = 0;
  recent_ = nullptr;
}

}  // namespace corvane::host
