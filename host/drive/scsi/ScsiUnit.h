#pragma once

#include <cstdint>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/scsi/ScsiDriveSettings.h"
#include "host/drive/scsi/ScsiPages.h"
#include "host/drive/scsi/ScsiTransport.h"
#include "host/drive/scsi/ScsiTrim.h"

namespace corvane::host {

/// What a SCSI unit is and how each kind of command reaches it.
struct ScsiUnit {
  InquiryData inquiry;
  std::string serial;
  std::string designator;
  DriveGeometry geometry;
  uint8_t protectionType = 0;  ///< of its format, transferred or not

  uint64_t mostBlocks = 0;      ///< of a read, write or verify
  uint64_t mostSameBlocks = 0;  ///< of a WRITE SAME; 0: it does not take one that says what our write-same means
  bool verifies = false;        ///< it compares the data of a verify itself
  TrimMethod trim;
  std::string whyNoTrim;
  AtomicWriting atomic;
  bool flushes = false;
  bool writeBackCache = false;    ///< or nobody knows
  bool forcesUnitAccess = false;  ///< reads and writes may carry the FUA bit

  /// The RDPROTECT, WRPROTECT and VRPROTECT field of its commands: transferred and not checked, or not transferred.
  uint8_t protectionField() const { return geometry.protectionBytes != 0 ? 3 : 0; }
  DriveCapabilities capabilities() const;
  /// "MAKER PRODUCT 1.0, serial 123, 64 MiB, 512-byte blocks, …".
  std::string description() const;
};

/// Finds out what the unit is and can. Its medium stays as it is.
///
/// Throws DriveError for a unit that cannot be tested, or not in the way that the settings demand.
ScsiUnit probeScsiUnit(ScsiTransport& transport, const ScsiDriveSettings& settings);

}  // namespace corvane::host
