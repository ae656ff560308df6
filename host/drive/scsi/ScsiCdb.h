#pragma once

#include <array>
#include <cstdint>

namespace corvane::host {

/// A command descriptor block; commands shorter than 16 bytes leave the rest zero.
using Cdb = std::array<uint8_t, 16>;
/// The data of an UNMAP of one range (SBC).
using UnmapParameterList = std::array<uint8_t, 24>;

/// Operation codes (SPC, SBC).
namespace scsi_operation {
inline constexpr uint8_t testUnitReady = 0x00;
inline constexpr uint8_t inquiry = 0x12;
inline constexpr uint8_t modeSense6 = 0x1A;
inline constexpr uint8_t unmap = 0x42;
inline constexpr uint8_t modeSense10 = 0x5A;
inline constexpr uint8_t read16 = 0x88;
inline constexpr uint8_t write16 = 0x8A;
inline constexpr uint8_t verify16 = 0x8F;
inline constexpr uint8_t synchronizeCache16 = 0x91;
inline constexpr uint8_t writeSame16 = 0x93;
inline constexpr uint8_t writeAtomic16 = 0x9C;
inline constexpr uint8_t serviceActionIn16 = 0x9E;  ///< READ CAPACITY(16) is one
inline constexpr uint8_t maintenanceIn = 0xA3;      ///< REPORT SUPPORTED OPERATION CODES is one
}  // namespace scsi_operation

/// Bytes of the command block that an operation code of SPC's groups begins: 6, 10, 12 or 16; vendors' codes: 16.
uint32_t cdbBytesOf(uint8_t operation);

/// What a command on blocks may ask for beside its blocks.
struct CdbBits {
  uint8_t protection = 0;  ///< the 3-bit RDPROTECT, WRPROTECT or VRPROTECT field
  bool forceUnitAccess = false;
};

/// Builders of command blocks. Lengths of replies are the allocation lengths, in bytes.
namespace cdb {

Cdb testUnitReady();
Cdb inquiry(uint16_t replyBytes);
/// INQUIRY of a vital product data page.
Cdb inquiryPage(uint8_t page, uint16_t replyBytes);
Cdb readCapacity16(uint32_t replyBytes);
/// MODE SENSE of the current values of a page, without block descriptors.
Cdb modeSense6(uint8_t page, uint8_t replyBytes);
Cdb modeSense10(uint8_t page, uint16_t replyBytes);
/// REPORT SUPPORTED OPERATION CODES about one code that has no service actions.
Cdb reportSupportedOperation(uint8_t operation, uint32_t replyBytes);

Cdb read16(uint64_t lba, uint32_t blocks, CdbBits bits);
Cdb write16(uint64_t lba, uint32_t blocks, CdbBits bits);
/// @param boundary blocks of which each run is atomic, counted from `lba`; 0: all of the command is
Cdb writeAtomic16(uint64_t lba, uint16_t blocks, uint16_t boundary, CdbBits bits);
/// With byte check (BYTCHK 01b) against the data that is sent; it has no bit for forced unit access.
Cdb verify16(uint64_t lba, uint32_t blocks, CdbBits bits);
/// One block of data for all blocks; it has no bit for forced unit access. 0 blocks are all blocks up to the end of the
/// medium: do not ask for that.
Cdb writeSame16(uint64_t lba, uint32_t blocks, bool unmap, CdbBits bits);
Cdb unmap(uint16_t parameterListBytes);
/// Of the whole medium.
Cdb synchronizeCache16();

/// The parameter list of an UNMAP: one descriptor.
UnmapParameterList unmapParameterList(uint64_t lba, uint32_t blocks);

}  // namespace cdb

}  // namespace corvane::host
