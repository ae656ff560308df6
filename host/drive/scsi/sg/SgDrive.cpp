#include "host/drive/scsi/sg/SgDrive.h"

#include "host/drive/scsi/ScsiDrive.h"
#include "host/drive/scsi/sg/SgTransport.h"

namespace corvane::host {

namespace {

/// What an address says.
struct SgAddress {
  SgSettings transport;
  ScsiDriveSettings unit;
};

SgAddress takeSettings(DriveAddress& address) {
  constexpr uint64_t hour = 3600;
  SgAddress taken;
  SgSettings& settings = taken.transport;
  settings.path = address.target();
  settings.timeoutSeconds = static_cast<uint32_t>(address.number("timeout", settings.timeoutSeconds, 1, hour));
  taken.unit = takeScsiDriveSettings(address);
  address.checkAllTaken();
  if (settings.path.empty()) {
    address.refuse("it names no device; write 'sg:/dev/sg0'");
  }
  return taken;
}

}  // namespace

std::unique_ptr<Drive> openSgDrive(DriveAddress& address, uint32_t maxOutstanding) {
  const SgAddress settings = takeSettings(address);
  return makeScsiDrive(std::make_unique<SgTransport>(settings.transport, maxOutstanding), settings.unit,
                       maxOutstanding);
}

void checkSgAddress(DriveAddress& address) { takeSettings(address); }

std::string sgDriveHelp() {
  return "sg:/dev/sgN[,key=value]...\n"
         "  a SCSI, SAS, SATA or USB drive through the kernel's SCSI generic device; its content is overwritten\n"
         "  timeout=30       seconds after which the kernel aborts a command\n" +
         scsiDriveKeysHelp();
}

}  // namespace corvane::host
