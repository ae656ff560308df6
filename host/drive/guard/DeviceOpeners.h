#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/drive/guard/SystemView.h"

namespace corvane::host {

/// A process that has a device open.
struct DeviceOpener {
  std::string process;  ///< "dd (process 4711)"
  bool writes = false;  ///< opened for writing
  bool own = false;     ///< it is this one
};

/// The processes that have a block device open, as far as this one may see them.
///
/// @param numbers of the devices, as "major:minor"
std::vector<DeviceOpener> openersOf(const std::set<std::string>& numbers, const SystemView& system);

}  // namespace corvane::host
