#include "host/drive/sim/SimZones.h"

#include <algorithm>

namespace corvane::host {

std::optional<Sense> SimZones::admit(const DriveCommand& command) {
  switch (command.kind) {
    case CommandKind::zoneReset:
      return wholeZones(command) ? std::nullopt : std::optional(sense::invalidField);
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
      return managed_ && command.blocks != 0 ? admitWrite(command) : std::nullopt;
    default:
      return std::nullopt;
  }
}

bool SimZones::wholeZones(const DriveCommand& command) const {
  const uint64_t end = command.endLba();
  return command.lbaStep == 1 && command.lba % geometry_.zoneBlocks == 0 &&
         (end % geometry_.zoneBlocks == 0 || end == geometry_.blocks);
}

std::optional<Sense> SimZones::admitWrite(const DriveCommand& command) {
  const bool gaps = command.lbaStep != 1 && command.blocks != 1;
  if (command.lba != writePointer(command.lba) || gaps) {
    return sense::unalignedWrite;
  }
  if (command.endLba() > zoneEnd(command.lba)) {
    return sense::writeBoundaryViolation;
  }
  filled_[command.lba / geometry_.zoneBlocks] += command.blocks;
  return std::nullopt;
}

uint64_t SimZones::writePointer(uint64_t lba) const {
  const uint64_t zone = lba / geometry_.zoneBlocks;
  const auto found = filled_.find(zone);
  return zone * geometry_.zoneBlocks + (found == filled_.end() ? 0 : found->second);
}

uint64_t SimZones::zoneEnd(uint64_t lba) const {
  return std::min((lba / geometry_.zoneBlocks + 1) * geometry_.zoneBlocks, geometry_.blocks);
}

}  // namespace corvane::host
