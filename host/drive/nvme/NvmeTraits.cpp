#include "host/drive/nvme/NvmeTraits.h"

#include <algorithm>
#include <bit>

#include "host/drive/DriveError.h"

namespace corvane::host {
namespace {

constexpr uint32_t leastBlockSize = 512;
constexpr uint32_t mostBlockSize = 4096;
constexpr uint32_t protectionTuple = 8;
constexpr uint32_t mostPhysicalExponent = 15;
constexpr uint64_t dwordAlignment = 4;  // other memory the kernel would copy

/// Zones that a test keeps active: four are written in turn, and each may be followed by another one while its own last
/// writes are still on their way.
constexpr uint64_t zonesInWork = 8;

class Judge {
 public:
  Judge(const NvmeIdentity& identity, const NvmeOptions& options, const std::string& device)
      : identity_(identity), options_(options), space_(identity.space), device_(device) {}

  NvmeTraits decide(uint64_t kernelBytes, bool reset) {
    judgeFormat();
    judgeZones();
    decideProtection();
    decideGeometry();
    decideTransfers(kernelBytes);
    decideVerify();
    decideTrim();
    decideAtomic();
    DriveCapabilities& offers = traits_.capabilities;
    offers.writeSame = true;
    offers.verify = true;
    offers.syncCache = true;
    offers.deviceReset = reset;
    offers.volatileCache = identity_.controller.volatileCache;
    return traits_;
  }

 private:
  [[noreturn]] void fail(const std::string& fault) const { throw DriveError("NVMe device '" + device_ + "' " + fault); }

  void say(const std::string& text) { traits_.compromises += (traits_.compromises.empty() ? "" : ", ") + text; }

  void judgeFormat() const {
    if (identity_.commandSet != nvme_command_set::nvm && identity_.commandSet != nvme_command_set::zoned) {
      fail("speaks command set " + std::to_string(identity_.commandSet) +
           "; only namespaces of the NVM and the Zoned Namespace Command Set can be tested");
    }
    if (space_.blockSize < leastBlockSize || space_.blockSize > mostBlockSize) {
      fail("has logical blocks of " + std::to_string(space_.blockSize) + " bytes; format it with 512 to 4096 bytes");
    }
    if (space_.metadataBytes != 0 && space_.metadataBytes != protectionTuple) {
      fail("is formatted with " + std::to_string(space_.metadataBytes) +
           " bytes of metadata a block; format it with none or 8");
    }
  }

  void judgeZones() const {
    const NvmeIdentity::Zones& zones = identity_.zones;
    if (zones.zoneBlocks == 0) {
      return;
    }
    if (zones.leastCapacity < zones.zoneBlocks) {
      fail("has zones of " + std::to_string(zones.zoneBlocks) + " blocks of which only " +
           std::to_string(zones.leastCapacity) +
           " can be written; a test writes zones to their ends, so that such a namespace cannot be tested");
    }
    if (zones.mostActive != 0 && zones.mostActive < zonesInWork) {
      fail("lets only " + std::to_string(zones.mostActive) + " zones be active at once; a test needs " +
           std::to_string(zonesInWork));
    }
  }

  void decideProtection() {
    if (options_.protection) {
      traits_.geometry.protectionBytes = space_.metadataBytes;
      traits_.separateMetadata = space_.metadataBytes != 0 && !space_.metadataExtended;
      return;
    }
    if (space_.protectionType == 0 || space_.metadataBytes != protectionTuple) {
      fail("has no protection information that its controller could handle by itself; leave pi=off out");
    }
    constexpr uint8_t typeWithoutReference = 3;
    traits_.referenceIsLba = space_.protectionType != typeWithoutReference;
    traits_.protection = nvme_protection::action;
    say("protection information type " + std::to_string(space_.protectionType) + " by the controller");
  }

  void decideGeometry() {
    DriveGeometry& geometry = traits_.geometry;
    geometry.blocks = space_.blocks;
    geometry.blockSize = space_.blockSize;
    geometry.zoneBlocks = identity_.zones.zoneBlocks;
    // A granularity that is no power of two, or above what the agent can be told, is left out.
    const auto exponent = static_cast<uint32_t>(std::countr_zero(space_.preferredWriteBlocks));
    const bool fits = std::has_single_bit(space_.preferredWriteBlocks) && exponent <= mostPhysicalExponent;
    geometry.physicalExponent = fits ? exponent : 0;
    const bool zoned = geometry.zoneBlocks != 0;
    traits_.capabilities.hostManaged = zoned;
    traits_.capabilities.zoneReset = zoned;
    traits_.readsStayInZones = zoned && !identity_.zones.readsAcross;
  }

  void decideTransfers(uint64_t kernelBytes) {
    const uint64_t drives = identity_.controller.mostTransferBytes;
    const uint64_t bytes = drives == 0 ? kernelBytes : std::min(drives, kernelBytes);
    // Extended metadata count as data for the kernel, and may for the drive.
    const uint64_t unit = space_.blockSize + (space_.metadataExtended ? space_.metadataBytes : 0);
    traits_.transfers.mostBlocks = std::clamp<uint64_t>(bytes / unit, 1, nvmeMostBlocks);
    traits_.transfers.memoryAlignment = dwordAlignment;
    traits_.transfers.splitsAtomicSegments = true;
  }

