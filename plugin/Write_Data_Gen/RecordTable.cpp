#include "RecordTable.h"

#include <new>
#include <stdexcept>
#include <utility>

namespace vdl {

RecordPage* RecordTable::reserve(uint64_t number, uint64_t blocks) noexcept {
  const std::size_t slot = slotOf(number);
  RecordPage* page = slots_[slot].page;
  if (page == nullptr) {
    return newPage(slot, number, blocks);
  }
  const uint64_t missing = blocks & ~page->present();
  if (missing == 0) {
    return page;
  }
  const auto records = static_cast<uint32_t>(std::popcount(page->present() | missing));
  if (records > page->room()) {
    page = resize(slot, RecordPage::classFor(records));
    if (page == nullptr) {
      return nullptr;
    }
  }
  page->add(missing);
  size_ += static_cast<std::size_t>(std::popcount(missing));
  return page;
}

RecordPage* RecordTable::newPage(std::size_t slot, uint64_t number, uint64_t blocks) noexcept {
  // Five of eight slots at most: beyond that the ways to a free slot become long.
  if ((pageCount_ + 1) * 8 > slotCount() * 5) {
    if (!growSlots()) {
      return nullptr;
    }
    slot = slotOf(number);
  }
  const auto records = static_cast<uint32_t>(std::popcount(blocks));
  RecordPage* page = pages_.take(RecordPage::classFor(records));
  if (page == nullptr) {
    return nullptr;
  }
  page->add(blocks);
  slots_[slot] = {number, page};
  ++pageCount_;
  size_ += records;
  return page;
}

RecordPage* RecordTable::resize(std::size_t slot, uint32_t sizeClass) noexcept {
  RecordPage* page = pages_.take(sizeClass);
  if (page != nullptr) {
    page->takeOver(*slots_[slot].page);
    pages_.give(slots_[slot].page);
    slots_[slot].page = page;
  }
  return page;
}

void RecordTable::remove(uint64_t number, uint64_t blocks) noexcept {
  const std::size_t slot = slotOf(number);
  RecordPage* page = slots_[slot].page;
  size_ -= static_cast<std::size_t>(std::popcount(blocks));
  if (blocks == page->present()) {
    removePage(slot);
    return;
  }
  page->remove(blocks);
  // A page that gave away three quarters of its blocks keeps room for twice the rest; without memory it stays large.
  if (page->count() * 4 <= page->room()) {
    const uint32_t smaller = RecordPage::classFor(page->count() * 2);
    if (smaller != page->sizeClass()) {
      resize(slot, smaller);
    }
  }
}

void RecordTable::removePage(std::size_t slot) noexcept {
  pages_.give(slots_[slot].page);
  --pageCount_;
  // Whatever stands behind and would be looked for on its way across the free slot moves into it.
  std::size_t free = slot;
  for (std::size_t next = slotAfter(free); slots_[next].page != nullptr; next = slotAfter(next)) {
    const std::size_t wayToNext = (next - homeOf(slots_[next].number)) & (slotCount() - 1);
    if (wayToNext >= ((next - free) & (slotCount() - 1))) {
      slots_[free] = slots_[next];
      free = next;
    }
  }
  slots_[free] = {};
}

bool RecordTable::growSlots() noexcept {
  const uint32_t bits = slotBits_ == firstSlotBits ? 10 : slotBits_ + 1;
  std::unique_ptr<Slot[]> larger(new (std::nothrow) Slot[std::size_t{1} << bits]);
  if (larger == nullptr) {
    return false;
  }
  const Slot* const old = slots_;
  const std::size_t oldCount = slotCount();
  slots_ = larger.get();
  slotBits_ = bits;
  last_ = 0;
  for (std::size_t i = 0; i < oldCount; ++i) {
    if (old[i].page != nullptr) {
      slots_[slotOf(old[i].number)] = old[i];
    }
  }
  grown_ = std::move(larger);
  return true;
}

std::vector<uint64_t> RecordTable::order() const {
  std::vector<uint64_t> numbers;
  numbers.reserve(pageCount_);
  for (std::size_t i = 0; i < slotCount(); ++i) {
    if (slots_[i].page != nullptr) {
      numbers.push_back(slots_[i].number);
    }
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

bool RecordTable::order(std::vector<uint64_t>& numbers) const noexcept {
  try {
    numbers = order();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool RecordTable::nextPage(uint64_t& number) const noexcept {
  bool found = false;
  uint64_t lowest = ~uint64_t{0};
  for (std::size_t i = 0; i < slotCount(); ++i) {
    if (slots_[i].page != nullptr && slots_[i].number >= number && slots_[i].number <= lowest) {
      lowest = slots_[i].number;
      found = true;
    }
  }
  number = lowest;
  return found;
}

RecordTable::const_iterator RecordTable::begin() const {
  const_iterator first(this);
  first.goToPageFrom(0);
  return first;
}

const LBARecord& RecordTable::at(uint64_t lba) const {
  const LBARecord* found = record(lba);
  if (found == nullptr) {
    throw std::out_of_range("no record of the block");
  }
  return *found;
}

RecordTable::const_iterator& RecordTable::const_iterator::operator++() {
  const uint64_t behind = ~uint64_t{1} << lba_ % blocksPerPage;
  const uint64_t rest = page_->present() & behind;
  if (rest != 0) {
    lba_ = lba_ / blocksPerPage * blocksPerPage + static_cast<uint64_t>(std::countr_zero(rest));
  } else {
    goToPageFrom(lba_ / blocksPerPage + 1);
  }
  return *this;
}

void RecordTable::const_iterator::goToPageFrom(uint64_t number) {
  if (order_ == nullptr) {
    order_ = std::make_shared<const std::vector<uint64_t>>(table_->order());
  }
  const auto next = std::lower_bound(order_->begin(), order_->end(), number);
  page_ = next == order_->end() ? nullptr : table_->page(*next);
  if (page_ != nullptr) {
    lba_ = *next * blocksPerPage + static_cast<uint64_t>(std::countr_zero(page_->present()));
  }
}

}  // namespace vdl
