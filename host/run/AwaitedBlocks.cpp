#include "host/run/AwaitedBlocks.h"

namespace corvane::host {
namespace {

constexpr uint32_t firstBits = 6;
constexpr uint32_t wordBits = 64;
constexpr uint64_t mostGroupBlocks = AwaitedPiece::mostGroupBlocks;

}  // namespace

static_assert(sizeof(AwaitedPiece) == 32);

AwaitedBlocks::AwaitedBlocks(uint64_t longestSpan)
    : groupBlocks_(longestSpan == 0 || longestSpan > mostGroupBlocks ? mostGroupBlocks : std::bit_ceil(longestSpan)),
      groupShift_(static_cast<uint32_t>(std::countr_zero(groupBlocks_))),
      heads_(size_t{1} << firstBits, none),
      shift_(wordBits - firstBits) {}

const AwaitedBlock* AwaitedBlocks::find(uint64_t lba) const {
  const uint64_t group = groupOf(lba);
  for (uint32_t index = heads_[home(group)]; index != none; index = at(index).next) {
    const AwaitedPiece& piece = at(index);
    if (piece.group == group && (piece.mask >> (lba - group) & 1) != 0) {
      return &piece.block;
    }
  }
  return nullptr;
}

AwaitedPiece& AwaitedBlocks::add(uint64_t group, uint16_t mask) {
  const uint32_t index = takeFree();
  uint32_t& head = heads_[home(group)];
  AwaitedPiece& piece = at(index);
  piece = {.group = group, .block = {}, .next = head, .mask = mask};
  head = index;
  return piece;
}

AwaitedPiece& AwaitedBlocks::cutOff(uint32_t& link, uint16_t mask) {
  const uint32_t index = takeFree();
  AwaitedPiece& rest = at(link);
  AwaitedPiece& own = at(index);
  own = {.group = rest.group, .block = rest.block, .next = link, .mask = mask};
  rest.mask = static_cast<uint16_t>(rest.mask & ~mask);
  link = index;
  return own;
}

void AwaitedBlocks::drop(uint32_t& link) {
  const uint32_t index = link;
  AwaitedPiece& piece = at(index);
  link = piece.next;
  piece.next = free_;
  free_ = index;
  --used_;
}

uint32_t AwaitedBlocks::takeFree() {
  if (free_ == none) {
    addChunk();
  }
  const uint32_t index = free_;
  free_ = at(index).next;
  ++used_;
  return index;
}

void AwaitedBlocks::addChunk() {
  const auto first = static_cast<uint32_t>(chunks_.size() * chunkPieces);
  chunks_.push_back(std::make_unique<Chunk>());
  for (uint32_t i = chunkPieces; i != 0; --i) {
    at(first + i - 1).next = free_;
    free_ = first + i - 1;
  }
}

void AwaitedBlocks::grow() {
  std::vector<uint32_t> old(heads_.size() * 2, none);
  old.swap(heads_);
  --shift_;
  for (const uint32_t head : old) {
    for (uint32_t index = head; index != none;) {
      AwaitedPiece& piece = at(index);
      const uint32_t next = piece.next;
      uint32_t& newHead = heads_[home(piece.group)];
      piece.next = newHead;
      newHead = index;
      index = next;
    }
  }
}

void AwaitedBlocks::clear() {
  heads_.assign(heads_.size(), none);
  chunks_.clear();
  free_ = none;
  used_ = 0;
}

size_t AwaitedBlocks::memoryBytes() const {
  return heads_.capacity() * sizeof(uint32_t) + chunks_.size() * sizeof(Chunk) +
         chunks_.capacity() * sizeof(std::unique_ptr<Chunk>);
}

}  // namespace corvane::host
