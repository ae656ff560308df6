#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/drive/SenseData.h"

namespace corvane::host {

/// Status of a completion queue entry without its phase: code in bits 0 to 7, code type in bits 8 to 10, above them a
/// retry delay and the bits "more" and "do not retry", which say nothing about the command's end.
namespace nvme_status {
inline constexpr uint16_t success = 0x000;
inline constexpr uint16_t invalidOpcode = 0x001;
inline constexpr uint16_t invalidField = 0x002;
inline constexpr uint16_t lbaOutOfRange = 0x080;
inline constexpr uint16_t zoneBoundary = 0x1B8;
inline constexpr uint16_t zoneFull = 0x1B9;
inline constexpr uint16_t zoneInvalidWrite = 0x1BC;
inline constexpr uint16_t unrecoveredRead = 0x281;
inline constexpr uint16_t compareFailure = 0x285;
inline constexpr uint16_t codeMask = 0x7FF;
}  // namespace nvme_status

/// What an NVMe status is to a host that speaks SCSI.
struct NvmeStatusMeaning {
  uint16_t status = 0;                                ///< code and code type
  const char* name = "";                              ///< in NVMe's words
  uint32_t scsiStatus = scsi_status::checkCondition;  ///< SAM
  Sense sense{};                                      ///< with a check condition
};

/// Every status that has a meaning of its own, in the order of their numbers.
std::span<const NvmeStatusMeaning> nvmeStatusMeanings();

/// Writes how a command with this status ended, everything but tag, id and a good read's bytes.
///
/// The translation is that of the SCSI translation reference for NVMe, with zone errors as ZBC names them. A status
/// without a row is a hardware error, 04/44/00, except one of the path (code type 3): the command was aborted.
///
/// @param lba the block that the error is about, where it is known; goes along with medium errors and miscompares
void setNvmeStatus(DriveCompletion& completion, uint16_t status, std::optional<uint64_t> lba = std::nullopt);

/// "Compare Failure (SCT 2h, SC 85h)", for messages.
std::string nvmeStatusText(uint16_t status);

}  // namespace corvane::host
