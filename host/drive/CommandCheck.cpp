#include "host/drive/CommandCheck.h"

#include <bit>

namespace corvane::host {
namespace {

bool offered(CommandKind kind, const DriveCapabilities& capabilities) {
  switch (kind) {
    case CommandKind::write:
    case CommandKind::read:
      return true;
    case CommandKind::writeAtomic:
      return capabilities.atomicWrite;
    case CommandKind::writeSame:
      return capabilities.writeSame;
    case CommandKind::trim:
      return capabilities.trim;
    case CommandKind::verify:
      return capabilities.verify;
    case CommandKind::syncCache:
      return capabilities.syncCache;
    case CommandKind::zoneReset:
      return capabilities.zoneReset;
    case CommandKind::invalidate:
      return capabilities.invalidate;
  }
  return false;
}

uint64_t neededBytes(const DriveCommand& command, const DriveGeometry& geometry) {
  const uint64_t unit = command.unitBytes(geometry);
  switch (command.kind) {
    case CommandKind::trim:
    case CommandKind::syncCache:
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      return 0;
    case CommandKind::writeSame:
      return unit;
    default:
      return unit * command.blocks;
  }
}

bool isLegalSegment(uint64_t lba, uint32_t blocks, const AtomicSegments& segments) {
  return std::has_single_bit(blocks) && blocks >= segments.leastBlocks && blocks <= segments.mostBlocks &&
         lba % blocks == 0;
}

bool hasLegalSegments(const DriveCommand& command, const AtomicSegments& segments) {
  if (!segments.limited() || command.blocks == 0) {
    return true;
  }
  if (command.lbaStep != 1 && command.blocks > 1) {
    return false;
  }
  const uint32_t bound = command.atomicBound == 0 ? command.blocks : command.atomicBound;
  const uint32_t rest = command.blocks % bound;
  // The first whole segment stands for all of them: each begins where the one before it ends.
  return (command.blocks < bound || isLegalSegment(command.lba, bound, segments)) &&
         (rest == 0 || isLegalSegment(command.lba + command.blocks - rest, rest, segments));
}

bool withinDrive(const DriveCommand& command, const DriveGeometry& geometry) {
  if (command.lba > geometry.blocks) {
    return false;
  }
  // Without the sum, which may run over.
  return command.blocks == 0 || (command.lba < geometry.blocks &&
                                 uint64_t{command.blocks - 1} * command.lbaStep <= geometry.blocks - 1 - command.lba);
}

}  // namespace

std::optional<Sense> refuse(const DriveCommand& command, const DriveGeometry& geometry,
                            const DriveCapabilities& capabilities) {
  if (!offered(command.kind, capabilities)) {
    return sense::invalidOperation;
  }
  if (command.kind == CommandKind::syncCache) {
    return std::nullopt;
  }
  if (command.lbaStep == 0) {
    return sense::invalidField;
  }
  if (!withinDrive(command, geometry)) {
    return sense::lbaOutOfRange;
  }
  const uint64_t needed = neededBytes(command, geometry);
  if (needed != 0 && (command.data == nullptr || command.dataBytes != needed)) {
    return sense::invalidField;
  }
  if (command.kind == CommandKind::writeAtomic && !hasLegalSegments(command, capabilities.atomicSegments)) {
    return sense::invalidField;
  }
  return std::nullopt;
}

}  // namespace corvane::host
