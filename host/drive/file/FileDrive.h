#pragma once

#include <memory>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {

/// Opens `file:PATH[,key=value]…`: a regular file as a drive, block n is sector n of the file.
///
/// A trim punches a hole, a flush is fdatasync, forced unit access a write with data sync. Where memory or sectors do
/// not fit O_DIRECT, data are copied once or go through the page cache. What a reset does says EngineDrive.
///
/// Throws DriveError for a file that cannot be opened, or an engine that the kernel refuses.
std::unique_ptr<Drive> openFileDrive(DriveAddress& address, uint32_t maxOutstanding);

/// Throws DriveAddressError where `openFileDrive` would, and touches nothing.
void checkFileAddress(DriveAddress& address);

/// The keys of `file:`, for `--help`.
std::string fileDriveHelp();

}  // namespace corvane::host
