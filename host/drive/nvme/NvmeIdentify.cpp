#include "host/drive/nvme/NvmeIdentify.h"

#include <algorithm>
#include <system_error>

#include "host/base/AlignedMemory.h"
#include "host/drive/DriveError.h"
#include "host/drive/nvme/NvmeStatus.h"

namespace corvane::host {
namespace {

constexpr uint64_t leastPageBytes = 4096;  // of every controller; its own, in CAP.MPSMIN, cannot be read from here
constexpr uint32_t unlimitedZones = 0xFFFFFFFF;
constexpr uint32_t reportBytes = 65536;
constexpr uint32_t zoneDescriptorBytes = 64;

/// A structure that the controller sent, read by the offsets of its figure.
class Structure {
 public:
  explicit Structure(uint32_t bytes) : bytes_(bytes) { std::fill_n(memory_.atLeast(bytes), bytes, uint8_t{0}); }

  uint8_t* data() const { return memory_.data(); }
  uint32_t size() const { return bytes_; }
  uint8_t byte(uint32_t at) const { return memory_.data()[at]; }
  uint16_t word(uint32_t at) const { return static_cast<uint16_t>(number(at, 2)); }
  uint32_t dword(uint32_t at) const { return static_cast<uint32_t>(number(at, 4)); }
  uint64_t qword(uint32_t at) const { return number(at, 8); }
  bool bit(uint32_t at, uint32_t bit) const { return (uint32_t{byte(at)} >> bit & 1U) != 0; }

  /// ASCII that blanks fill up.
  std::string text(uint32_t at, uint32_t length) const {
    std::string text(reinterpret_cast<const char*>(memory_.data()) + at, length);
    const size_t end = text.find_last_not_of(std::string(" \0", 2));
    text.resize(end == std::string::npos ? 0 : end + 1);
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
  }

 private:
  uint64_t number(uint32_t at, uint32_t bytes) const {
    uint64_t value = 0;
    for (uint32_t i = bytes; i-- > 0;) {
      value = value << 8 | byte(at + i);
    }
    return value;
  }

  AlignedMemory memory_;
  uint32_t bytes_;
};

class Identifier {
 public:
  Identifier(NvmePassthrough& passthrough, const std::string& device) : passthrough_(passthrough), device_(device) {}

  NvmeIdentity all() {
    identity_.nsid = passthrough_.nsid();
    readController();
    identity_.commandSet = commandSet();
    readNamespace();
    if (identity_.commandSet == nvme_command_set::zoned) {
      readZones();
    }
    return identity_;
  }

 private:
  [[noreturn]] void fail(const std::string& what, int32_t result) const {
    const bool isKernels = result < 0;
    const std::string cause =
        isKernels ? std::generic_category().message(-result) : nvmeStatusText(static_cast<uint16_t>(result));
    throw DriveError("NVMe device '" + device_ + "' does not answer to " + what + ": " + cause +
                     (result == -EACCES || result == -EPERM ? "; run as root" : "; see what the kernel says (dmesg)"));
  }

  int32_t ask(Structure& answer, NvmeStructure structure, uint32_t nsid, uint8_t commandSet) {
    NvmeCommand command = nvmeIdentify(structure, nsid, commandSet);
    command.data = answer.data();
    command.dataBytes = answer.size();
    return passthrough_.admin(command, nullptr);
  }

  Structure demand(NvmeStructure structure, uint32_t nsid, uint8_t commandSet = nvme_command_set::nvm) {
    Structure answer(nvmeIdentifyBytes);
    if (const int32_t result = ask(answer, structure, nsid, commandSet); result != 0) {
      fail("Identify", result);
    }
    return answer;
  }

  void readController() {
    const Structure said = demand(NvmeStructure::controller, 0);
    NvmeIdentity::Controller& controller = identity_.controller;
    controller.serial = said.text(4, 20);
    controller.model = said.text(24, 40);
    controller.firmware = said.text(64, 8);
    controller.mostTransferBytes = powerOfPages(said.byte(77));
    controller.compares = said.bit(520, 0);
    controller.deallocates = said.bit(520, 2);
    controller.writesZeroes = said.bit(520, 3);
    controller.volatileCache = said.bit(525, 0) && isCacheOn();
    controller.atomicBlocksPowerFail = said.word(528) + 1U;
    Structure ofSet(nvmeIdentifyBytes);
    if (ask(ofSet, NvmeStructure::controllerOfSet, 0, nvme_command_set::nvm) == 0) {
      controller.mostZeroBytes = powerOfPages(ofSet.byte(1));
    }
  }

  static uint64_t powerOfPages(uint8_t exponent) {
    constexpr uint8_t most = 40;  // far above what one command can name
    return exponent == 0 || exponent > most ? 0 : leastPageBytes << exponent;
  }

