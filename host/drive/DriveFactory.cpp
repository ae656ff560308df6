#include "host/drive/DriveFactory.h"

#include "host/drive/DriveAddress.h"
#include "host/drive/file/FileDrive.h"
#include "host/drive/nvme/NvmeDrive.h"
#include "host/drive/sim/SimDrive.h"

namespace corvane::host {

std::unique_ptr<Drive> openDrive(std::string_view text, uint32_t maxOutstanding, uint64_t seed,
                                 Overwriting overwriting) {
  DriveAddress address(text);
  if (address.scheme() == "file") {
    return openFileDrive(address, maxOutstanding);
  }
  if (address.scheme() == "nvme") {
    return openNvmeDrive(address, maxOutstanding, overwriting);
  }
  if (address.scheme() == "sim") {
    return openSimDrive(address, seed);
  }
  address.refuse("'" + address.scheme() + ":' is not a kind of drive; there are file:, nvme: and sim:");
}

std::string driveAddressHelp() { return fileDriveHelp() + "\n" + nvmeDriveHelp() + "\n" + simDriveHelp(); }

}  // namespace corvane::host
