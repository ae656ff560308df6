#pragma once

#include <memory>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/Overwriting.h"

namespace corvane::host {

/// Opens `/dev/NAME[,key=value]…` or `block:PATH[,key=value]…`: a block device of the kernel, past the page cache.
///
/// A flush is fdatasync, forced unit access a write with data sync; a write-same is a write of the repeated block, a
/// verify a read and a compare. An atomic write is one where the kernel tells units of it for the device: each segment
/// is asked for as a whole (RWF_ATOMIC). A trim leaves zeros, as `trim=` says. A reset is that of EngineDrive: the
/// device itself is not reset. There is no power toggle.
///
/// Throws DriveAddressError for wrong keys, DriveError for a device that BlockDevice refuses, an engine that the kernel
/// refuses, and a kind of trim that the device does not have.
std::unique_ptr<Drive> openBlockDrive(DriveAddress& address, uint32_t maxOutstanding, Overwriting overwriting);

/// Throws DriveAddressError where `openBlockDrive` would, and touches nothing.
void checkBlockAddress(DriveAddress& address);

/// The keys of a block device, for `--help`.
std::string blockDriveHelp();

}  // namespace corvane::host
