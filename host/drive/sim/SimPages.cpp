#include "host/drive/sim/SimPages.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace corvane::host {
namespace {

constexpr uint64_t smallPage = 4096;  ///< of the system
constexpr uint64_t largePage = uint64_t{2} << 20;
constexpr uint64_t mostBytes = uint64_t{64} << 20;  ///< of a piece; what nobody touched of it takes no memory

uint64_t roundUp(uint64_t bytes, uint64_t unit) { return (bytes + unit - 1) / unit * unit; }

/// As much as the piece before, twice, so that a drive of which little is written takes little.
uint64_t nextPieceBytes(uint64_t before, uint64_t pageBytes) {
  const uint64_t bytes = std::max(std::min(before * 2, mostBytes), pageBytes);
  return roundUp(bytes, bytes < largePage ? smallPage : largePage);
}

}  // namespace

void SimPages::GiveBack::operator()(uint8_t* memory) const {
  if (mappedBytes == 0) {
    std::free(memory);
  } else {
    munmap(memory, mappedBytes);
  }
}

uint8_t* SimPages::make(uint64_t page) {
  const uint64_t number = page / groupPages;
  std::unique_ptr<Group>& group = groups_[number];
  if (group == nullptr) {
    group = std::make_unique<Group>();
  }
  uint8_t* const memory = takeMemory();
  (*group)[page % groupPages] = memory;
  last_ = group.get();
  lastNumber_ = number;
  ++count_;
  return memory;
}

uint8_t* SimPages::takeMemory() {
  if (pieceBytes_ - pieceUsed_ < pageBytes_) {
    const uint64_t bytes = nextPieceBytes(pieceBytes_, pageBytes_);
    pieces_.push_back(bytes < largePage ? allocate(bytes) : map(bytes));
    pieceBytes_ = bytes;
    pieceUsed_ = 0;
  }
  uint8_t* const memory = pieces_.back().get() + pieceUsed_;
  pieceUsed_ += pageBytes_;
  return memory;
}

SimPages::Piece SimPages::allocate(uint64_t bytes) {
  Piece piece(static_cast<uint8_t*>(std::aligned_alloc(smallPage, bytes)));
  if (piece == nullptr) {
    throw std::bad_alloc();
  }
  return piece;
}

/// @param bytes whole large pages
SimPages::Piece SimPages::map(uint64_t bytes) {
  // An allocator would keep notes in front of each piece, and with them a large page of its own.
  const uint64_t room = bytes + largePage;
  void* const mapped = mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapped == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto* const begin = static_cast<uint8_t*>(mapped);
  const uint64_t before = (largePage - reinterpret_cast<uintptr_t>(begin) % largePage) % largePage;
  Piece piece(begin + before, {.mappedBytes = bytes});
  if (before != 0) {
    munmap(begin, before);
  }
  if (room != before + bytes) {
    munmap(begin + before + bytes, room - before - bytes);
  }
  // A kernel without large pages gives small ones.
  madvise(piece.get(), bytes, MADV_HUGEPAGE);
  return piece;
}

}  // namespace corvane::host
