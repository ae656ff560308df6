#pragma once

#include <cstdint>
#include <optional>

#include "host/ostra/DeviceTable.h"

namespace corvane::host {

/// A device interface that knows no vendor requests but remembers the failing LBA that an agent reports to it.
///
/// An agent tells some findings to the standard streams only; what it tells the device has the LBA of every one.
class MiscompareRecorder : public VendorDevice {
 public:
  MiscompareRecorder();
  ~MiscompareRecorder() override;
  MiscompareRecorder(const MiscompareRecorder&) = delete;
  MiscompareRecorder& operator=(const MiscompareRecorder&) = delete;

  /// For `vdl::DriveThread::ostraDevice`.
  int handle() const { return handle_; }

  /// The LBA that was reported first.
  std::optional<uint64_t> lba() const { return lba_; }

  int reportMiscompare(uint32_t status, uint64_t lba) override;

 private:
  int handle_;
  std::optional<uint64_t> lba_;
};

}  // namespace corvane::host
