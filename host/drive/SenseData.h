#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "host/drive/Drive.h"

namespace corvane::host {

/// Sense keys (SPC) that our own drives report.
namespace sense_key {
inline constexpr uint8_t recoveredError = 0x1;
inline constexpr uint8_t mediumError = 0x3;
inline constexpr uint8_t hardwareError = 0x4;
inline constexpr uint8_t illegalRequest = 0x5;
inline constexpr uint8_t abortedCommand = 0xB;
inline constexpr uint8_t miscompare = 0xE;
}  // namespace sense_key

/// Why a command failed: sense key, additional sense code and its qualifier (SPC).
struct Sense {
  uint8_t key = 0;
  uint8_t code = 0;
  uint8_t qualifier = 0;

  bool operator==(const Sense&) const = default;
};

namespace sense {
inline constexpr Sense recoveredRead{sense_key::recoveredError, 0x17, 0x01};   ///< with retries
inline constexpr Sense recoveredWrite{sense_key::recoveredError, 0x0C, 0x01};  ///< with a new place on the medium
inline constexpr Sense writeError{sense_key::mediumError, 0x0C, 0x00};
inline constexpr Sense unrecoveredRead{sense_key::mediumError, 0x11, 0x00};
inline constexpr Sense internalFailure{sense_key::hardwareError, 0x44, 0x00};
inline constexpr Sense invalidOperation{sense_key::illegalRequest, 0x20, 0x00};
inline constexpr Sense lbaOutOfRange{sense_key::illegalRequest, 0x21, 0x00};
inline constexpr Sense unalignedWrite{sense_key::illegalRequest, 0x21, 0x04};
inline constexpr Sense writeBoundaryViolation{sense_key::illegalRequest, 0x21, 0x05};
inline constexpr Sense invalidField{sense_key::illegalRequest, 0x24, 0x00};
inline constexpr Sense abortedByInternalFailure{sense_key::abortedCommand, 0x44, 0x00};
inline constexpr Sense abortedByParityError{sense_key::abortedCommand, 0x47, 0x00};
inline constexpr Sense dataPhaseError{sense_key::abortedCommand, 0x4B, 0x00};
inline constexpr Sense miscompareDuringVerify{sense_key::miscompare, 0x1D, 0x00};
}  // namespace sense

/// Makes a completion a check condition with sense data: fixed format, or descriptor format when the information
/// needs more than the 32 bits that the fixed one has for it.
///
/// @param information the LBA that the error is about; nothing leaves the valid bit clear
void setSense(DriveCompletion& completion, const Sense& sense, std::optional<uint64_t> information = std::nullopt);

/// Takes over the sense data that came with a command, cut off where a completion ends.
///
/// A drive announces all the sense data that it has, however little of it was asked for or arrived. Who reads sense
/// data trusts that length, so it is corrected here to what came.
void takeSense(DriveCompletion& completion, std::span<const uint8_t> came);

/// Whether the drive has carried the command out: good status, or a check condition that reports an error from which it
/// recovered (sense key 1). Sense data of an unknown format report nothing.
bool isCarriedOut(const DriveCompletion& completion);

}  // namespace corvane::host
