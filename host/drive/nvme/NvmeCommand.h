#pragma once

#include <array>
#include <cstdint>

namespace corvane::host {

/// What a submission queue entry says beside the fields that the kernel's driver fills in (NVMe Base, "Submission Queue
/// Entry"). The memory belongs to the caller until the command has ended.
struct NvmeCommand {
  uint8_t opcode = 0;
  uint32_t nsid = 0;
  std::array<uint32_t, 6> dwords{};  ///< command dwords 10 to 15
  uint8_t* data = nullptr;
  uint32_t dataBytes = 0;
  uint8_t* metadata = nullptr;  ///< of a format that keeps them apart from the data
  uint32_t metadataBytes = 0;
};

/// Operation codes of I/O commands (NVM and Zoned Namespace Command Sets).
namespace nvme_opcode {
inline constexpr uint8_t flush = 0x00;
inline constexpr uint8_t write = 0x01;
inline constexpr uint8_t read = 0x02;
inline constexpr uint8_t compare = 0x05;
inline constexpr uint8_t writeZeroes = 0x08;
inline constexpr uint8_t datasetManagement = 0x09;
inline constexpr uint8_t zoneManagementSend = 0x79;
inline constexpr uint8_t zoneManagementReceive = 0x7A;
}  // namespace nvme_opcode

/// Bits of a command's protection information field (NVM Command Set, "PRINFO"). No command of ours asks for checks:
/// what stood on the drive before a test need not pass them, and the test compares every byte anyway.
namespace nvme_protection {
inline constexpr uint8_t action = 0x8;  ///< the controller adds and strips the protection information
}  // namespace nvme_protection

/// Neighbouring blocks of a namespace and how a command treats their protection information.
struct NvmeBlocks {
  uint32_t nsid = 0;
  uint64_t lba = 0;
  uint32_t count = 1;             ///< 1 to 65536
  uint8_t protection = 0;         ///< of `nvme_protection`
  uint32_t initialReference = 0;  ///< reference tag of the first block that is to be written, where it gets one
};

inline constexpr uint32_t nvmeMostBlocks = 65536;  ///< of one command
inline constexpr uint32_t nvmeIdentifyBytes = 4096;
inline constexpr uint32_t nvmeDatasetRangeBytes = 16;

/// The commands of the NVM Command Set. None of them has its data yet.
NvmeCommand nvmeRead(const NvmeBlocks& blocks);
NvmeCommand nvmeWrite(const NvmeBlocks& blocks, bool forceUnitAccess);
/// Compares the medium with the data that are sent; ends with a compare failure, which does not say where.
NvmeCommand nvmeCompare(const NvmeBlocks& blocks);
/// @param deallocate the controller may free the blocks as long as they read as zeros
NvmeCommand nvmeWriteZeroes(const NvmeBlocks& blocks, bool deallocate);
NvmeCommand nvmeFlush(uint32_t nsid);
/// Deallocates the one range that its data hold.
NvmeCommand nvmeDeallocate(uint32_t nsid);
/// The data of `nvmeDeallocate`: one range without context attributes.
std::array<uint8_t, nvmeDatasetRangeBytes> nvmeDatasetRange(uint64_t lba, uint32_t blocks);

/// Zone Management Send, "Reset Zone", of the zone that begins there (Zoned Namespace Command Set).
NvmeCommand nvmeZoneReset(uint32_t nsid, uint64_t lba);
/// Zone Management Receive, "Report Zones": descriptors of as many zones, from the one of `lba` on, as `bytes` hold.
///
/// @param bytes of the answer, a multiple of 4
NvmeCommand nvmeZoneReport(uint32_t nsid, uint64_t lba, uint32_t bytes);

/// Which structure an Identify command asks for (NVMe Base, "CNS Values").
enum class NvmeStructure : uint8_t {
  namespaceOfNvm = 0x00,
  controller = 0x01,
  descriptors = 0x03,      ///< list of the namespace's identifiers, its command set among them
  namespaceOfSet = 0x05,   ///< what a command set adds about the namespace
  controllerOfSet = 0x06,  ///< what a command set adds about the controller
};

/// Command set identifiers.
namespace nvme_command_set {
inline constexpr uint8_t nvm = 0;
inline constexpr uint8_t zoned = 2;
}  // namespace nvme_command_set

/// Admin command; its answer has `nvmeIdentifyBytes`.
NvmeCommand nvmeIdentify(NvmeStructure structure, uint32_t nsid, uint8_t commandSet = nvme_command_set::nvm);
/// Admin command; bit 0 of the result says whether the volatile write cache is on.
NvmeCommand nvmeGetWriteCache();

}  // namespace corvane::host
