#pragma once

#include <cstdint>

#include "host/drive/Drive.h"

namespace corvane::host {

/// A command as far as its range goes.
inline DriveCommand commandOf(CommandKind kind, uint64_t lba, uint32_t blocks, uint32_t step = 1) {
  DriveCommand command;
  command.kind = kind;
  command.lba = lba;
  command.blocks = blocks;
  command.lbaStep = step;
  return command;
}

}  // namespace corvane::host