  void decideVerify() {
    // A Compare leaves protection information out, so it could not judge the bytes that we send.
    const bool possible = identity_.controller.compares && space_.protectionType == 0;
    if (options_.verify == NvmeOptions::Verify::compare && !possible) {
      fail(space_.protectionType == 0
               ? "has no Compare command; leave verify=compare out"
               : "has protection information, which Compare leaves out; leave verify=compare out");
    }
    traits_.transfers.comparesData = possible && options_.verify != NvmeOptions::Verify::read;
    say(traits_.transfers.comparesData ? "verify by Compare" : "verify by read");
  }

  void decideTrim() {
    using Trim = NvmeOptions::Trim;
    const NvmeIdentity::Controller& controller = identity_.controller;
    const bool zoned = traits_.geometry.zoneBlocks != 0;
    if (zoned && (options_.trim == Trim::writeZeroes || options_.trim == Trim::deallocate)) {
      fail("has zones, which are emptied by resets alone; leave trim= out");
    }
    switch (options_.trim) {
      case Trim::off:
        break;
      case Trim::deallocate:
        judgeDeallocation();
        traits_.trim = Trim::deallocate;
        break;
      case Trim::writeZeroes:
        if (!controller.writesZeroes) {
          fail("has no Write Zeroes command; leave trim=zeroes out");
        }
        traits_.trim = Trim::writeZeroes;
        break;
      case Trim::wherePossible:
        traits_.trim = controller.writesZeroes && !zoned && !mayLeaveProtection() ? Trim::writeZeroes : Trim::off;
        break;
    }
    traits_.zeroesDeallocate = space_.zeroesMayDeallocate && space_.deallocatedReadsZero;
    const uint64_t zeroBytes = controller.mostZeroBytes;
    traits_.mostZeroBlocks =
        zeroBytes == 0 ? nvmeMostBlocks : std::clamp<uint64_t>(zeroBytes / space_.blockSize, 1, nvmeMostBlocks);
    traits_.capabilities.trim = traits_.trim != Trim::off;
    sayTrim();
  }

  /// Write Zeroes is to clear protection information that it is not told to generate, but controllers differ in that.
  bool mayLeaveProtection() const { return space_.protectionType != 0 && traits_.geometry.protectionBytes != 0; }

  void judgeDeallocation() const {
    if (!identity_.controller.deallocates) {
      fail("has no Dataset Management command; leave trim=deallocate out");
    }
    if (!space_.deallocatedReadsZero) {
      fail("does not promise that deallocated blocks read as zeros; leave trim=deallocate out");
    }
    if (mayLeaveProtection()) {
      fail("returns protection information that is not zero for deallocated blocks; leave trim=deallocate out");
    }
  }

  void sayTrim() {
    switch (traits_.trim) {
      case NvmeOptions::Trim::writeZeroes:
        say(traits_.zeroesDeallocate ? "trim by deallocating Write Zeroes" : "trim by Write Zeroes");
        break;
      case NvmeOptions::Trim::deallocate:
        say("trim by Dataset Management");
        break;
      default:
        say("no trim");
    }
  }

  void decideAtomic() {
    // The namespace's own values win; what is written at once also has to fit into one command.
    const uint32_t said =
        space_.atomicBlocksPowerFail != 0 ? space_.atomicBlocksPowerFail : identity_.controller.atomicBlocksPowerFail;
    uint64_t most = std::bit_floor(std::min<uint64_t>(said, traits_.transfers.mostBlocks));
    // Segments begin at multiples of their length, so one that divides both crosses no boundary.
    for (const uint32_t distance : {space_.atomicBoundaryPowerFail, boundaryOffset()}) {
      if (distance != 0) {
        most = std::min<uint64_t>(most, uint64_t{1} << std::countr_zero(distance));
      }
    }
    traits_.capabilities.atomicWrite = true;
    traits_.capabilities.atomicSegments = {.leastBlocks = 1, .mostBlocks = static_cast<uint32_t>(most)};
    say("atomic writes of up to " + std::to_string(most) + (most == 1 ? " block" : " blocks"));
  }

  uint32_t boundaryOffset() const {
    return space_.atomicBoundaryPowerFail == 0 ? 0 : space_.atomicFirstBoundary % space_.atomicBoundaryPowerFail;
  }

  const NvmeIdentity& identity_;
  const NvmeOptions& options_;
  const NvmeIdentity::Namespace& space_;
  std::string device_;
  NvmeTraits traits_;
};

}  // namespace

NvmeTraits nvmeTraits(const NvmeIdentity& identity, const NvmeOptions& options, uint64_t kernelBytes, bool reset,
                      const std::string& device) {
  return Judge(identity, options, device).decide(kernelBytes, reset);
}

}  // namespace corvane::host
