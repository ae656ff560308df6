#include "host/fault/LiveBlocks.h"

#include <algorithm>

namespace corvane::host {

void LiveBlocks::wrote(const DriveCommand& command) {
  longest_ = std::max(longest_, command.endLba() - command.lba);
  for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
    blocks_[lba] = {.kind = command.kind, .first = command.lba, .end = command.endLba()};
  }
}

void LiveBlocks::failed(const DriveCommand& command) {
  failedRanges_.insert({command.lba, command.blocks});
  for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
    blocks_.erase(lba);
  }
}

void LiveBlocks::willLook(const DriveCommand& command) {
  ofWritesOver(command.lba, command.endLba(), [&command](uint64_t lba, Block& block) {
    const bool within = lba >= command.lba && lba < command.endLba() && (lba - command.lba) % command.lbaStep == 0;
    block.partlyRead = block.partlyRead || !within;
  });
}

void LiveBlocks::looked(const DriveCommand& command) {
  const auto failed = failedRanges_.find({command.lba, command.blocks});
  const bool probe = failed != failedRanges_.end();
  if (probe) {
    failedRanges_.erase(failed);
  }
  for (uint64_t lba = command.lba; lba < command.endLba(); lba += command.lbaStep) {
    const auto found = blocks_.find(lba);
    if (found == blocks_.end()) {
      continue;
    }
    // Of a later write of the very range nobody can say whether this was its read or the probe.
    const bool ownRange = found->second.first == command.lba && found->second.end == command.endLba();
    if (!probe || ownRange) {
      found->second.state = State::lookedAt;
    }
  }
}

void LiveBlocks::zonesReset(const DriveCommand& command) {
  ofWritesOver(command.lba, command.endLba() + 1,
               [](uint64_t /*lba*/, Block& block) { block.state = State::lookedAt; });
}

void LiveBlocks::invalidated(const DriveCommand& command) {
  for (uint64_t lba = command.lba; lba < command.endLba(); ++lba) {
    const auto found = blocks_.find(lba);
    if (found != blocks_.end() && found->second.state == State::live) {
      found->second.state = State::invalidated;
    }
  }
}

}  // namespace corvane::host
