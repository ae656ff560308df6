#include "host/drive/DriveFactory.h"

#include "host/drive/DriveAddress.h"
#include "host/drive/block/BlockDrive.h"
#include "host/drive/file/FileDrive.h"
#include "host/drive/nvme/NvmeDrive.h"
#include "host/drive/scsi/sg/SgDrive.h"
#include "host/drive/sim/SimDrive.h"

namespace corvane::host {

std::unique_ptr<Drive> openDrive(std::string_view text, uint32_t maxOutstanding, uint64_t seed, Overwriting overwriting,
                                 AtStake* stake) {
  DriveAddress address(text);
  // Every kind that may hold what somebody wants to keep is opened by this.
  const auto guarded = [&](const std::string& node, const std::function<std::unique_ptr<Drive>()>& open) {
    return openGuarded(address.text(), node, overwriting, stake, open);
  };
  if (address.scheme() == "block") {
    return guarded(address.target(), [&] { return openBlockDrive(address, maxOutstanding, overwriting); });
  }
  if (address.scheme() == "file") {
    return openFileDrive(address, maxOutstanding);
  }
  if (address.scheme() == "nvme") {
    return guarded(address.target(), [&] { return openNvmeDrive(address, maxOutstanding, overwriting); });
  }
  if (address.scheme() == "sg") {
    return guarded(address.target(), [&] { return openSgDrive(address, maxOutstanding); });
  }
  if (address.scheme() == "sim") {
    return openSimDrive(address, seed);
  }
  address.refuse("'" + address.scheme() + ":' is not a kind of drive; there are block:, file:, nvme:, sg: and sim:");
}

std::string driveAddressHelp() {
  return blockDriveHelp() + "\n" + fileDriveHelp() + "\n" + nvmeDriveHelp() + "\n" + sgDriveHelp() + "\n" + simDriveHelp();
}

}  // namespace corvane::host
