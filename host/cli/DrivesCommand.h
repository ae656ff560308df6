#pragma once

#include <string>

#include "host/cli/Console.h"
#include "host/drive/Drive.h"

namespace corvane::host {

/// What there is to say about an open drive: geometry and capabilities, a line each.
std::string driveText(const Drive& drive);

/// `corvane drives`: prints how drives are addressed. Returns the exit status.
int showDriveAddresses(Console& out);

/// `corvane drives ADDRESS`: opens a drive and prints what it is; a file that had to be created for that is removed
/// again. Returns the exit status; throws as `openDrive`.
int showDrive(Console& out, const std::string& address);

}  // namespace corvane::host
