#pragma once

#include "host/ostra/DeviceTable.h"
#include "host/run/PluginLoader.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {

/// The built agent on a host that has attached a device of the test's to each of its drives, or none. One at a time.
class AgentWithDevice {
 public:
  explicit AgentWithDevice(VendorDevice* device) : plugin_(agentPath()), table_(plugin_.table()) {
    handle = device == nullptr ? -1 : attachDevice(*device);
    initDriveData = table_.initDriveData;
    table_.initDriveData = &attachAndInit;
  }
  ~AgentWithDevice() {
    if (handle >= 0) {
      detachDevice(handle);
    }
  }
  AgentWithDevice(const AgentWithDevice&) = delete;
  AgentWithDevice& operator=(const AgentWithDevice&) = delete;

  const vdl::AgentTable& table() const { return table_; }

 private:
  static int attachAndInit(vdl::DriveThread* drive) {
    drive->ostraDevice = handle;
    return initDriveData(drive);
  }

  static inline int handle = -1;
  static inline int (*initDriveData)(vdl::DriveThread*) = nullptr;

  AgentPlugin plugin_;
  vdl::AgentTable table_;
};

}  // namespace corvane::host::e2e
