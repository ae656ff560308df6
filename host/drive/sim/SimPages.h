#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace corvane::host {

/// Memory of a simulated drive's pages, each found by its number, sparse.
///
/// Commands go to pages in random order, so that nearly each looks for one that no cache holds. Pages therefore lie in
/// large pieces of memory, which the system may map with large pages of its own, and finding one reads a single word.
class SimPages {
 public:
  /// @param pageBytes not 0
  explicit SimPages(uint64_t pageBytes) : pageBytes_(pageBytes) {}

  /// @return null when nobody made it
  uint8_t* find(uint64_t page) {
    const uint64_t number = page / groupPages;
    if (number != lastNumber_) {
      const auto found = groups_.find(number);
      last_ = found == groups_.end() ? nullptr : found->second.get();
      lastNumber_ = number;
    }
    return last_ == nullptr ? nullptr : (*last_)[page % groupPages];
  }

  /// A page that is not there yet, uninitialised. It stays where it is as long as the object lives.
  ///
  /// Throws std::bad_alloc; then there is no such page, as before.
  uint8_t* make(uint64_t page);

  uint64_t count() const { return count_; }

 private:
  static constexpr uint64_t groupPages = 512;
  using Group = std::array<uint8_t*, groupPages>;

  struct GiveBack {
    uint64_t mappedBytes = 0;  ///< 0: it came from the allocator
    void operator()(uint8_t* memory) const;
  };
  using Piece = std::unique_ptr<uint8_t, GiveBack>;

  static Piece allocate(uint64_t bytes);
  static Piece map(uint64_t bytes);
  uint8_t* takeMemory();

  uint64_t pageBytes_;
  uint64_t count_ = 0;
  std::unordered_map<uint64_t, std::unique_ptr<Group>> groups_;
  uint64_t lastNumber_ = ~uint64_t{0};  ///< of the group found last, and where it is
  Group* last_ = nullptr;
  std::vector<Piece> pieces_;
  uint64_t pieceUsed_ = 0;   ///< bytes of the last piece
  uint64_t pieceBytes_ = 0;  ///< size of the last piece
};

}  // namespace corvane::host
