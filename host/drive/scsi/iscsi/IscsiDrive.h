#pragma once

#include <memory>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"

namespace corvane::host {

/// Opens "iscsi://…" and takes every key of the address. Throws DriveAddressError or DriveError.
std::unique_ptr<Drive> openIscsiDrive(DriveAddress& address, uint32_t maxOutstanding);

/// Throws DriveAddressError where `openIscsiDrive` would, and speaks to nobody.
void checkIscsiAddress(DriveAddress& address);

/// The address and its keys, for `--help`.
std::string iscsiDriveHelp();

}  // namespace corvane::host
