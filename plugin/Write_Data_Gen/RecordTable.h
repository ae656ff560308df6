#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "LBARecord.h"
#include "RecordPage.h"

namespace vdl {

/// An ordered map from LBA to LBARecord, laid out for runs of neighbouring LBAs.
///
/// Pages of 64 LBAs stand in a hash table by their number (LBA / 64), so a command costs one look-up for each page that
/// it touches, and the page last looked up is found again at once. The order of the pages is made when somebody asks
/// for it. LBAs up to 2^64 - 1 are legal.
///
/// Nothing here allocates for a block that comes where one went. Records move when a block of their page is added or
/// removed.
class RecordTable {
 public:
  class const_iterator;
  using iterator = const_iterator;

  RecordTable() = default;
  RecordTable(const RecordTable&) = delete;
  RecordTable& operator=(const RecordTable&) = delete;

  /// Blocks on record.
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  /// What the table takes beside the object itself, bytes.
  std::size_t bytes() const { return pages_.bytes() + (grown_ == nullptr ? 0 : slotCount() * sizeof(Slot)); }

  /// The page with a number, or null when none of its blocks is on record.
  RecordPage* page(uint64_t number) const noexcept {
    const Slot& slot = slots_[slotOf(number)];
    return slot.page;
  }

  /// Adds default records for those of the `blocks` (a mask, not empty) of a page that are not on record.
  /// @return the page; null without memory, and then nothing has changed
  RecordPage* reserve(uint64_t number, uint64_t blocks) noexcept;

  /// Removes `blocks` of a page, all of which must be on record. The page may be gone or moved afterwards.
  void remove(uint64_t number, uint64_t blocks) noexcept;

  /// A block's record, or null.
  LBARecord* record(uint64_t lba) const noexcept {
    RecordPage* const found = page(lba / blocksPerPage);
    const auto block = static_cast<uint32_t>(lba % blocksPerPage);
    return found == nullptr || !found->has(block) ? nullptr : found->record(block);
  }

  /// Whether the pages may be more than the nearer caches keep beside everything else. 8,192 with
  /// four records each take nearly a mebibyte, and their slots a quarter of one.
  bool outgrowsCaches() const noexcept { return pageCount_ > 8192; }

  /// Asks the processor for the slot of a block's page, without waiting for it.
  void prefetchPlace(uint64_t lba) const noexcept { __builtin_prefetch(&slots_[homeOf(lba / blocksPerPage)]); }
  /// Asks for the head of a block's page. Waits for the slot, and does without when another page stands at its place.
  void prefetchPage(uint64_t lba) const noexcept {
    if (const RecordPage* const found = pageAtHome(lba)) {
      __builtin_prefetch(found);
    }
  }
  /// Asks for a block's record. Waits for the head of its page.
  void prefetchRecord(uint64_t lba) const noexcept {
    if (const RecordPage* const found = pageAtHome(lba)) {
      __builtin_prefetch(found->record(static_cast<uint32_t>(lba % blocksPerPage)));
    }
  }
  /// The page of a block when it stands where it is looked for first; null otherwise.
  const RecordPage* pageAtHome(uint64_t lba) const noexcept {
    const Slot& slot = slots_[homeOf(lba / blocksPerPage)];
    return slot.number == lba / blocksPerPage ? slot.page : nullptr;
  }

  /// Calls `visit(lba, record)` for the blocks on record from `first` to `last`, both included, in ascending order.
  template <typename Visit>
  void visit(uint64_t first, uint64_t last, Visit visit) const;

  const_iterator begin() const;
  const_iterator end() const;
  const_iterator find(uint64_t lba) const;
  /// The record must be there; throws std::out_of_range otherwise.
  const LBARecord& at(uint64_t lba) const;

 private:
  static constexpr uint32_t blocksPerPage = RecordPage::blocksPerPage;
  static constexpr uint32_t firstSlotBits = 4;
  struct Slot {
    uint64_t number = 0;
    RecordPage* page = nullptr;  ///< null: the slot is free
  };

  std::size_t slotCount() const { return std::size_t{1} << slotBits_; }
  std::size_t homeOf(uint64_t number) const {
    return static_cast<std::size_t>(number * 0x9E3779B97F4A7C15U >> (64 - slotBits_));
  }
  std::size_t slotAfter(std::size_t slot) const { return (slot + 1) & (slotCount() - 1); }