  /// A controller that does not say counts as one whose cache is on.
  bool isCacheOn() {
    uint32_t feature = 1;
    return passthrough_.admin(nvmeGetWriteCache(), &feature) != 0 || (feature & 1U) != 0;
  }

  /// Controllers from before command sets have no such descriptor, and only the NVM Command Set.
  uint8_t commandSet() {
    constexpr uint8_t commandSetIdentifier = 4;
    constexpr uint32_t headerBytes = 4;
    Structure list(nvmeIdentifyBytes);
    if (ask(list, NvmeStructure::descriptors, identity_.nsid, nvme_command_set::nvm) != 0) {
      return nvme_command_set::nvm;
    }
    for (uint32_t at = 0; at + headerBytes < list.size() && list.byte(at + 1) != 0;
         at += headerBytes + list.byte(at + 1)) {
      if (list.byte(at) == commandSetIdentifier) {
        return list.byte(at + headerBytes);
      }
    }
    return nvme_command_set::nvm;
  }

  void readNamespace() {
    const Structure said = demand(NvmeStructure::namespaceOfNvm, identity_.nsid);
    NvmeIdentity::Namespace& space = identity_.space;
    space.blocks = said.qword(0);
    if (space.blocks == 0) {
      throw DriveError("NVMe device '" + device_ + "': namespace " + std::to_string(identity_.nsid) +
                       " is not there any more, or not attached; attach it, or name another one");
    }
    space.blocksInUse = said.qword(16);
    format_ = (said.byte(26) & 0xFU) | (said.byte(26) >> 1 & 0x30U);
    const uint32_t format = said.dword(128 + 4 * format_);
    const uint32_t exponent = format >> 16 & 0xFF;
    space.blockSize = exponent < 32 ? 1U << exponent : 0;
    space.metadataBytes = format & 0xFFFF;
    space.metadataExtended = said.bit(26, 4);
    space.protectionType = said.byte(29) & 0x7;
    space.deallocatedReadsZero = (said.byte(33) & 0x7) == 1;
    space.zeroesMayDeallocate = said.bit(33, 3);
    if (said.bit(24, 1)) {
      // 0 of the boundary says that there is none, and so does not count from one like the others.
      space.atomicBlocksPowerFail = said.word(36) + 1U;
      space.atomicBoundaryPowerFail = said.word(44) == 0 ? 0 : said.word(44) + 1U;
      space.atomicFirstBoundary = said.word(42);
    }
    space.preferredWriteBlocks = said.bit(24, 4) ? said.word(64) + 1U : 1;
  }

  void readZones() {
    const Structure said = demand(NvmeStructure::namespaceOfSet, identity_.nsid, nvme_command_set::zoned);
    NvmeIdentity::Zones& zones = identity_.zones;
    zones.readsAcross = said.bit(2, 0);
    zones.mostActive = said.dword(4) == unlimitedZones ? 0 : said.dword(4) + uint64_t{1};
    zones.mostOpen = said.dword(8) == unlimitedZones ? 0 : said.dword(8) + uint64_t{1};
    zones.zoneBlocks = said.qword(2816 + 16 * format_);
    if (zones.zoneBlocks == 0) {
      throw DriveError("NVMe device '" + device_ + "' has zones of no size; see what the kernel says (dmesg)");
    }
    zones.leastCapacity = zones.zoneBlocks;
    const uint64_t whole = identity_.space.blocks / zones.zoneBlocks * zones.zoneBlocks;
    for (uint64_t lba = 0; lba < whole;) {
      lba += readCapacities(lba, whole) * zones.zoneBlocks;
    }
  }

  /// Of the zones from `lba` on; how many they were.
  uint64_t readCapacities(uint64_t lba, uint64_t end) {
    Structure report(reportBytes);
    NvmeCommand command = nvmeZoneReport(identity_.nsid, lba, reportBytes);
    command.data = report.data();
    command.dataBytes = reportBytes;
    if (const int32_t result = passthrough_.runAlone(command); result != 0) {
      fail("Zone Management Receive", result);
    }
    NvmeIdentity::Zones& zones = identity_.zones;
    const uint64_t held = reportBytes / zoneDescriptorBytes - 1;
    const uint64_t count = std::min((end - lba) / zones.zoneBlocks, held);
    for (uint64_t i = 0; i < count; ++i) {
      const auto at = static_cast<uint32_t>((i + 1) * zoneDescriptorBytes);
      zones.leastCapacity = std::min(zones.leastCapacity, report.qword(at + 8));
    }
    return count;
  }

  NvmePassthrough& passthrough_;
  std::string device_;
  NvmeIdentity identity_;
  uint32_t format_ = 0;  ///< index of the LBA format in use
};

}  // namespace

NvmeIdentity identifyNvme(NvmePassthrough& passthrough, const std::string& device) {
  return Identifier(passthrough, device).all();
}

}  // namespace corvane::host
