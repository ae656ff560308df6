#include "host/run/CdbBuilder.h"

namespace corvane::host {

Cdb buildCdb(const DriveCommand& command, uint8_t protection) {
  const CdbBits bits{.protection = protection, .forceUnitAccess = command.forceUnitAccess};
  switch (command.kind) {
    case CommandKind::write:
      return cdb::write16(command.lba, command.blocks, bits);
    case CommandKind::writeAtomic:
      return cdb::writeAtomic16(command.lba, static_cast<uint16_t>(command.blocks),
                                static_cast<uint16_t>(command.atomicBound), bits);
    case CommandKind::writeSame:
      return cdb::writeSame16(command.lba, command.blocks, false, bits);
    case CommandKind::trim:
      return cdb::unmap(sizeof(UnmapParameterList));
    case CommandKind::read:
      return cdb::read16(command.lba, command.blocks, bits);
    case CommandKind::verify:
      return cdb::verify16(command.lba, command.blocks, bits);
    case CommandKind::syncCache:
      return cdb::synchronizeCache16();
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;  // no agent sees their command blocks
  }
  return {};
}

}  // namespace corvane::host
