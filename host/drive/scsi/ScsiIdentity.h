#pragma once

#include "host/drive/scsi/ScsiTransport.h"
#include "host/drive/scsi/ScsiUnit.h"

namespace corvane::host {

/// Asks the unit once more who it is: vendor and product of INQUIRY, the serial number (VPD page 80h) and the world
/// wide name (83h) that it had, and the blocks of READ CAPACITY(16). Its medium stays as it is.
///
/// Throws DriveError when it is another one than `known`, or does not say; DriveConnectionLost as the transport does.
///
/// @param transport has nothing outstanding, and its unit is ready
void demandSameUnit(ScsiTransport& transport, const ScsiUnit& known);

}  // namespace corvane::host
