#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/Overwriting.h"
#include "host/drive/guard/SystemView.h"

namespace corvane::host {

/// What a test on a drive would destroy, or whom it would disturb.
struct AtStake {
  std::vector<std::string> uses;      ///< clauses, as `DeviceUse` has them
  std::vector<std::string> contents;  ///< phrases, as `findContent` has them
};

/// Refuses a block device that is in use, with a DriveError that names every use and the remedy. With
/// `Overwriting::ofAnything` only one that the running system stands on is refused; with `nothing` none is.
///
/// @param name what the user calls the drive
/// @return the uses
std::vector<std::string> refuseDeviceInUse(const std::string& name, const std::string& devicePath,
                                           Overwriting overwriting, const SystemView& system = SystemView());

/// The same for what a drive holds, which gives way to `Overwriting::ofAnything`.
///
/// @param drive has no command outstanding
/// @return what it holds
std::vector<std::string> refuseContent(Drive& drive, const std::string& name, Overwriting overwriting);

/// The device of a drive that may hold something.
struct GuardedDevice {
  std::string name;          ///< what the user calls it, without a password
  std::string node;          ///< its device node, of any kind; empty for a drive of the network
  bool openerClaims = true;  ///< what opens the drive opens its block device exclusively where that is due
};

/// Opens a drive that may hold something: first it must not be in use, then it is opened, then it must hold nothing.
///
/// A block device that nobody else claims is claimed as long as the drive lives, with `Overwriting::ofEmptyDrives`: so
/// nobody mounts meanwhile what is tested past the kernel's block layer.
///
/// @param stake null, or gets what was found although it is not refused
///
/// Throws DriveError for a refusal, and what `open` throws.
std::unique_ptr<Drive> openGuarded(const GuardedDevice& device, Overwriting overwriting, AtStake* stake,
                                   const std::function<std::unique_ptr<Drive>()>& open,
                                   const SystemView& system = SystemView());

}  // namespace corvane::host