  /// The slot of a page, or the free one that it would take.
  std::size_t slotOf(uint64_t number) const noexcept {
    if (slots_[last_].number != number || slots_[last_].page == nullptr) {
      std::size_t slot = homeOf(number);
      while (slots_[slot].page != nullptr && slots_[slot].number != number) {
        slot = slotAfter(slot);
      }
      last_ = slot;
    }
    return last_;
  }

  bool growSlots() noexcept;
  RecordPage* newPage(std::size_t slot, uint64_t number, uint64_t blocks) noexcept;
  /// Moves a page's records to one of another size; null without memory.
  RecordPage* resize(std::size_t slot, uint32_t sizeClass) noexcept;
  void removePage(std::size_t slot) noexcept;

  /// The numbers of all pages, ascending. Throws std::bad_alloc without memory.
  std::vector<uint64_t> order() const;
  /// The same in `numbers`, or false without memory.
  bool order(std::vector<uint64_t>& numbers) const noexcept;
  /// The lowest number of a page from `number` on, the slow way; false when there is none.
  bool nextPage(uint64_t& number) const noexcept;

  template <typename Visit>
  static void visitPage(uint64_t number, RecordPage* page, uint64_t first, uint64_t last, Visit& visit);

  Slot few_[std::size_t{1} << firstSlotBits];  ///< so that the first blocks need no memory but for their page
  std::unique_ptr<Slot[]> grown_;
  Slot* slots_ = few_;
  uint32_t slotBits_ = firstSlotBits;
  mutable std::size_t last_ = 0;  ///< the slot last looked up
  std::size_t pageCount_ = 0;
  std::size_t size_ = 0;
  PageStore pages_;
};

/// Walks the blocks on record in ascending order, while none is added or removed. Going to another page allocates
/// and may throw std::bad_alloc.
class RecordTable::const_iterator {
 public:
  struct value_type {
    uint64_t first;           ///< the LBA
    const LBARecord& second;  ///< lives as long as its page stays as it is
  };
  struct Arrow {
    value_type value;
    const value_type* operator->() const { return &value; }
  };

  value_type operator*() const { return {lba_, *page_->record(static_cast<uint32_t>(lba_ % blocksPerPage))}; }
  Arrow operator->() const { return {**this}; }
  const_iterator& operator++();
  bool operator==(const const_iterator& other) const {
    return page_ == other.page_ && (page_ == nullptr || lba_ == other.lba_);
  }

 private:
  friend class RecordTable;
  explicit const_iterator(const RecordTable* table) : table_(table) {}
  const_iterator(const RecordTable* table, const RecordPage* page, uint64_t lba)
      : table_(table), page_(page), lba_(lba) {}
  void goToPageFrom(uint64_t number);

  const RecordTable* table_;
  const RecordPage* page_ = nullptr;  ///< null: the end
  uint64_t lba_ = 0;
  std::shared_ptr<const std::vector<uint64_t>> order_;  ///< of the pages; made when first needed
};

inline RecordTable::const_iterator RecordTable::end() const { return const_iterator(this); }

inline RecordTable::const_iterator RecordTable::find(uint64_t lba) const {
  const RecordPage* const found = page(lba / blocksPerPage);
  const bool there = found != nullptr && found->has(static_cast<uint32_t>(lba % blocksPerPage));
  return there ? const_iterator(this, found, lba) : end();
}

template <typename Visit>
void RecordTable::visitPage(uint64_t number, RecordPage* page, uint64_t first, uint64_t last, Visit& visit) {
  for (uint64_t rest = page->present(); rest != 0; rest &= rest - 1) {
    const auto block = static_cast<uint32_t>(std::countr_zero(rest));
    const uint64_t lba = number * blocksPerPage + block;
    if (lba >= first && lba <= last) {
      visit(lba, *page->record(block));
    }
  }
}

template <typename Visit>
void RecordTable::visit(uint64_t first, uint64_t last, Visit visit) const {
  if (first > last) {
    return;
  }
  const uint64_t lastNumber = last / blocksPerPage;
  uint64_t number = first / blocksPerPage;
  if (lastNumber - number < pageCount_) {
    for (; number <= lastNumber; ++number) {
      if (RecordPage* const found = page(number)) {
        visitPage(number, found, first, last, visit);
      }
    }
    return;
  }
  std::vector<uint64_t> numbers;
  if (order(numbers)) {
    for (auto next = std::lower_bound(numbers.begin(), numbers.end(), number);
         next != numbers.end() && *next <= lastNumber; ++next) {
      visitPage(*next, page(*next), first, last, visit);
    }
    return;
  }
  for (; nextPage(number) && number <= lastNumber; ++number) {
    visitPage(number, page(number), first, last, visit);
  }
}

}  // namespace vdl
