#include "host/drive/scsi/sg/SgDrive.h"

#include "host/drive/scsi/ScsiDrive.h"
#include "host/drive/scsi/sg/SgTransport.h"

namespace corvane::host {

std::unique_ptr<Drive> openSgDrive(DriveAddress& address, uint32_t maxOutstanding) {
  constexpr uint64_t hour = 3600;
  SgSettings settings;
  settings.path = address.target();
  settings.timeoutSeconds = static_cast<uint32_t>(address.number("timeout", settings.timeoutSeconds, 1, hour));
  const ScsiDriveSettings unit = takeScsiDriveSettings(address);
  address.checkAllTaken();
  if (settings.path.empty()) {
    address.refuse("it names no device; write 'sg:/dev/sg0'");
  }
  return makeScsiDrive(std::make_unique<SgTransport>(settings, maxOutstanding), unit, maxOutstanding);
}

std::string sgDriveHelp() {
  return "sg:/dev/sgN[,key=value]...\n"
         "  a SCSI, SAS, SATA or USB drive through the kernel's SCSI generic device; its content is overwritten\n"
         "  timeout=30       seconds after which the kernel aborts a command\n" +
         scsiDriveKeysHelp();
}

}  // namespace corvane::host
