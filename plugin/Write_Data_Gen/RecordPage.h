#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>

#include "LBARecord.h"

namespace vdl {

/// The records of 64 neighbouring LBAs: a mask of the blocks on record, and their records without gaps behind it.
///
/// A page has room for 1, 4, 16, 32 or 64 records, so that a lone block does not cost what 64 do, and a range that fills
/// up leaves little behind in the small sizes that its pages have outgrown. Its records move when one is added or
/// removed, and nothing but a page's users of the moment may hold their addresses.
class RecordPage {
 public:
  static constexpr uint32_t blocksPerPage = 64;
  static constexpr uint32_t sizeClasses = 5;

  static constexpr uint32_t roomOf(uint32_t sizeClass) { return rooms[sizeClass]; }
  /// The smallest size class with room for `records`, 1 to 64.
  static constexpr uint32_t classFor(uint32_t records) {
    uint32_t sizeClass = 0;
    while (rooms[sizeClass] < records) {
      ++sizeClass;
    }
    return sizeClass;
  }
  static constexpr std::size_t bytesOf(uint32_t sizeClass) {
    return sizeof(RecordPage) + roomOf(sizeClass) * sizeof(LBARecord);
  }

  explicit RecordPage(uint32_t sizeClass) : sizeClass_(static_cast<uint8_t>(sizeClass)) {}

  /// Bit i: block i is on record.
  uint64_t present() const { return present_; }
  bool has(uint32_t block) const { return (present_ >> block & 1) != 0; }
  uint32_t count() const { return count_; }
  uint32_t sizeClass() const { return sizeClass_; }
  uint32_t room() const { return roomOf(sizeClass_); }

  /// The record of a block on record; those of the following blocks on record stand behind it.
  LBARecord* record(uint32_t block) { return records() + rank(block); }
  const LBARecord* record(uint32_t block) const { return records() + rank(block); }

  /// Adds default records for blocks that are not on record; there must be room.
  void add(uint64_t blocks);
  /// Removes the records of blocks on record, whatever they hold.
  void remove(uint64_t blocks);
  /// Takes over another page's records; this one must be empty and have room.
  void takeOver(const RecordPage& other);

  /// Whether an atomic write was issued to a block of the page: without one, the end of a write changes nothing.
  bool atomicSeen() const { return atomicSeen_; }
  void noteAtomic() { atomicSeen_ = true; }

 private:
  static constexpr std::array<uint8_t, sizeClasses> rooms{1, 4, 16, 32, 64};

  LBARecord* records() { return std::launder(reinterpret_cast<LBARecord*>(this + 1)); }
  const LBARecord* records() const { return std::launder(reinterpret_cast<const LBARecord*>(this + 1)); }

  void addScattered(uint64_t blocks);
  void removeScattered(uint64_t blocks);

  uint32_t rank(uint32_t block) const {
    const uint64_t below = (uint64_t{1} << block) - 1;
    // Mostly a page holds one run, or all of its blocks; counting bits is dear where the processor may not be asked to.
    if ((present_ & below) == 0) {
      return 0;
    }
    return (~present_ & below) == 0 ? block : static_cast<uint32_t>(std::popcount(present_ & below));
  }

  uint64_t present_ = 0;
  uint32_t count_ = 0;  ///< bits of `present_`
  uint8_t sizeClass_;
  bool atomicSeen_ = false;
};

static_assert(sizeof(RecordPage) == 16);

/// Memory for pages: carved out of chunks that stay until the store goes, and used again within a size class.
class PageStore {
 public:
  PageStore() = default;
  PageStore(const PageStore&) = delete;
  PageStore& operator=(const PageStore&) = delete;
  ~PageStore();

  /// An empty page, or null without memory. It goes back through `give`.
  RecordPage* take(uint32_t sizeClass) noexcept;
  void give(RecordPage* page) noexcept;

  /// What the chunks take, bytes.
  std::size_t bytes() const { return chunkCount_ * chunkBytes; }

 private:
  static constexpr std::size_t chunkBytes = std::size_t{256} << 10;
  struct Free {
    Free* next;
  };
  struct Chunk {
    Chunk* older;
  };

  bool grow() noexcept;

  Free* free_[RecordPage::sizeClasses] = {};
  std::byte* room_ = nullptr;  ///< of the newest chunk, not carved yet
  std::size_t roomBytes_ = 0;
  Chunk* chunks_ = nullptr;
  std::size_t chunkCount_ = 0;
};

}  // namespace vdl
