#include "host/drive/DriveFactory.h"

#include "host/drive/DriveAddress.h"
#include "host/drive/block/BlockDrive.h"
#include "host/drive/file/FileDrive.h"
#include "host/drive/scsi/iscsi/IscsiDrive.h"
#include "host/drive/sim/SimDrive.h"

namespace corvane::host {

std::unique_ptr<Drive> openDrive(std::string_view text, uint32_t maxOutstanding, uint64_t seed,
                                 Overwriting overwriting) {
  DriveAddress address(text);
  if (address.scheme() == "block") {
    return openBlockDrive(address, maxOutstanding, overwriting);
  }
  if (address.scheme() == "file") {
    return openFileDrive(address, maxOutstanding);
  }
  if (address.scheme() == "iscsi") {
    return openIscsiDrive(address, maxOutstanding);
  }
  if (address.scheme() == "sim") {
    return openSimDrive(address, seed);
  }
  address.refuse("'" + address.scheme() + ":' is not a kind of drive; there are block:, file:, iscsi: and sim:");
}

std::string driveAddressHelp() {
  return blockDriveHelp() + "\n" + fileDriveHelp() + "\n" + iscsiDriveHelp() + "\n" + simDriveHelp();
}

}  // namespace corvane::host
