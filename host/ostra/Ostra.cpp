#include "ostra/Ostra.h"

#include <cstdarg>
#include <mutex>
#include <vector>

#include "host/ostra/DeviceTable.h"

namespace corvane::host {

namespace {

constexpr uint32_t setShowstop = 178;
constexpr uint32_t getShowstop = 179;
constexpr uint32_t miscompareLba = 218;
constexpr uint32_t deviceParameter = 4241;
constexpr uint32_t requestHeaderBytes = 24;

/// The attached devices by handle; a detached one leaves its handle unused.
class Devices {
 public:
  static Devices& instance() {
    static Devices devices;
    return devices;
  }

  int attach(VendorDevice& device) {
    std::lock_guard lock(mutex_);
    devices_.push_back(&device);
    return static_cast<int>(devices_.size()) - 1;
  }

  void detach(int handle) {
    std::lock_guard lock(mutex_);
    if (handle >= 0 && static_cast<size_t>(handle) < devices_.size()) {
      devices_[static_cast<size_t>(handle)] = nullptr;
    }
  }

  VendorDevice* find(int handle) {
    std::lock_guard lock(mutex_);
    return handle >= 0 && static_cast<size_t>(handle) < devices_.size() ? devices_[static_cast<size_t>(handle)]
                                                                        : nullptr;
  }

 private:
  std::mutex mutex_;
  std::vector<VendorDevice*> devices_;
};

thread_local uint32_t currentDeviceIndex = 0;

uint32_t littleEndian32(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

int dispatch(VendorDevice& device, uint32_t request, uint32_t count, va_list arguments) {
  const uint32_t expected = request == miscompareLba ? 2 : 1;
  const bool known =
      request == setShowstop || request == getShowstop || request == miscompareLba || request == deviceParameter;
  if (!known) {
    return VendorDevice::unsupported;
  }
  if (count != expected) {
    return VendorDevice::badArgument;
  }
  auto* word = va_arg(arguments, uint32_t*);
  if (word == nullptr) {
    return VendorDevice::badArgument;
  }
  if (request == setShowstop) {
    return device.writeShowstopSetting(*word);
  }
  if (request == getShowstop) {
    return device.readShowstopSetting(*word);
  }
  if (request == deviceParameter) {
    return device.readDeviceParameter(*word);
  }
  const auto* lba = va_arg(arguments, uint64_t*);
  return lba == nullptr ? VendorDevice::badArgument : device.reportMiscompare(*word, *lba);
}

}  // namespace

int VendorDevice::readShowstopSetting(uint32_t&) { return unsupported; }
int VendorDevice::writeShowstopSetting(uint32_t) { return unsupported; }
int VendorDevice::reportMiscompare(uint32_t, uint64_t) { return unsupported; }
int VendorDevice::readDeviceParameter(uint32_t&) { return unsupported; }
int VendorDevice::sendRequest(const uint8_t*, uint32_t) { return unsupported; }

int attachDevice(VendorDevice& device) { return Devices::instance().attach(device); }
void detachDevice(int handle) { Devices::instance().detach(handle); }
void setCurrentDeviceIndex(uint32_t index) { currentDeviceIndex = index; }

}  // namespace corvane::host

namespace Ostra {

using corvane::host::VendorDevice;

uint32_t getCurrentDeviceIndex() { return corvane::host::currentDeviceIndex; }

int ioctl(int device, uint32_t request, uint32_t count, ...) {
  VendorDevice* target = corvane::host::Devices::instance().find(device);
  if (target == nullptr) {
    return VendorDevice::noSuchDevice;
  }
  va_list arguments;
  va_start(arguments, count);
  const int result = corvane::host::dispatch(*target, request, count, arguments);
  va_end(arguments);
  return result;
}

int send(int device, uint8_t* commandBlock) {
  VendorDevice* target = corvane::host::Devices::instance().find(device);
  if (target == nullptr) {
    return VendorDevice::noSuchDevice;
  }
  if (commandBlock == nullptr) {
    return VendorDevice::badArgument;
  }
  const uint32_t bytes = corvane::host::littleEndian32(commandBlock);
  return bytes < corvane::host::requestHeaderBytes ? VendorDevice::badArgument
                                                   : target->sendRequest(commandBlock, bytes);
}

}  // namespace Ostra
