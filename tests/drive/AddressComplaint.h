#pragma once

#include <string>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"

namespace corvane::host {

/// What opening the address complains about; "accepted" when it does not.
inline std::string complaint(const std::string& address) {
  try {
    openDrive(address, 4);
  } catch (const DriveAddressError& error) {
    return error.what();
  }
  return "accepted";
}

}  // namespace corvane::host
