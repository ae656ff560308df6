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

}  // namespace

// Called for every block, so that a call of its own would be felt.

inline BlockExpectations::Layers BlockExpectations::layersFor(const AwaitedBlock& block, uint64_t lba,
                                                              uint64_t issued) const {
  if (block.hashedUnderReaders != 0) {
    const UnderHash& under = underHash_.at(lba);
    if (issued < under.since) {
      return under.layers;
    }
  }
  return {.content = block.content, .unfinishedAtomics = block.unfinishedAtomics};
}

inline BlockWorth BlockExpectations::worthOf(const AwaitedBlock& block, uint64_t lba, uint64_t issued) const {
  if (block.content == Content::written && block.unfinishedAtomics == 0 && block.hashedUnderReaders == 0) {
    return {.outcomes = 1};
  }
  const Layers layers = layersFor(block, lba, issued);
  if (layers.content == Content::written || layers.content == Content::hashed) {
    return {.outcomes = std::min<uint8_t>(layers.unfinishedAtomics + 1, CheckedBlocks::mostOutcomes)};
  }
  const bool partly = layers.unfinishedAtomics != 0 && layers.content != Content::untold;
  return {.reason = partly ? Uncheckable::atomicOverUnknown : reasonOf(layers.content)};
}

inline void BlockExpectations::forgetUnderHash(AwaitedBlock& block, uint64_t lba) {
  if (block.hashedUnderReaders != 0) {
    underHash_.erase(lba);
    block.hashedUnderReaders = 0;
  }
}

inline void BlockExpectations::settle(AwaitedBlock& block, uint64_t lba, Content content) {
  block.content = content;
  block.unfinishedAtomics = 0;
  forgetUnderHash(block, lba);
}

inline void BlockExpectations::eraseIfDone(AwaitedBlock& block, uint64_t lba) {
  if (block.readers != 0) {
    return;
  }
  forgetUnderHash(block, lba);
  if (block.claims == 0) {
    blocks_.erase(lba);
  }
}

void BlockExpectations::writeIssued(const BlockSpan& span, bool certain, uint64_t now) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    AwaitedBlock& block = blocks_.make(lba, now);
    ++block.claims;
    if (certain) {
      block.knownWhenIssued = 1;
    }
  }
}

bool BlockExpectations::readBackIssued(const BlockSpan& read, const BlockSpan& write, uint64_t now) {
  const uint64_t end = std::max(read.end, write.end);
  for (uint64_t lba = std::min(read.first, write.first); lba < end; lba += read.step) {
    const bool claimed = write.contains(lba);
    if (!read.contains(lba)) {
      if (!giveUp(lba)) {
        return false;
      }
      continue;
    }
    AwaitedBlock* block = claimed ? blocks_.find(lba) : &blocks_.make(lba, now);
    if (block == nullptr || (claimed && block->claims == 0)) {
      return false;
    }
    block->claims -= claimed ? 1U : 0U;
    ++block->readers;
  }
  return true;
}

void BlockExpectations::writeEnded(const BlockSpan& span, uint64_t issued, std::optional<uint64_t> failedFrom) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    AwaitedBlock* block = blocks_.find(lba);
    // A block that was given up and is awaited again since knows nothing of this write.
    if (block != nullptr && block->since <= issued) {
      settle(*block, lba, failedFrom && lba >= *failedFrom ? Content::writeFailed : Content::written);
    }
  }
}

void BlockExpectations::atomicWriteEnded(const BlockSpan& span, uint64_t issued, bool good) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    AwaitedBlock* block = blocks_.find(lba);
    if (block == nullptr || block->since > issued) {
      continue;
    }
    // Whoever reads now was issued behind this write, and so looks at every hash of before it.
    forgetUnderHash(*block, lba);
    if (good) {
      settle(*block, lba, Content::written);
      block->knownWhenIssued = 1;
    } else if (block->unfinishedAtomics < mostAtomics) {
      ++block->unfinishedAtomics;
    }
  }
}

void BlockExpectations::hashed(const BlockSpan& span, bool claim, uint64_t now) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    AwaitedBlock& block = blocks_.make(lba, now);
    block.claims += claim ? 1U : 0U;
    if (block.readers != 0 && block.hashedUnderReaders == 0) {
      underHash_[lba] = {.since = now,
                         .layers = {.content = block.content, .unfinishedAtomics = block.unfinishedAtomics}};
      block.hashedUnderReaders = 1;
    }
    block.content = Content::hashed;
    block.unfinishedAtomics = 0;
    block.knownWhenIssued = 1;
  }
}

bool BlockExpectations::giveUp(const BlockSpan& span) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    if (!giveUp(lba)) {
      return false;
    }
  }
  return true;
}

bool BlockExpectations::giveUp(uint64_t lba) {
  AwaitedBlock* block = blocks_.find(lba);
  if (block == nullptr) {
    return false;
  }
  block->claims -= block->claims != 0 ? 1U : 0U;
  eraseIfDone(*block, lba);
  return true;
}

bool BlockExpectations::isCertain(const BlockSpan& span, uint64_t issued) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    const AwaitedBlock* block = blocks_.find(lba);
    if (block == nullptr) {
      return false;
    }
    const Layers layers = layersFor(*block, lba, issued);
    if (layers.content != Content::written || layers.unfinishedAtomics != 0) {
      return false;
    }
  }
  return true;
}

BlockWorth BlockExpectations::readEnded(uint64_t lba, uint64_t issued, bool again) {
  AwaitedBlock* block = blocks_.find(lba);
  if (block == nullptr || block->readers == 0) {
    return {.reason = Uncheckable::untold};
  }
  const BlockWorth worth = worthOf(*block, lba, issued);
  --block->readers;
  block->claims += again ? 1U : 0U;
  eraseIfDone(*block, lba);
  return worth;
}

void BlockExpectations::zonesReset(uint64_t first, uint64_t end) {
  blocks_.ofRange(first, end, [](AwaitedBlock& block) {
    block.content = Content::zoneReset;
    block.unfinishedAtomics = 0;
    block.knownWhenIssued = 0;
  });
}

void BlockExpectations::invalidated(uint64_t first, uint64_t end) {
  blocks_.ofRange(first, end - 1, [](AwaitedBlock& block) {
    if (block.content == Content::written) {
      block.content = Content::invalidated;
    }
    block.unfinishedAtomics = 0;
    block.knownWhenIssued = 0;
  });
}

void BlockExpectations::confuse(const BlockSpan& span) {
  for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
    if (AwaitedBlock* block = blocks_.find(lba); block != nullptr) {
      settle(*block, lba, Content::untold);
    }
  }
}

bool BlockExpectations::isKnownForAtomicWrite(uint64_t first, uint64_t end) {
  if (blocks_.find(end) == nullptr) {
    return false;  // the block behind has to be awaited, too
  }
  for (uint64_t lba = first; lba < end; ++lba) {
    const AwaitedBlock* block = blocks_.find(lba);
    if (block == nullptr || block->knownWhenIssued == 0) {
      return false;
    }
  }
  return true;
}

void BlockExpectations::clear() {
  blocks_.clear();
  underHash_.clear();
}

}  // namespace corvane::host
