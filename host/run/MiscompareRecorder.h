#pragma once

#include <cstdint>
#include <optional>

#include "host/drive/Drive.h"
#include "host/ostra/DeviceTable.h"

namespace corvane::host {

/// A drive's device interface: it passes vendor requests on to the drive, and remembers the failing LBA that an agent
/// reports to it.
///
/// An agent tells some findings to the standard streams only; what it tells the device has the LBA of every one.
///
/// The settings behind `readShowstopSetting` and `readDeviceParameter` live in a vendor's driver, not in a drive, so
/// they stay unsupported.
class MiscompareRecorder : public VendorDevice {
 public:
  /// @param drive outlives the object, or is forgotten before it goes
  explicit MiscompareRecorder(Drive& drive);
  /// From now on there is no drive to pass anything on to.
  void forgetDrive() { drive_ = nullptr; }
  ~MiscompareRecorder() override;
  MiscompareRecorder(const MiscompareRecorder&) = delete;
  MiscompareRecorder& operator=(const MiscompareRecorder&) = delete;

  /// For `vdl::DriveThread::ostraDevice`.
  int handle() const { return handle_; }

  /// The LBA that was reported first.
  std::optional<uint64_t> lba() const { return lba_; }

  int reportMiscompare(uint32_t status, uint64_t lba) override;
  /// What the drive answers; `inputOutputError` when it could not be asked, because an agent calls this in the middle
  /// of a step, where nothing may be thrown.
  int sendRequest(const uint8_t* block, uint32_t bytes) override;

 private:
  Drive* drive_;
  int handle_;
  std::optional<uint64_t> lba_;
};

}  // namespace corvane::host
