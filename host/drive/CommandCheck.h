#pragma once

#include <optional>

#include "host/drive/Drive.h"
#include "host/drive/SenseData.h"

namespace corvane::host {

/// What a drive of this geometry answers to a command that it cannot carry out; nothing when it can.
///
/// Unknown kind: invalid operation code. Blocks beyond the end: LBA out of range. Data whose size does not fit the
/// command, a step between blocks of 0, or an atomic write with a segment that the drive does not take: invalid field.
std::optional<Sense> refuse(const DriveCommand& command, const DriveGeometry& geometry,
                            const DriveCapabilities& capabilities);

/// Whether the command is a write or read that every drive of this geometry can carry out. Most are, and it takes a
/// third of the time to see that than to look for everything that may be wrong with a command.
inline bool isPlainTransfer(const DriveCommand& command, const DriveGeometry& geometry) {
  return (command.kind == CommandKind::read || command.kind == CommandKind::write) && command.lbaStep == 1 &&
         command.blocks != 0 && command.lba < geometry.blocks && command.blocks <= geometry.blocks - command.lba &&
         command.data != nullptr && command.dataBytes == command.unitBytes(geometry) * command.blocks;
}

}  // namespace corvane::host
