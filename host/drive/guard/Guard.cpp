#include "host/drive/guard/Guard.h"

#include <optional>

#include "host/drive/DriveError.h"
#include "host/drive/guard/DeviceClaim.h"
#include "host/drive/guard/DeviceUse.h"
#include "host/drive/guard/DriveContent.h"

namespace corvane::host {
namespace {

std::string joined(const std::vector<std::string>& pieces, const char* between) {
  std::string text;
  for (const std::string& piece : pieces) {
    text += (text.empty() ? "" : between) + piece;
  }
  return text;
}

}  // namespace

std::vector<std::string> refuseDeviceInUse(const std::string& name, const std::string& devicePath,
                                           Overwriting overwriting, const SystemView& system) {
  std::vector<std::string> all;
  std::vector<std::string> ofSystem;
  for (DeviceUse& use : findUse(devicePath, system)) {
    if (use.system) {
      ofSystem.push_back(use.text);
    }
    all.push_back(std::move(use.text));
  }
  if (overwriting != Overwriting::nothing && !ofSystem.empty()) {
    throw DriveError("drive '" + name + "' carries the running system: " + joined(ofSystem, "; ") +
                     "; name another drive, this one is refused with --overwrite too");
  }
  if (overwriting == Overwriting::ofEmptyDrives && !all.empty()) {
    throw DriveError("drive '" + name + "' is in use: " + joined(all, "; ") +
                     "; free it, name another drive, or give --overwrite to test it all the same");
  }
  return all;
}

std::vector<std::string> refuseContent(Drive& drive, const std::string& name, Overwriting overwriting) {
  std::vector<std::string> contents = findContent(drive);
  if (overwriting == Overwriting::ofEmptyDrives && !contents.empty()) {
    throw DriveError("drive '" + name + "' holds " + joined(contents, ", ") +
                     "; name another drive, or give --overwrite to destroy what it holds");
  }
  return contents;
}

std::unique_ptr<Drive> openGuarded(const GuardedDevice& device, Overwriting overwriting, AtStake* stake,
                                   const std::function<std::unique_ptr<Drive>()>& open, const SystemView& system) {
  AtStake found;
  std::optional<DeviceClaim> claim;
  const std::string block = device.node.empty() ? "" : system.blockDeviceOf(device.node);
  if (!block.empty()) {
    found.uses = refuseDeviceInUse(device.name, block, overwriting, system);
    if (!device.openerClaims && opensExclusively(overwriting)) {
      claim.emplace(device.name, system.path(block));
    }
  }
  std::unique_ptr<Drive> drive = open();
  if (claim) {
    drive = withClaim(std::move(drive), std::move(*claim));
  }
  found.contents = refuseContent(*drive, device.name, overwriting);
  if (stake != nullptr) {
    *stake = std::move(found);
  }
  return drive;
}

}  // namespace corvane::host
