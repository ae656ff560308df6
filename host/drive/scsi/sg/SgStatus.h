#pragma once

#include <cstdint>

#include "host/drive/scsi/ScsiTransport.h"

namespace corvane::host {

/// How the kernel says that a request ended (struct sg_io_hdr): three codes that have nothing to do with each other.
struct SgStatus {
  uint16_t host = 0;    ///< of the host adapter and its driver: DID_…
  uint16_t driver = 0;  ///< of the middle layer; its low half 8: there is sense data
  uint8_t scsi = 0;     ///< SAM status, valid when the unit answered
  uint32_t senseBytes = 0;
};

/// What a request that the kernel gave back means.
struct SgVerdict {
  bool unitLost = false;  ///< there is no unit any more, or no way to it
  uint32_t status = 0;    ///< otherwise: for `ScsiReply::status`
};

/// Whether a request that was perhaps carried out may be sent again as if it had not been: it reads, or leaves the
/// medium and its protection as they are.
bool mayBeRepeated(const ScsiRequest& request);

/// Tells a unit's answer from the failures of the way to it.
///
/// A request that the host adapter refused or asks to have again is `busy`. One that timed out, or was aborted or reset
/// by anybody, was perhaps carried out: it is `aborted`, or `busy` when it may be repeated.
SgVerdict judge(const SgStatus& status, bool repeatable);

}  // namespace corvane::host
