#pragma once

#include <cstdint>

namespace corvane::host {

/// What a drive offers beside ordinary commands; the operations behind `Ostra::ioctl` and `Ostra::send`.
///
/// Each operation returns 0 or a device-interface error number; the defaults answer `unsupported`, as a drive does
/// that does not know the request.
class VendorDevice {
 public:
  static constexpr int inputOutputError = 5;
  static constexpr int noSuchDevice = 19;
  static constexpr int unsupported = 95;
  static constexpr int badArgument = 22;

  virtual ~VendorDevice() = default;
  virtual int readShowstopSetting(uint32_t& value);
  virtual int writeShowstopSetting(uint32_t value);
  virtual int reportMiscompare(uint32_t status, uint64_t lba);
  virtual int readDeviceParameter(uint32_t& value);
  /// @param block the whole request block, `bytes` long as its own first word says
  virtual int sendRequest(const uint8_t* block, uint32_t bytes);
};

/// Attaches a device and returns its handle (0, 1, …), which stays valid until `detachDevice`.
///
/// The device must outlive its attachment. Any thread may attach and detach.
int attachDevice(VendorDevice& device);
void detachDevice(int handle);

/// Names the device index of the calling drive thread (`Ostra::getCurrentDeviceIndex`).
void setCurrentDeviceIndex(uint32_t index);

}  // namespace corvane::host
