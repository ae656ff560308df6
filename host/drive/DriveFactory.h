#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/drive/Drive.h"
#include "host/drive/Overwriting.h"
#include "host/drive/guard/Guard.h"

namespace corvane::host {

/// Opens a drive by its address.
///
/// | Address                                  | Drive                                                |
/// |------------------------------------------|------------------------------------------------------|
/// | `/dev/NAME[,trim=…]…`, `block:PATH…`     | a block device                                       |
/// | `file:PATH[,size=64m][,block=512]…`      | a regular file; created when `size` is given         |
/// | `sg:/dev/sgN[,timeout=30]…`             | a SCSI unit through its SCSI generic device          |
/// | `nvme:DEVICE[,key=value]…`              | an NVMe namespace, by passthrough                    |
/// | `iscsi://[USER[%PW]@]HOST[:PORT]/IQN/LUN`| a logical unit of an iSCSI target                    |
/// | `sim:[SIZE][,block=512][,pi=8][,seed=N]…`| a simulated drive in memory                          |
///
/// `driveAddressHelp` lists every key with its meaning and default.
///
/// @param maxOutstanding the most commands that the caller will have outstanding
/// @param seed           for a drive that makes random choices of its own, unless its address names one
/// @param overwriting    whether a real drive may be opened that holds something, or that somebody uses
/// @param stake          null, or gets what a real drive holds and who uses it, when it is not refused for that
///
/// Throws DriveAddressError for an address that is wrong by itself (exit status 2), DriveError for a drive that
/// cannot be opened (exit status 3). Nothing is written to the drive.
std::unique_ptr<Drive> openDrive(std::string_view address, uint32_t maxOutstanding, uint64_t seed = 1,
                                 Overwriting overwriting = Overwriting::ofEmptyDrives, AtStake* stake = nullptr);

/// Throws DriveAddressError for an address that is wrong by itself, as `openDrive` does. Nothing is opened, made or
/// asked, so that an accepted address may still name a drive that is not there.
void checkDriveAddress(std::string_view address);

/// Every kind of address and its keys, for `--help`.
std::string driveAddressHelp();

}  // namespace corvane::host
