#include "host/drive/nvme/NvmeCommand.h"

namespace corvane::host {
namespace {

constexpr uint8_t identify = 0x06;
constexpr uint8_t getFeatures = 0x0A;
constexpr uint32_t volatileWriteCache = 0x06;
constexpr uint32_t forceUnitAccessBit = 1U << 30;
constexpr uint32_t deallocateBit = 1U << 25;
constexpr uint32_t protectionShift = 26;
constexpr uint32_t attributeDeallocate = 1U << 2;
constexpr uint32_t resetZoneAction = 0x04;
constexpr uint32_t commandSetShift = 24;

void putLba(NvmeCommand& command, uint64_t lba) {
  command.dwords[0] = static_cast<uint32_t>(lba);
  command.dwords[1] = static_cast<uint32_t>(lba >> 32);
}

NvmeCommand onBlocks(uint8_t opcode, const NvmeBlocks& blocks) {
  NvmeCommand command{.opcode = opcode, .nsid = blocks.nsid};
  putLba(command, blocks.lba);
  command.dwords[2] = (blocks.count - 1) | uint32_t{blocks.protection} << protectionShift;
  command.dwords[4] = blocks.initialReference;
  return command;
}

void putLittleEndian(uint8_t* at, uint64_t value, uint32_t bytes) {
  for (uint32_t i = 0; i < bytes; ++i, value >>= 8) {
    at[i] = static_cast<uint8_t>(value & 0xFF);
  }
}

}  // namespace

NvmeCommand nvmeRead(const NvmeBlocks& blocks) { return onBlocks(nvme_opcode::read, blocks); }

NvmeCommand nvmeWrite(const NvmeBlocks& blocks, bool forceUnitAccess) {
  NvmeCommand command = onBlocks(nvme_opcode::write, blocks);
  command.dwords[2] |= forceUnitAccess ? forceUnitAccessBit : 0;
  return command;
}

NvmeCommand nvmeCompare(const NvmeBlocks& blocks) { return onBlocks(nvme_opcode::compare, blocks); }

NvmeCommand nvmeWriteZeroes(const NvmeBlocks& blocks, bool deallocate) {
  NvmeCommand command = onBlocks(nvme_opcode::writeZeroes, blocks);
  command.dwords[2] |= deallocate ? deallocateBit : 0;
  return command;
}

NvmeCommand nvmeFlush(uint32_t nsid) { return {.opcode = nvme_opcode::flush, .nsid = nsid}; }

NvmeCommand nvmeDeallocate(uint32_t nsid) {
  NvmeCommand command{.opcode = nvme_opcode::datasetManagement, .nsid = nsid};
  command.dwords[1] = attributeDeallocate;
  return command;
}

std::array<uint8_t, nvmeDatasetRangeBytes> nvmeDatasetRange(uint64_t lba, uint32_t blocks) {
  std::array<uint8_t, nvmeDatasetRangeBytes> range{};
  putLittleEndian(&range[4], blocks, sizeof blocks);
  putLittleEndian(&range[8], lba, sizeof lba);
  return range;
}

NvmeCommand nvmeZoneReset(uint32_t nsid, uint64_t lba) {
  NvmeCommand command{.opcode = nvme_opcode::zoneManagementSend, .nsid = nsid};
  putLba(command, lba);
  command.dwords[3] = resetZoneAction;
  return command;
}

NvmeCommand nvmeZoneReport(uint32_t nsid, uint64_t lba, uint32_t bytes) {
  NvmeCommand command{.opcode = nvme_opcode::zoneManagementReceive, .nsid = nsid};
  putLba(command, lba);
  command.dwords[2] = bytes / 4 - 1;
  return command;
}

NvmeCommand nvmeIdentify(NvmeStructure structure, uint32_t nsid, uint8_t commandSet) {
  NvmeCommand command{.opcode = identify, .nsid = nsid};
  command.dwords[0] = static_cast<uint32_t>(structure);
  command.dwords[1] = uint32_t{commandSet} << commandSetShift;
  return command;
}

NvmeCommand nvmeGetWriteCache() {
  NvmeCommand command{.opcode = getFeatures};
  command.dwords[0] = volatileWriteCache;
  return command;
}

}  // namespace corvane::host
