#include "host/drive/block/BlockDrive.h"

#include "host/drive/DriveError.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/block/BlockDevice.h"
#include "host/drive/block/BlockErrors.h"
#include "host/drive/block/BlockTrim.h"
#include "host/drive/engine/EngineDrive.h"

namespace corvane::host {
namespace {

DriveGeometry geometryOf(const BlockDevice& device) {
  return {.blocks = device.blocks(),
          .blockSize = device.blockSize(),
          .protectionBytes = 0,
          .physicalExponent = device.physicalExponent(),
          .zoneBlocks = 0};
}

DriveCapabilities capabilitiesOf(const BlockDevice& device, const BlockTrim& trim) {
  DriveCapabilities can;
  can.atomicSegments = device.atomicUnits().segments(device.blockSize());
  can.atomicWrite = can.atomicSegments.limited();
  can.writeSame = true;
  can.trim = trim.offered;
  can.verify = true;
  can.syncCache = true;
  can.deviceReset = true;
  can.volatileCache = device.traits().volatileCache;
  return can;
}

/// What an EngineDrive has to know of a block device.
class BlockTarget final : public EngineTarget {
 public:
  BlockTarget(const std::string& path, TrimChoice trim, Overwriting overwriting)
      : device_(path, overwriting),
        trim_(settleTrim(trim, device_.traits())),
        geometry_(geometryOf(device_)),
        capabilities_(capabilitiesOf(device_, trim_)) {
    if (!trim_.refusal.empty()) {
      throw DriveError(name() + " cannot be trimmed as asked: " + trim_.refusal);
    }
  }

  int fd() const override { return device_.fd(); }
  std::string name() const override { return "block device '" + device_.path() + "'"; }
  std::string description(const std::string& engine) const override;
  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  TransferLimits limits() const override {
    return {.memoryAlignment = device_.memoryAlignment(), .splitsAtomicSegments = true};
  }
  EngineRequest::Operation trimOperation() const override { return trim_.operation; }
  void answerFailure(const FailedOperation& failed, DriveCompletion& out) const override {
    answerBlockFailure(failed, device_.blocksNow(), name(), out);
  }

 private:
  std::string atomicText() const;

  BlockDevice device_;
  BlockTrim trim_;
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
};

std::string BlockTarget::atomicText() const {
  if (!capabilities_.atomicWrite) {
    return std::string("no atomic writes (") +
           (device_.traits().knowsAtomicWrites ? "the device offers none"
                                               : "this kernel knows none, 6.11 and later do") +
           ")";
  }
  const AtomicSegments& segments = capabilities_.atomicSegments;
  return "atomic writes of " + std::to_string(segments.leastBlocks) + " to " + std::to_string(segments.mostBlocks) +
         " blocks";
}

std::string BlockTarget::description(const std::string& engine) const {
  std::string text = "block device " + device_.path();
  if (device_.traits().partition) {
    text += ", partition";
  }
  if (const std::string identity = device_.traits().identity(); !identity.empty()) {
    text += ", " + identity;
  }
  text += ", " + describeGeometry(geometry_);
  if (geometry_.physicalExponent != 0) {
    text += " (physical " + std::to_string(uint64_t{geometry_.blockSize} << geometry_.physicalExponent) + ")";
  }
  text += ", " + engine + ", O_DIRECT, " + (capabilities_.volatileCache ? "volatile cache" : "no volatile cache");
  text += ", " + trim_.text + ", " + atomicText();
  return device_.shared() ? text + ", shared with others" : text;
}

TrimChoice takeTrim(DriveAddress& address) {
  const std::string wanted = address.word("trim", {"auto", "punch", "zero", "discard", "off"});
  if (wanted == "auto") {
    return TrimChoice::wherePossible;
  }
  return wanted == "punch"     ? TrimChoice::punch
         : wanted == "zero"    ? TrimChoice::zero
         : wanted == "discard" ? TrimChoice::discard
                               : TrimChoice::off;
}

/// What an address says beside its target.
struct BlockDriveSettings {
  TrimChoice trim = TrimChoice::wherePossible;
  EngineChoice engine = EngineChoice::wherePossible;
};

BlockDriveSettings takeSettings(DriveAddress& address) {
  BlockDriveSettings settings;
  settings.trim = takeTrim(address);
  settings.engine = takeEngine(address);
  address.checkAllTaken();
  if (address.target().empty()) {
    address.refuse("it names no device; write '/dev/NAME' or 'block:PATH'");
  }
  return settings;
}

}  // namespace

std::unique_ptr<Drive> openBlockDrive(DriveAddress& address, uint32_t maxOutstanding, Overwriting overwriting) {
  const BlockDriveSettings settings = takeSettings(address);
  return makeEngineDrive(std::make_unique<BlockTarget>(address.target(), settings.trim, overwriting), maxOutstanding,
                         settings.engine);
}

void checkBlockAddress(DriveAddress& address) { takeSettings(address); }

std::string blockDriveHelp() {
  return "/dev/NAME[,key=value]... or block:PATH[,key=value]...\n"
         "  a block device or partition, past the page cache; its content is overwritten. PATH has no comma\n"
         "  trim=auto        punch where the device can, otherwise none; off: none\n"
         "                   punch: zeroing that deallocates where the device can; zero: writing zeros;\n"
         "                   discard: for devices whose discarded blocks read as zeros\n" +
         engineKeyHelp();
}

}  // namespace corvane::host
