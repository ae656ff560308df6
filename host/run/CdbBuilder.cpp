#include "host/run/CdbBuilder.h"

#include "host/base/BigEndian.h"

namespace corvane::host {
namespace {

constexpr uint8_t operationRead16 = 0x88;
constexpr uint8_t operationWrite16 = 0x8A;
constexpr uint8_t operationVerify16 = 0x8F;
constexpr uint8_t operationSynchronizeCache16 = 0x91;
constexpr uint8_t operationWriteSame16 = 0x93;
constexpr uint8_t operationWriteAtomic16 = 0x9C;
constexpr uint8_t operationUnmap = 0x42;
constexpr uint8_t forceUnitAccessBit = 1U << 3;
constexpr uint8_t byteCheckData = 1U << 1;

uint8_t operation(CommandKind kind) {
  switch (kind) {
    case CommandKind::write:
      return operationWrite16;
    case CommandKind::writeAtomic:
      return operationWriteAtomic16;
    case CommandKind::writeSame:
      return operationWriteSame16;
    case CommandKind::trim:
      return operationUnmap;
    case CommandKind::read:
      return operationRead16;
    case CommandKind::verify:
      return operationVerify16;
    case CommandKind::syncCache:
      return operationSynchronizeCache16;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;  // no agent sees their command blocks
  }
  return 0;
}

}  // namespace

Cdb buildCdb(const DriveCommand& command, uint8_t protection) {
  Cdb cdb{};
  cdb[0] = operation(command.kind);
  if (command.kind == CommandKind::trim) {
    putBigEndian(&cdb[7], static_cast<uint16_t>(sizeof(UnmapParameterList)));
    return cdb;
  }
  if (command.kind == CommandKind::syncCache) {
    return cdb;
  }
  cdb[1] = static_cast<uint8_t>(protection << 5);
  if (command.kind == CommandKind::verify) {
    cdb[1] |= byteCheckData;
  } else if (command.forceUnitAccess && command.kind != CommandKind::writeSame) {
    cdb[1] |= forceUnitAccessBit;
  }
  putBigEndian(&cdb[2], command.lba);
  if (command.kind == CommandKind::writeAtomic) {
    putBigEndian(&cdb[10], static_cast<uint16_t>(command.atomicBound));
    putBigEndian(&cdb[12], static_cast<uint16_t>(command.blocks));
  } else {
    putBigEndian(&cdb[10], command.blocks);
  }
  return cdb;
}

UnmapParameterList buildUnmapParameterList(uint64_t lba, uint32_t blocks) {
  UnmapParameterList list{};
  putBigEndian(&list[0], static_cast<uint16_t>(list.size() - 2));
  putBigEndian(&list[2], static_cast<uint16_t>(list.size() - 8));
  putBigEndian(&list[8], lba);
  putBigEndian(&list[16], blocks);
  return list;
}

}  // namespace corvane::host
