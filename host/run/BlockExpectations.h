#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include "host/run/AwaitedBlocks.h"
#include "host/run/CheckedBlocks.h"

namespace corvane::host {

/// What somebody who reads back what he wrote expects of each block, from what commands were issued and how they ended.
///
/// A block is remembered from a write over it until every read that was to come for it has ended. Ends of commands that
/// overlap are told in the order in which the commands were issued, but for reads among themselves. `now` is the
/// caller's time: it grows with everything that is told.
///
/// One thread. Allocates only while more is remembered than ever before.
class BlockExpectations {
 public:
  /// @param longestSpan of the commands; 0: nobody knows
  explicit BlockExpectations(uint64_t longestSpan = 0) : blocks_(longestSpan) {}

  /// @param certain whether it leaves its data when it ends well and an unknown content otherwise; an atomic write may
  ///                then have left everything as it was
  void writeIssued(const BlockSpan& span, bool certain, uint64_t now);

  /// A read or verify was issued that is the read-back of a write. Blocks of the write that it leaves out are given up.
  ///
  /// @return false when some block of the write does not wait for any: then this is no read-back of it
  bool readBackIssued(const BlockSpan& read, const BlockSpan& write, uint64_t now);

  /// A write ended well, or failed from some block on, while the blocks before are as after a good end.
  ///
  /// @param issued when it was
  /// @param failedFrom its first block that failed; nothing: none did
  void writeEnded(const BlockSpan& span, uint64_t issued, std::optional<uint64_t> failedFrom);
  void atomicWriteEnded(const BlockSpan& span, uint64_t issued, bool good);

  /// The read ahead of an atomic write saw what is there.
  ///
  /// @param claim whether the blocks wait for the atomic write from now on; otherwise it has been issued
  void hashed(const BlockSpan& span, bool claim, uint64_t now);
  /// The atomic write that a hash waited for, or the read-back that a write waited for, will not come.
  ///
  /// @return false when a block is not awaited at all
  bool giveUp(const BlockSpan& span);

  /// A read or verify of the block ended.
  ///
  /// @param issued when the read was
  /// @param again  whether it will be repeated
  ///
  /// @return what the look was worth, if data came
  BlockWorth readEnded(uint64_t lba, uint64_t issued, bool again);
  /// The same for a whole read: calls `count(BlockWorth, uint64_t blocks)`, which together name each block once.
  template <typename Count>
  void readEnded(const BlockSpan& span, uint64_t issued, bool again, Count count) {
    const uint64_t missing = blocks_.ofSpan(span, [&](AwaitedPiece& piece) {
      if (piece.block.readers == 0) {
        count(BlockWorth{.reason = Uncheckable::untold}, piece.blocks());
        return false;
      }
      count(worthOf(piece, issued), piece.blocks());
      return endReader(piece, again);
    });
    if (missing != 0) {
      count(BlockWorth{.reason = Uncheckable::untold}, missing);
    }
  }

  /// Content of zones is gone; so is the block behind them.
  void zonesReset(uint64_t first, uint64_t end);
  /// The old content must be gone.
  void invalidated(uint64_t first, uint64_t end);

  /// Nobody can say what the awaited blocks among these are compared with, before they are written again.
  void confuse(const BlockSpan& span);

  /// Whether an atomic write over [first, end) needs no read ahead of it.
  bool isKnownForAtomicWrite(uint64_t first, uint64_t end);
  /// Whether every block would be compared with one content only when a verify of them ended now.
  bool isCertain(const BlockSpan& span, uint64_t issued);

  void clear();

  /// As AwaitedBlocks.
  void prefetchPlace(const BlockSpan& span) const { blocks_.prefetchPlace(span); }
  void prefetchPieces(const BlockSpan& span) const { blocks_.prefetchPieces(span); }

  bool awaits(uint64_t lba) const { return blocks_.find(lba) != nullptr; }
  /// Nobody waits for any block.
  bool empty() const { return blocks_.empty(); }

 private:
  using Content = AwaitedBlock::Content;
  struct Layers {
    Content content = Content::unknown;
    uint8_t unfinishedAtomics = 0;
  };
  /// What is under a hash for readers that were issued before it came.
  struct UnderHash {
    uint64_t since = 0;
    Layers layers;
  };

  BlockWorth worthOf(const AwaitedPiece& piece, uint64_t issued) const {
    const AwaitedBlock& block = piece.block;
    if (block.content == Content::written && block.unfinishedAtomics == 0 && block.hashedUnderReaders == 0) {
      return {.outcomes = 1};
    }
    return worthOf(layersFor(piece, issued));
  }
  /// @return whether the piece can be forgotten
  bool endReader(AwaitedPiece& piece, bool again) {
    --piece.block.readers;
    piece.block.claims += again ? 1U : 0U;
    return isDone(piece);
  }
  bool isDone(AwaitedPiece& piece) {
    if (piece.block.readers != 0) {
      return false;
    }
    forgetUnderHash(piece);
    return piece.block.claims == 0;
  }
  void forgetUnderHash(AwaitedPiece& piece) {
    if (piece.block.hashedUnderReaders != 0) {
      eraseUnderHash(piece);
    }
  }

  /// A read-back of these blocks was issued.
  ///
  /// @return false when one of them does not wait for any
  bool claimForReader(const BlockSpan& span);
  /// The read-back of a write that is not of the same blocks.
  bool otherReadBackIssued(const BlockSpan& read, const BlockSpan& write, uint64_t now);

  static BlockWorth worthOf(const Layers& layers);
  Layers layersFor(const AwaitedPiece& piece, uint64_t issued) const;
  void settle(AwaitedPiece& piece, Content content);
  void eraseUnderHash(AwaitedPiece& piece);

  AwaitedBlocks blocks_;
  std::unordered_map<uint64_t, UnderHash> underHash_;  ///< by LBA; the same for all blocks of a piece
};

}  // namespace corvane::host
