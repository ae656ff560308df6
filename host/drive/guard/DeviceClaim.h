#pragma once

#include <memory>
#include <string>

#include "host/drive/Drive.h"

namespace corvane::host {

/// A block device that nobody else can mount, use as swap space or build something on while the object lives, nor a
/// partition of it. It is opened for reading (O_EXCL), and nothing is read.
class DeviceClaim {
 public:
  /// Throws DriveError when somebody else has claimed the device, or when it cannot be opened.
  ///
  /// @param name what the user calls the drive
  DeviceClaim(const std::string& name, const std::string& devicePath);
  ~DeviceClaim();
  DeviceClaim(DeviceClaim&& other) noexcept;
  DeviceClaim(const DeviceClaim&) = delete;
  DeviceClaim& operator=(const DeviceClaim&) = delete;

 private:
  int file_;
};

/// The same drive, with a claim that ends after it.
std::unique_ptr<Drive> withClaim(std::unique_ptr<Drive> drive, DeviceClaim claim);

}  // namespace corvane::host
