#pragma once

#include <memory>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {

/// Opens `sg:PATH[,key=value]…`: the SCSI unit behind a SCSI generic device.
///
/// Throws DriveAddressError or DriveError; nothing is written to the unit.
std::unique_ptr<Drive> openSgDrive(DriveAddress& address, uint32_t maxOutstanding);

/// Throws DriveAddressError where `openSgDrive` would, and touches nothing.
void checkSgAddress(DriveAddress& address);

/// The keys of `sg:`, for `--help`.
std::string sgDriveHelp();

}  // namespace corvane::host
