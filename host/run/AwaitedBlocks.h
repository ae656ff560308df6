#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <vector>

namespace corvane::host {

/// What is known of one block while somebody waits for it.
struct AwaitedBlock {
  /// What the newest command that is certain to have been carried out left there.
  enum class Content : uint8_t {
    unknown,      ///< of before the test, or nobody knows any more
    writeFailed,  ///< of a write that failed or was lost
    zoneReset,
    invalidated,  ///< anything but what was there
    untold,       ///< what it is compared with cannot be told from the commands
    written,      ///< the data of one write
    hashed        ///< what the read ahead of an atomic write saw
  };

  uint64_t since = 0;    ///< when it became awaited, in the caller's time
  uint32_t claims = 0;   ///< reads and verifies that are still to come
  uint16_t readers = 0;  ///< that are outstanding
  Content content = Content::unknown;
  uint8_t unfinishedAtomics : 6 = 0;   ///< atomic writes of unknown end above the content; 63 stands for more, too
  uint8_t knownWhenIssued : 1 = 0;     ///< the content will be known when all that was issued so far has ended well
  uint8_t hashedUnderReaders : 1 = 0;  ///< some of the readers look past the hash at what was there before it
};

/// A sparse table of blocks, by LBA, in pages of 64 neighbours.
///
/// Memory is needed only for pages with a block that is awaited; it is kept for the next ones when they empty. One
/// thread.
class AwaitedBlocks {
 public:
  AwaitedBlocks();

  /// The block, or null when nobody waits for it. Valid until the next block is made or erased.
  AwaitedBlock* find(uint64_t lba) {
    Page* page = pageOf(lba / pageBlocks);
    return page != nullptr && (page->present >> (lba % pageBlocks) & 1) != 0 ? &page->blocks[lba % pageBlocks]
                                                                             : nullptr;
  }

  /// The block; a new one is as AwaitedBlock says, and awaited since `now`.
  AwaitedBlock& make(uint64_t lba, uint64_t now) {
    Page* page = pageOf(lba / pageBlocks);
    if (page == nullptr) {
      page = addPage(lba / pageBlocks);
    }
    const uint64_t bit = uint64_t{1} << (lba % pageBlocks);
    AwaitedBlock& block = page->blocks[lba % pageBlocks];
    if ((page->present & bit) == 0) {
      page->present |= bit;
      block.since = now;
    }
    return block;
  }

  /// Forgets a block that is there.
  void erase(uint64_t lba) {
    Page* page = pageOf(lba / pageBlocks);
    page->blocks[lba % pageBlocks] = {};
    page->present &= ~(uint64_t{1} << (lba % pageBlocks));
    if (page->present == 0) {
      removePage(page);
    }
  }

  void clear();

  /// Calls `act` for every block that is there from `first` to `last`, both included. It may not make or erase any.
  template <typename Act>
  void ofRange(uint64_t first, uint64_t last, Act act) {
    for (uint64_t number = first / pageBlocks; number <= last / pageBlocks; ++number) {
      Page* page = pageOf(number);
      for (uint64_t bits = page == nullptr ? 0 : page->present; bits != 0; bits &= bits - 1) {
        const uint64_t lba = number * pageBlocks + static_cast<uint64_t>(std::countr_zero(bits));
        if (lba >= first && lba <= last) {
          act(page->blocks[lba % pageBlocks]);
        }
      }
    }
  }

  /// Pages in use.
  size_t pages() const { return used_; }
  /// Pages that there is memory for.
  size_t capacity() const { return chunks_.size() * chunkPages; }

 private:
  static constexpr uint64_t pageBlocks = 64;
  static constexpr size_t chunkPages = 64;
  struct Page {
    uint64_t number = 0;
    uint64_t present = 0;  ///< a bit for each block
    std::array<AwaitedBlock, pageBlocks> blocks{};
  };
  struct Slot {
    uint64_t number = 0;
    Page* page = nullptr;
  };

  size_t home(uint64_t number) const { return (number * 0x9E3779B97F4A7C15U) >> shift_; }

  Page* pageOf(uint64_t number) {
    if (recent_ != nullptr && recent_->number == number) {
      return recent_;
    }
    for (size_t at = home(number); slots_[at].page != nullptr; at = (at + 1) & (slots_.size() - 1)) {
      if (slots_[at].number == number) {
        recent_ = slots_[at].page;
        return recent_;
      }
    }
    return nullptr;
  }

  Page* addPage(uint64_t number);
  void removePage(Page* page);
  void insert(Page* page);
  void grow();

  std::vector<Slot> slots_;  ///< a power of two of them, at most half of them used
  uint32_t shift_;
  size_t used_ = 0;
  Page* recent_ = nullptr;  ///< where the last look was
  std::vector<std::unique_ptr<std::array<Page, chunkPages>>> chunks_;
  std::vector<Page*> free_;
};

}  // namespace corvane::host
