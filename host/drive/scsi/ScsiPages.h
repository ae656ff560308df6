#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/drive/Drive.h"

namespace corvane::host {

/// What a unit's replies to the questions about itself say. Each parser takes the bytes that came and gives nothing
/// when they are too few, or are another page than the one that was asked for. Counts are logical blocks; a limit of 0
/// is one that the unit does not report.

/// Standard INQUIRY data (SPC).
struct InquiryData {
  uint8_t qualifier = 0;  ///< 0: a device is there
  uint8_t deviceType = 0;
  std::string vendor;
  std::string product;
  std::string revision;
};
std::optional<InquiryData> parseInquiry(std::span<const uint8_t> bytes);

/// "a tape drive" for a peripheral device type; "a device of type 1Dh" for one without a name here.
std::string deviceTypeName(uint8_t type);

/// READ CAPACITY(16) (SBC).
struct CapacityData {
  uint64_t lastLba = 0;
  uint32_t blockBytes = 0;
  uint8_t protectionType = 0;              ///< 1 to 3; 0: formatted without protection information
  uint8_t protectionIntervalExponent = 0;  ///< protection information stands behind every 2^-n of a block
  uint8_t physicalExponent = 0;
  bool provisioned = false;  ///< LBPME: blocks can be unmapped
  bool readsZeros = false;   ///< LBPRZ: unmapped blocks read as zeros
};
std::optional<CapacityData> parseCapacity(std::span<const uint8_t> bytes);

/// VPD page 00h: whether a page is listed.
bool listsPage(std::span<const uint8_t> supportedPages, uint8_t page);

/// VPD page 80h: the serial number without the blanks around it; empty when there is none.
std::string parseSerial(std::span<const uint8_t> bytes);

/// VPD page 83h: the unit's own name that is unique in the world, as "naa.5000…" or "eui.…"; empty when there is none.
std::string parseDesignator(std::span<const uint8_t> bytes);

/// VPD page B0h, block limits (SBC). Its end is younger than its beginning: what a short page lacks is 0.
struct BlockLimits {
  uint32_t mostTransfer = 0;
  uint32_t mostUnmap = 0;
  uint32_t unmapGranularity = 0;
  uint32_t unmapAlignment = 0;  ///< the first LBA that begins a granule
  uint64_t mostWriteSame = 0;
  uint32_t mostAtomic = 0;
  uint32_t atomicAlignment = 0;
  uint32_t atomicGranularity = 0;
  uint32_t mostAtomicWithBoundary = 0;
  uint32_t mostAtomicBoundary = 0;
};
std::optional<BlockLimits> parseBlockLimits(std::span<const uint8_t> bytes);

/// VPD page B2h, logical block provisioning (SBC).
struct ProvisioningData {
  bool unmaps = false;           ///< LBPU: UNMAP
  bool writeSameUnmaps = false;  ///< LBPWS: WRITE SAME(16) with the UNMAP bit
  bool readsZeros = false;       ///< LBPRZ xx1b
};
std::optional<ProvisioningData> parseProvisioning(std::span<const uint8_t> bytes);

/// What a mode page and its header say; the header's form is that of MODE SENSE(6) or (10).
struct ModeData {
  bool writeProtected = false;
  bool forcesUnitAccess = false;      ///< DPOFUA: commands may carry the FUA bit
  bool writeBackCache = false;        ///< WCE, of the caching page
  bool keepsApplicationTags = false;  ///< ATO, of the control page: application tags are the initiator's
};
inline constexpr uint8_t cachingPage = 0x08;
inline constexpr uint8_t controlPage = 0x0A;
/// @param page       `cachingPage` or `controlPage`
/// @param headerBytes 4 of MODE SENSE(6), 8 of MODE SENSE(10)
std::optional<ModeData> parseMode(std::span<const uint8_t> bytes, uint8_t page, uint32_t headerBytes);

/// What REPORT SUPPORTED OPERATION CODES says about one code; nothing when the unit does not know now.
struct OperationSupport {
  bool supported = false;
  uint8_t flags = 0;  ///< of byte 1 of the command block the bits that the unit looks at; 0 when it does not say
};
std::optional<OperationSupport> parseOperationSupport(std::span<const uint8_t> bytes);

/// Which segments WRITE ATOMIC(16) takes, by block limits.
struct AtomicWriting {
  AtomicSegments segments;  ///< `mostBlocks` 0: none, and `whyNot` says why
  bool bySegmentBound =
      false;  ///< a segment is stated as the command's atomic boundary, for want of a limit without one
  std::string whyNot;
};
/// @param mostTransfer of one command altogether, by every other limit
AtomicWriting atomicWritingOf(const BlockLimits& limits, uint64_t mostTransfer);

}  // namespace corvane::host
