#pragma once

#include <memory>

#include "host/drive/Drive.h"
#include "host/drive/scsi/ScsiDriveSettings.h"
#include "host/drive/scsi/ScsiTransport.h"

namespace corvane::host {

/// A SCSI unit behind a transport, as a drive.
///
/// Asks the unit what it is and can, and changes nothing on it.
///
/// @param maxOutstanding the most commands that the caller will have outstanding; the drive takes fewer where the
///                       transport does
///
/// Throws DriveError for a unit that is no disk, is not ready, cannot be written or lacks what the settings demand; the
/// text begins with the transport's description.
std::unique_ptr<Drive> makeScsiDrive(std::unique_ptr<ScsiTransport> transport, const ScsiDriveSettings& settings,
                                     uint32_t maxOutstanding);

}  // namespace corvane::host
