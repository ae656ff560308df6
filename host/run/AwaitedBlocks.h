#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/base/Prefetch.h"

namespace corvane::host {

/// The blocks of a command.
struct BlockSpan {
  uint64_t first = 0;
  uint64_t end = 0;   ///< excluded; with a step of 2 even the block left out behind the last one is before it
  uint32_t step = 1;  ///< 1 or 2

  bool contains(uint64_t lba) const { return lba >= first && lba < end; }
  bool overlaps(const BlockSpan& other) const { return first < other.end && other.first < end; }
  friend bool operator==(const BlockSpan&, const BlockSpan&) = default;
};

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

/// Some of a group of neighbours that are known alike.
struct AwaitedPiece {
  static constexpr uint32_t mostGroupBlocks = 16;

  uint64_t group = 0;  ///< its first LBA
  AwaitedBlock block;
  uint32_t next = 0;  ///< behind it in its chain
  uint16_t mask = 0;  ///< which blocks of the group

  uint64_t firstLba() const { return group + static_cast<uint64_t>(std::countr_zero(mask)); }
  uint64_t blocks() const { return countOf(mask); }
  /// Without counting where there is nothing to count: not every processor counts bits by itself.
  static uint64_t countOf(uint32_t mask) {
    return (mask & (mask - 1)) == 0 ? uint64_t{mask != 0} : static_cast<uint64_t>(std::popcount(mask));
  }
  /// Calls `act` with each LBA, the lowest first.
  template <typename Act>
  void ofEach(Act act) const {
    for (uint32_t bits = mask; bits != 0; bits &= bits - 1) {
      act(group + static_cast<uint64_t>(std::countr_zero(bits)));
    }
  }
};

/// A sparse table of blocks, by LBA, in pieces of neighbours that are known alike.
///
/// A command over many blocks that are alike so costs a look for each group of up to 16. A piece is cut where a command
/// ends inside it, and not joined again. It takes 32 bytes and some 3 to 7 of the index, whether it is of one block or
/// of 16; the memory of those that are forgotten is kept for the next ones. One thread.
class AwaitedBlocks {
 public:
  /// @param longestSpan no span will be much longer; 0: nobody knows. All pieces of a group are met on the way to one
  ///                    of them, so that groups are no longer than the spans that make them.
  explicit AwaitedBlocks(uint64_t longestSpan = 0);

  /// Calls `act(AwaitedPiece&)` for the pieces of which the awaited blocks of a span are made, group by group; those
  /// for which it returns true are forgotten.
  ///
  /// @return how many blocks of the span are not awaited
  template <typename Act>
  uint64_t ofSpan(const BlockSpan& span, Act act) {
    return walk(span, act, [](uint64_t, uint16_t missing) { return AwaitedPiece::countOf(missing); });
  }

  /// Calls `act(AwaitedPiece&)` for all blocks of a span. Those that are not there are made before: as AwaitedBlock
  /// says, and awaited since `now`.
  template <typename Act>
  void makeSpan(const BlockSpan& span, uint64_t now, Act act) {
    const auto keep = [&act](AwaitedPiece& piece) {
      act(piece);
      return false;
    };
    walk(span, keep, [&](uint64_t group, uint16_t missing) {
      if (missing != 0) {
        AwaitedPiece& piece = add(group, missing);
        piece.block.since = now;
        act(piece);
      }
      return uint64_t{0};
    });
  }

  /// Asks the processor for where a span that will be walked is looked for, without waiting for it.
  void prefetchPlace(const BlockSpan& span) const {
    prefetch(&heads_[home(groupOf(span.first))]);
    prefetch(&heads_[home(groupOf(span.end - 1))]);
  }
  /// Asks for the pieces that are found there. Waits for the places.
  void prefetchPieces(const BlockSpan& span) const {
    for (const uint64_t lba : {span.first, span.end - 1}) {
      if (const uint32_t index = heads_[home(groupOf(lba))]; index != none) {
        prefetch(&at(index));
      }
    }
  }

