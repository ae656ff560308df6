#include "host/explain/Neighbours.h"

#include <algorithm>

namespace corvane::host {
namespace {

using State = NeighbourBlock::State;

NeighbourBlock judge(uint64_t lba, const std::vector<uint8_t>& now, const FindingEvidence& evidence,
                     const WrittenData& data, const std::vector<Incident>& incidents) {
  NeighbourBlock block;
  block.lba = lba;
  if (now.empty()) {
    block.state = State::unreadable;
    return block;
  }
  const std::vector<const JournalEntry*> changes = data.changesOf(lba, evidence.journal->issuedCount() + 1);
  const bool settled = !changes.empty() && changes.front()->endedWell() && !isUndone(*changes.front(), lba, incidents);
  for (const JournalEntry* change : changes) {
    if (data.contentOf(*change, lba) == now) {
      block.commandId = change->commandId;
      if (settled) {
        block.state = change == changes.front() ? State::expected : State::old;
      }
      return block;
    }
  }
  if (isZero(now)) {
    block.state = settled ? State::zeros : State::unknown;
  } else {
    block.state = settled ? State::other : State::unknown;
    if (data.isGenuine(now)) {
      block.commandId = stampOf(now)->commandId;
    }
  }
  return block;
}

}  // namespace

std::vector<NeighbourBlock> neighbours(const FindingEvidence& evidence, const WrittenData& data) {
  const std::vector<Incident> incidents = evidence.journal->incidents();
  std::vector<NeighbourBlock> blocks;
  for (size_t i = 0; i < evidence.reread.size(); ++i) {
    blocks.push_back(judge(evidence.rereadFirst + i, evidence.reread[i], evidence, data, incidents));
  }
  return blocks;
}

}  // namespace corvane::host
