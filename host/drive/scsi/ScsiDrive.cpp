#include "host/drive/scsi/ScsiDrive.h"

#include "host/drive/DriveError.h"

namespace corvane::host {

std::unique_ptr<Drive> makeScsiDrive(std::unique_ptr<ScsiTransport> transport, const ScsiDriveSettings&, uint32_t) {
  throw DriveError(transport->description() + ": no commands are known for it yet");
}

}  // namespace corvane::host
