#pragma once

#include <cstdint>
#include <string>

#include "host/drive/DriveAddress.h"

namespace corvane::host {

/// What an address may say about a SCSI unit, whichever transport leads to it.
struct ScsiDriveSettings {
  /// What a trim becomes. It has to leave zeros.
  enum class Trim : uint8_t {
    wherePossible,  ///< WRITE SAME of zeros, with the UNMAP bit where unmapped blocks read as zeros
    writeSame,      ///< WRITE SAME with the UNMAP bit, or the unit is refused
    unmap,          ///< UNMAP of whole granules and zeros written to the rest, or the unit is refused
    never
  };
  /// Who compares the data of a verify.
  enum class Verify : uint8_t {
    wherePossible,  ///< the unit where it takes VERIFY with byte check, else the host
    byUnit,         ///< or the unit is refused
    byHost          ///< data are read and compared here
  };

  Trim trim = Trim::wherePossible;
  Verify verify = Verify::wherePossible;
  bool protection = false;     ///< protection information is transferred behind every block
  uint32_t readySeconds = 30;  ///< for a unit that says it is becoming ready, at the start and after a reset
};

/// Reads `trim=`, `verify=`, `pi=` and `ready=` of an address. Throws DriveAddressError.
ScsiDriveSettings takeScsiDriveSettings(DriveAddress& address);

/// What `takeScsiDriveSettings` understands, a line a key, for `--help`.
std::string scsiDriveKeysHelp();

}  // namespace corvane::host
