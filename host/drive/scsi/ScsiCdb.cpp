#include "host/drive/scsi/ScsiCdb.h"

#include "host/base/BigEndian.h"

namespace corvane::host {
namespace {

constexpr uint8_t vitalProductDataBit = 1U << 0;
constexpr uint8_t noBlockDescriptorsBit = 1U << 3;
constexpr uint8_t forceUnitAccessBit = 1U << 3;
constexpr uint8_t unmapBit = 1U << 3;
constexpr uint8_t byteCheckData = 1U << 1;
constexpr uint8_t readCapacityAction = 0x10;
constexpr uint8_t reportOperationsAction = 0x0C;
constexpr uint8_t oneOperation = 0x01;

/// The form that most commands on blocks have: flags in byte 1, an LBA of 64 and a count of 32 bits.
Cdb onBlocks(uint8_t operation, uint64_t lba, uint32_t blocks, uint8_t protection, uint8_t flags) {
  Cdb block{};
  block[0] = operation;
  block[1] = static_cast<uint8_t>(protection << 5) | flags;
  putBigEndian(&block[2], lba);
  putBigEndian(&block[10], blocks);
  return block;
}

uint8_t accessFlags(CdbBits bits) { return bits.forceUnitAccess ? forceUnitAccessBit : uint8_t{0}; }

}  // namespace

uint32_t cdbBytesOf(uint8_t operation) {
  switch (operation >> 5) {
    case 0:
      return 6;
    case 1:
    case 2:
      return 10;
    case 5:
      return 12;
    default:
      return 16;
  }
}

namespace cdb {

Cdb testUnitReady() { return {}; }

Cdb inquiry(uint16_t replyBytes) {
  Cdb block{};
  block[0] = scsi_operation::inquiry;
  putBigEndian(&block[3], replyBytes);
  return block;
}

Cdb inquiryPage(uint8_t page, uint16_t replyBytes) {
  Cdb block = inquiry(replyBytes);
  block[1] = vitalProductDataBit;
  block[2] = page;
  return block;
}

Cdb readCapacity16(uint32_t replyBytes) {
  Cdb block{};
  block[0] = scsi_operation::serviceActionIn16;
  block[1] = readCapacityAction;
  putBigEndian(&block[10], replyBytes);
  return block;
}

Cdb modeSense6(uint8_t page, uint8_t replyBytes) {
  Cdb block{};
  block[0] = scsi_operation::modeSense6;
  block[1] = noBlockDescriptorsBit;
  block[2] = page;
  block[4] = replyBytes;
  return block;
}

Cdb modeSense10(uint8_t page, uint16_t replyBytes) {
  Cdb block{};
  block[0] = scsi_operation::modeSense10;
  block[1] = noBlockDescriptorsBit;
  block[2] = page;
  putBigEndian(&block[7], replyBytes);
  return block;
}

Cdb reportSupportedOperation(uint8_t operation, uint32_t replyBytes) {
  Cdb block{};
  block[0] = scsi_operation::maintenanceIn;
  block[1] = reportOperationsAction;
  block[2] = oneOperation;
  block[3] = operation;
  putBigEndian(&block[6], replyBytes);
  return block;
}

Cdb read16(uint64_t lba, uint32_t blocks, CdbBits bits) {
  return onBlocks(scsi_operation::read16, lba, blocks, bits.protection, accessFlags(bits));
}

Cdb write16(uint64_t lba, uint32_t blocks, CdbBits bits) {
  return onBlocks(scsi_operation::write16, lba, blocks, bits.protection, accessFlags(bits));
}

Cdb writeAtomic16(uint64_t lba, uint16_t blocks, uint16_t boundary, CdbBits bits) {
  Cdb block = onBlocks(scsi_operation::writeAtomic16, lba, 0, bits.protection, accessFlags(bits));
  putBigEndian(&block[10], boundary);
  putBigEndian(&block[12], blocks);
  return block;
}

Cdb verify16(uint64_t lba, uint32_t blocks, CdbBits bits) {
  return onBlocks(scsi_operation::verify16, lba, blocks, bits.protection, byteCheckData);
}

Cdb writeSame16(uint64_t lba, uint32_t blocks, bool unmap, CdbBits bits) {
  return onBlocks(scsi_operation::writeSame16, lba, blocks, bits.protection, unmap ? unmapBit : uint8_t{0});
}

Cdb unmap(uint16_t parameterListBytes) {
  Cdb block{};
  block[0] = scsi_operation::unmap;
  putBigEndian(&block[7], parameterListBytes);
  return block;
}

Cdb synchronizeCache16() { return onBlocks(scsi_operation::synchronizeCache16, 0, 0, 0, 0); }

UnmapParameterList unmapParameterList(uint64_t lba, uint32_t blocks) {
  constexpr size_t headerBytes = 8;
  UnmapParameterList list{};
  putBigEndian(&list[0], static_cast<uint16_t>(list.size() - 2));
  putBigEndian(&list[2], static_cast<uint16_t>(list.size() - headerBytes));
  putBigEndian(&list[headerBytes], lba);
  putBigEndian(&list[headerBytes + 8], blocks);
  return list;
}

}  // namespace cdb

}  // namespace corvane::host