  /// The block, or null when nobody waits for it. Valid until the next walk.
  const AwaitedBlock* find(uint64_t lba) const;

  void clear();

  bool empty() const { return used_ == 0; }
  /// Pieces in use.
  size_t pieces() const { return used_; }
  /// Bytes of memory for all pieces there ever were at once.
  size_t memoryBytes() const;

 private:
  static constexpr uint32_t none = UINT32_MAX;
  static constexpr size_t chunkPieces = 1024;
  using Chunk = std::array<AwaitedPiece, chunkPieces>;

  AwaitedPiece& at(uint32_t index) { return (*chunks_[index / chunkPieces])[index % chunkPieces]; }
  const AwaitedPiece& at(uint32_t index) const { return (*chunks_[index / chunkPieces])[index % chunkPieces]; }
  uint64_t groupOf(uint64_t lba) const { return lba & ~(groupBlocks_ - 1); }
  size_t home(uint64_t group) const { return ((group >> groupShift_) * 0x9E3779B97F4A7C15U) >> shift_; }

  /// The blocks of a span that lie in a group.
  uint16_t maskOf(const BlockSpan& span, uint64_t group) const {
    const auto from = static_cast<uint32_t>(span.first > group ? span.first - group : 0);
    const auto to = static_cast<uint32_t>(std::min(span.end - group, groupBlocks_));
    uint32_t mask = (uint32_t{0xFFFF} << from) & ~(uint32_t{0xFFFF} << to);
    if (span.step == 2) {
      mask &= ((span.first ^ group) & 1) == 0 ? 0x5555U : 0xAAAAU;
    }
    return static_cast<uint16_t>(mask);
  }

  template <typename Act, typename Missing>
  uint64_t walk(const BlockSpan& span, Act& act, Missing missing) {
    if (span.first >= span.end) {
      return 0;
    }
    if (used_ > heads_.size() + heads_.size() / 4) {
      grow();
    }
    uint64_t count = 0;
    // Behind the last group there may be no number any more.
    const uint64_t last = groupOf(span.end - 1);
    for (uint64_t group = groupOf(span.first);; group += groupBlocks_) {
      count += missing(group, walkGroup(group, maskOf(span, group), act));
      if (group == last) {
        return count;
      }
    }
  }

  /// @return the blocks of the mask that are not there
  template <typename Act>
  uint16_t walkGroup(uint64_t group, uint16_t mask, Act& act) {
    uint32_t* link = &heads_[home(group)];
    while (mask != 0 && *link != none) {
      AwaitedPiece& piece = at(*link);
      const auto met = static_cast<uint16_t>(piece.group == group ? piece.mask & mask : 0);
      if (met == 0) {
        link = &piece.next;
        continue;
      }
      mask = static_cast<uint16_t>(mask & ~met);
      AwaitedPiece& own = met == piece.mask ? piece : cutOff(*link, met);
      if (act(own)) {
        drop(*link);
      } else {
        link = &own.next;
      }
    }
    return mask;
  }

  AwaitedPiece& add(uint64_t group, uint16_t mask);
  /// Gives some of the blocks of the piece at a link a piece of their own, which comes to stand there before the rest.
  AwaitedPiece& cutOff(uint32_t& link, uint16_t mask);
  void drop(uint32_t& link);
  uint32_t takeFree();
  void addChunk();
  void grow();

  const uint64_t groupBlocks_;   ///< a power of two
  const uint32_t groupShift_;    ///< of how much
  std::vector<uint32_t> heads_;  ///< of the chains, by the hash of the group; a power of two of them
  uint32_t shift_;
  size_t used_ = 0;
  uint32_t free_ = none;  ///< a chain
  std::vector<std::unique_ptr<Chunk>> chunks_;
};

}  // namespace corvane::host
