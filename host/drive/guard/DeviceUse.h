#pragma once

#include <string>
#include <vector>

#include "host/drive/guard/SystemView.h"

namespace corvane::host {

/// Somebody uses a block device.
struct DeviceUse {
  std::string text;     ///< one clause: "it is mounted at '/mnt'", "its partition sdb1 is active swap space"
  bool system = false;  ///< the running system stands on it
};

/// Everything that uses a block device, a partition of it, the disk that it is a partition of, or what is built on top
/// of these: mounts, active swap space, device mapper, RAID and bcache devices, loop devices, members of a mounted
/// Btrfs, other programs that have it open for writing, and whoever opened it exclusively.
///
/// The running system stands on a device when "/", "/usr", "/boot" or something in it is mounted from it or from
/// something on top of it, or when active swap space is. Nothing is written; the device is opened for reading and
/// closed again.
///
/// @param devicePath a block device, or a link to one; for anything else nothing is found
std::vector<DeviceUse> findUse(const std::string& devicePath, const SystemView& system = SystemView());

}  // namespace corvane::host
