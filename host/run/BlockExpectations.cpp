#include "host/run/BlockExpectations.h"

#include <algorithm>

namespace corvane::host {
namespace {

constexpr uint8_t mostAtomics = 63;

Uncheckable reasonOf(AwaitedBlock::Content content) {
  switch (content) {
    case AwaitedBlock::Content::writeFailed:
      return Uncheckable::writeFailed;
    case AwaitedBlock::Content::zoneReset:
      return Uncheckable::zoneReset;
    case AwaitedBlock::Content::invalidated:
      return Uncheckable::invalidated;
    case AwaitedBlock::Content::untold:
      return Uncheckable::untold;
    case AwaitedBlock::Content::unknown:
    case AwaitedBlock::Content::written:
    case AwaitedBlock::Content::hashed:
      break;
  }
  return Uncheckable::notAwaited;
}

/// The blocks of a span from one LBA to before another.
BlockSpan partOf(const BlockSpan& span, uint64_t from, uint64_t to) {
  const uint64_t first = std::max(from, span.first);
  return {.first = first + (span.step == 2 ? (first ^ span.first) & 1 : 0),
          .end = std::min(to, span.end),
          .step = span.step};
}

}  // namespace

BlockExpectations::Layers BlockExpectations::layersFor(const AwaitedPiece& piece, uint64_t issued) const {
  const AwaitedBlock& block = piece.block;
  if (block.hashedUnderReaders != 0) {
    const UnderHash& under = underHash_.at(piece.firstLba());
    if (issued < under.since) {
      return under.layers;
    }
  }
  return {.content = block.content, .unfinishedAtomics = block.unfinishedAtomics};
}

BlockWorth BlockExpectations::worthOf(const Layers& layers) {
  if (layers.content == Content::written || layers.content == Content::hashed) {
    return {.outcomes = std::min<uint8_t>(layers.unfinishedAtomics + 1, CheckedBlocks::mostOutcomes)};
  }
  const bool partly = layers.unfinishedAtomics != 0 && layers.content != Content::untold;
  return {.reason = partly ? Uncheckable::atomicOverUnknown : reasonOf(layers.content)};
}

void BlockExpectations::eraseUnderHash(AwaitedPiece& piece) {
  piece.ofEach([this](uint64_t lba) { underHash_.erase(lba); });
  piece.block.hashedUnderReaders = 0;
}

inline void BlockExpectations::settle(AwaitedPiece& piece, Content content) {
  piece.block.content = content;
  piece.block.unfinishedAtomics = 0;
  forgetUnderHash(piece);
}

void BlockExpectations::writeIssued(const BlockSpan& span, bool certain, uint64_t now) {
  blocks_.makeSpan(span, now, [certain](AwaitedPiece& piece) {
    ++piece.block.claims;
    if (certain) {
      piece.block.knownWhenIssued = 1;
    }
  });
}

bool BlockExpectations::claimForReader(const BlockSpan& span) {
  bool claimed = true;
  const uint64_t missing = blocks_.ofSpan(span, [&claimed](AwaitedPiece& piece) {
    claimed &= piece.block.claims != 0;
    piece.block.claims -= piece.block.claims != 0 ? 1U : 0U;
    ++piece.block.readers;
    return false;
  });
  return claimed && missing == 0;
}

bool BlockExpectations::readBackIssued(const BlockSpan& read, const BlockSpan& write, uint64_t now) {
  return read == write ? claimForReader(read) : otherReadBackIssued(read, write, now);
}

bool BlockExpectations::otherReadBackIssued(const BlockSpan& read, const BlockSpan& write, uint64_t now) {
  const BlockSpan both{
      .first = std::min(read.first, write.first), .end = std::max(read.end, write.end), .step = read.step};
  if (!claimForReader(partOf(both, std::max(read.first, write.first), std::min(read.end, write.end)))) {
    return false;
  }
  const auto readToo = [](AwaitedPiece& piece) { ++piece.block.readers; };
  blocks_.makeSpan(partOf(both, read.first, std::min(read.end, write.first)), now, readToo);
  blocks_.makeSpan(partOf(both, std::max(read.first, write.end), read.end), now, readToo);
  return giveUp(partOf(both, both.first, read.first)) && giveUp(partOf(both, read.end, both.end));
}

void BlockExpectations::writeEnded(const BlockSpan& span, uint64_t issued, std::optional<uint64_t> failedFrom) {
  const auto settleAs = [&](const BlockSpan& part, Content content) {
    blocks_.ofSpan(part, [&](AwaitedPiece& piece) {
      // A block that was given up and is awaited again since knows nothing of this write.
      if (piece.block.since <= issued) {
        settle(piece, content);
      }
      return false;
    });
  };
  if (!failedFrom) {
    settleAs(span, Content::written);
    return;
  }
  settleAs(partOf(span, span.first, *failedFrom), Content::written);
  settleAs(partOf(span, *failedFrom, span.end), Content::writeFailed);
}

void BlockExpectations::atomicWriteEnded(const BlockSpan& span, uint64_t issued, bool good) {
  blocks_.ofSpan(span, [&](AwaitedPiece& piece) {
    if (piece.block.since > issued) {
      return false;
    }
    // Whoever reads now was issued behind this write, and so looks at every hash of before it.
    forgetUnderHash(piece);
    if (good) {
      settle(piece, Content::written);
      piece.block.knownWhenIssued = 1;
    } else if (piece.block.unfinishedAtomics < mostAtomics) {
      ++piece.block.unfinishedAtomics;
    }
    return false;
  });
}

void BlockExpectations::hashed(const BlockSpan& span, bool claim, uint64_t now) {
  blocks_.makeSpan(span, now, [&](AwaitedPiece& piece) {
    AwaitedBlock& block = piece.block;
    block.claims += claim ? 1U : 0U;
    if (block.readers != 0 && block.hashedUnderReaders == 0) {
      const UnderHash under{.since = now,
                            .layers = {.content = block.content, .unfinishedAtomics = block.unfinishedAtomics}};
      piece.ofEach([&](uint64_t lba) { underHash_[lba] = under; });
      block.hashedUnderReaders = 1;
    }
    block.content = Content::hashed;
    block.unfinishedAtomics = 0;
    block.knownWhenIssued = 1;
  });
}

bool BlockExpectations::giveUp(const BlockSpan& span) {
  const uint64_t missing = blocks_.ofSpan(span, [this](AwaitedPiece& piece) {
    piece.block.claims -= piece.block.claims != 0 ? 1U : 0U;
    return isDone(piece);
  });
  return missing == 0;
}

bool BlockExpectations::isCertain(const BlockSpan& span, uint64_t issued) {
  bool certain = true;
  const uint64_t missing = blocks_.ofSpan(span, [&](AwaitedPiece& piece) {
    const Layers layers = layersFor(piece, issued);
    certain &= layers.content == Content::written && layers.unfinishedAtomics == 0;
    return false;
  });
  return certain && missing == 0;
}

BlockWorth BlockExpectations::readEnded(uint64_t lba, uint64_t issued, bool again) {
  BlockWorth ofBlock;
  readEnded({.first = lba, .end = lba + 1}, issued, again, [&](BlockWorth worth, uint64_t) { ofBlock = worth; });
  return ofBlock;
}

void BlockExpectations::zonesReset(uint64_t first, uint64_t end) {
  blocks_.ofSpan({.first = first, .end = end + 1}, [](AwaitedPiece& piece) {
    piece.block.content = Content::zoneReset;
    piece.block.unfinishedAtomics = 0;
    piece.block.knownWhenIssued = 0;
    return false;
  });
}

void BlockExpectations::invalidated(uint64_t first, uint64_t end) {
  blocks_.ofSpan({.first = first, .end = end}, [](AwaitedPiece& piece) {
    if (piece.block.content == Content::written) {
      piece.block.content = Content::invalidated;
    }
    piece.block.unfinishedAtomics = 0;
    piece.block.knownWhenIssued = 0;
    return false;
  });
}

void BlockExpectations::confuse(const BlockSpan& span) {
  blocks_.ofSpan(span, [this](AwaitedPiece& piece) {
    settle(piece, Content::untold);
    return false;
  });
}

bool BlockExpectations::isKnownForAtomicWrite(uint64_t first, uint64_t end) {
  if (blocks_.find(end) == nullptr) {
    return false;  // the block behind has to be awaited, too
  }
  bool known = true;
  const uint64_t missing = blocks_.ofSpan({.first = first, .end = end}, [&known](AwaitedPiece& piece) {
    known &= piece.block.knownWhenIssued != 0;
    return false;
  });
  return known && missing == 0;
}

void BlockExpectations::clear() {
  blocks_.clear();
  underHash_.clear();
}

}  // namespace corvane::host
