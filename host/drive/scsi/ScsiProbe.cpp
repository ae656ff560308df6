// How `probeScsiUnit` of ScsiUnit.h finds out about a unit.

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>

#include "host/drive/DriveError.h"
#include "host/drive/scsi/ScsiCdb.h"
#include "host/drive/scsi/ScsiDialogue.h"
#include "host/drive/scsi/ScsiUnit.h"

namespace corvane::host {
namespace {

constexpr uint64_t mostOfCommandBlock = std::numeric_limits<uint32_t>::max();
constexpr uint8_t unmapFlag = 1U << 3;      ///< of byte 1 of a WRITE SAME(16)
constexpr uint8_t byteCheckFlag = 1U << 1;  ///< of byte 1 of a VERIFY(16)

class Probe {
 public:
  Probe(ScsiTransport& transport, const ScsiDriveSettings& settings)
      : transport_(transport), settings_(settings), dialogue_(transport) {}

  ScsiUnit run() {
    identify();
    dialogue_.waitUntilReady(std::chrono::seconds(settings_.readySeconds));
    measure();
    readPages();
    readModes();
    demandTransfers();
    choose();
    return unit_;
  }

 private:
  using Reply = std::optional<std::span<const uint8_t>>;

  [[noreturn]] void refuse(const std::string& fault) const {
    throw DriveError(transport_.description() + ": " + fault);
  }

  Reply ask(const Cdb& block, size_t bytes) {
    buffer_ = {};
    return dialogue_.read(block, std::span(buffer_).first(bytes));
  }
  Reply askPage(uint8_t page) { return ask(cdb::inquiryPage(page, pageBytes), pageBytes); }

  void identify() {
    constexpr uint8_t inquiryBytes = 96;
    const Reply reply = ask(cdb::inquiry(inquiryBytes), inquiryBytes);
    const std::optional<InquiryData> data = reply ? parseInquiry(*reply) : std::nullopt;
    if (!data) {
      refuse("it does not answer INQUIRY; see whether the address leads to a disk");
    }
    unit_.inquiry = *data;
    if (data->qualifier != 0) {
      refuse("no device is there (peripheral qualifier " + std::to_string(data->qualifier) +
             "); see which units the target has");
    }
    constexpr uint8_t disk = 0x00;
    if (data->deviceType != disk) {
      refuse("it is " + deviceTypeName(data->deviceType) + "; name a disk (direct access block device)");
    }
  }

  void measure() {
    constexpr uint32_t capacityBytes = 32;
    const Reply reply = ask(cdb::readCapacity16(capacityBytes), capacityBytes);
    const std::optional<CapacityData> data = reply ? parseCapacity(*reply) : std::nullopt;
    if (!data) {
      refuse("it does not answer READ CAPACITY(16); name a disk that knows 16-byte commands");
    }
    capacity_ = *data;
    const uint32_t block = data->blockBytes;
    if (block != 512 && block != 1024 && block != 2048 && block != 4096) {
      refuse("its blocks have " + std::to_string(block) + " bytes; format it with blocks of 512, 1024, 2048 or 4096");
    }
    if (data->lastLba == std::numeric_limits<uint64_t>::max()) {
      refuse("it says that its last LBA is FFFFFFFFFFFFFFFFh, which is no capacity; see its own log");
    }
    unit_.geometry.blocks = data->lastLba + 1;
    unit_.geometry.blockSize = block;
    unit_.geometry.physicalExponent = data->physicalExponent;
    unit_.protectionType = data->protectionType;
  }

  void readPages() {
    std::array<uint8_t, pageBytes> listed{};
    const Reply list = dialogue_.read(cdb::inquiryPage(0x00, pageBytes), listed);
    // A unit may come to grief over a page that it does not list.
    const auto read = [&](uint8_t page) { return list && listsPage(*list, page) ? askPage(page) : std::nullopt; };
    if (const Reply reply = read(0x80)) {
      unit_.serial = parseSerial(*reply);
    }
    if (const Reply reply = read(0x83)) {
      unit_.designator = parseDesignator(*reply);
    }
    if (const Reply reply = read(0xB0)) {
      limits_ = parseBlockLimits(*reply).value_or(BlockLimits{});
    }
    if (const Reply reply = read(0xB2)) {
      provisioning_ = parseProvisioning(*reply);
    }
  }

  std::optional<ModeData> readMode(uint8_t page) {
    constexpr uint8_t modeBytes = 192;  // below a length that some have trouble with
    constexpr uint32_t shortHeader = 4;
    constexpr uint32_t longHeader = 8;
    if (const Reply reply = ask(cdb::modeSense6(page, modeBytes), modeBytes)) {
      if (const std::optional<ModeData> data = parseMode(*reply, page, shortHeader)) {
        return data;
      }
    }
    const Reply reply = ask(cdb::modeSense10(page, modeBytes), modeBytes);
    return reply ? parseMode(*reply, page, longHeader) : std::nullopt;
  }

  void readModes() {
    const std::optional<ModeData> caching = readMode(cachingPage);
    const std::optional<ModeData> any = caching ? caching : readMode(controlPage);
    if (any && any->writeProtected) {
      refuse("it is write-protected; name one that can be written");
    }
    unit_.writeBackCache = !caching || caching->writeBackCache;
    unit_.forcesUnitAccess = any && any->forcesUnitAccess;
    if (settings_.protection) {
      demandProtection();
    }
  }

  void demandProtection() {
    constexpr uint8_t mostTypes = 3;
    constexpr uint8_t needsLongCommands = 2;
    const uint8_t type = capacity_.protectionType;
    const std::string remedy = "; leave pi=on out";
    if (type == 0) {
      refuse("it is formatted without protection information" + remedy + ", or format it with type 1 or 3");
    }
    if (type == needsLongCommands || type > mostTypes) {
      refuse("protection type " + std::to_string(type) +
             " is transferred by 32-byte commands only, which are not used" + remedy);
    }
    if (capacity_.protectionIntervalExponent != 0) {
      refuse("its protection information stands inside the blocks, not behind them" + remedy);
    }
    const std::optional<ModeData> control = readMode(controlPage);
    if (!control || !control->keepsApplicationTags) {
      refuse("it may change application tags by itself (ATO is 0), which a test would find wrong" + remedy);
    }
    unit_.geometry.protectionBytes = 8;
  }

  /// What REPORT SUPPORTED OPERATION CODES says; nothing when the unit does not answer it or does not know.
  std::optional<OperationSupport> reported(uint8_t operation) {
    constexpr uint32_t supportBytes = 20;
    const Reply reply = ask(cdb::reportSupportedOperation(operation, supportBytes), supportBytes);
    return reply ? parseOperationSupport(*reply) : std::nullopt;
  }

  /// By the report, else by a command that moves no block.
  ///
  /// @param flags that byte 1 of the command block must be able to carry
  bool takes(const Cdb& harmless, uint8_t flags = 0) {
    if (const std::optional<OperationSupport> known = reported(harmless[0])) {
      return known->supported && (known->flags == 0 || (known->flags & flags) == flags);
    }
    return dialogue_.send(harmless).status == scsi_status::good;
  }

  /// A WRITE SAME of no blocks would be one of all blocks, so the try is one of the block behind the last: only a unit
  /// that knows the command comes to look at the LBA.
  bool takesWriteSame(bool unmap) {
    if (const std::optional<OperationSupport> known = reported(scsi_operation::writeSame16)) {
      return known->supported && (!unmap || known->flags == 0 || (known->flags & unmapFlag) != 0);
    }
    std::array<uint8_t, 4096> zeros{};
    return senseOf(dialogue_.write(cdb::writeSame16(unit_.geometry.blocks, 1, unmap, {}),
                                   std::span(zeros).first(unit_.geometry.blockSize))) == sense::lbaOutOfRange;
  }

  void demandTransfers() {
    for (const Cdb& block : {cdb::read16(0, 0, {}), cdb::write16(0, 0, {})}) {
      if (!takes(block)) {
        refuse(block[0] == scsi_operation::read16 ? "it does not take READ(16)" : "it does not take WRITE(16)");
      }
    }
    const uint64_t carried = transport_.mostBytes() / unit_.geometry.sectorBytes();
    unit_.mostBlocks = std::min(carried, mostOfCommandBlock);
    if (limits_.mostTransfer != 0) {
      unit_.mostBlocks = std::min<uint64_t>(unit_.mostBlocks, limits_.mostTransfer);
    }
    if (unit_.mostBlocks == 0) {
      refuse("one request carries " + std::to_string(transport_.mostBytes()) + " bytes, less than a block");
    }
  }

  void choose() {
    unit_.flushes = takes(cdb::synchronizeCache16());
    chooseVerify();
    chooseWriteSame();
    chooseTrim();
    chooseAtomic();
  }

  void chooseVerify() {
    using Verify = ScsiDriveSettings::Verify;
    unit_.verifies = settings_.verify != Verify::byHost && takes(cdb::verify16(0, 0, {}), byteCheckFlag);
    if (settings_.verify == Verify::byUnit && !unit_.verifies) {
      refuse("it does not take VERIFY(16) with data; leave verify=device out");
    }
  }

  void chooseWriteSame() {
    // With protection information the unit counts the reference tag up from block to block instead of repeating it.
    if (settings_.protection || !takesWriteSame(false)) {
      return;
    }
    unit_.mostSameBlocks = mostOfCommandBlock;
    if (limits_.mostWriteSame != 0) {
      unit_.mostSameBlocks = std::min(unit_.mostSameBlocks, limits_.mostWriteSame);
    }
  }

  void chooseTrim() {
    using Trim = ScsiDriveSettings::Trim;
    const bool readsZeros = capacity_.readsZeros || (provisioning_ && provisioning_->readsZeros);
    constexpr uint64_t zeroBytes = 64 << 10;
    unit_.trim.mostZeros = unit_.mostSameBlocks != 0 ? unit_.mostSameBlocks
                                                     : std::min(unit_.mostBlocks, zeroBytes / unit_.geometry.blockSize);
    if (settings_.trim == Trim::never) {
      unit_.whyNoTrim = "trim=off";
    } else if (settings_.protection) {
      // Unmapped blocks have protection information of all ones.
      unit_.whyNoTrim = "pi=on";
    } else if (settings_.trim == Trim::unmap) {
      chooseUnmap(readsZeros);
    } else {
      chooseTrimByWriteSame(readsZeros);
    }
    if (unit_.trim.by == TrimMethod::By::nothing && settings_.trim != Trim::never &&
        settings_.trim != Trim::wherePossible) {
      refuse("it cannot be trimmed so: " + unit_.whyNoTrim + "; leave trim= out");
    }
  }

  void chooseUnmap(bool readsZeros) {
    if (!readsZeros) {
      unit_.whyNoTrim = "its unmapped blocks need not read as zeros";
    } else if (!takes(cdb::unmap(0))) {
      unit_.whyNoTrim = "it does not take UNMAP";
    } else {
      unit_.trim.granule = std::max<uint64_t>(limits_.unmapGranularity, 1);
      unit_.trim.alignment = limits_.unmapAlignment;
      unit_.trim.mostBlocks = limits_.mostUnmap == 0 ? mostOfCommandBlock : limits_.mostUnmap;
      unit_.trim.by = TrimMethod::By::unmap;
    }
  }

  void chooseTrimByWriteSame(bool readsZeros) {
    if (unit_.mostSameBlocks == 0) {
      unit_.whyNoTrim = "it does not take WRITE SAME(16)";
      return;
    }
    const bool offersUnmap = provisioning_ ? provisioning_->writeSameUnmaps : capacity_.provisioned;
    unit_.trim.unmapBit = offersUnmap && readsZeros && takesWriteSame(true);
    if (settings_.trim == ScsiDriveSettings::Trim::writeSame && !unit_.trim.unmapBit) {
      unit_.whyNoTrim = "it does not take WRITE SAME(16) with UNMAP, or unmapped blocks need not read as zeros";
      return;
    }
    unit_.trim.mostBlocks = unit_.mostSameBlocks;
    unit_.trim.by = TrimMethod::By::writeSame;
  }

  void chooseAtomic() {
    unit_.atomic = atomicWritingOf(limits_, unit_.mostBlocks);
    if (unit_.atomic.segments.limited() && !takes(cdb::writeAtomic16(0, 0, 0, {}))) {
      unit_.atomic = {};
      unit_.atomic.whyNot = "its block limits promise them, but it does not take WRITE ATOMIC(16)";
    }
  }

  static constexpr uint16_t pageBytes = 252;

  ScsiTransport& transport_;
  const ScsiDriveSettings& settings_;
  ScsiDialogue dialogue_;
  std::array<uint8_t, pageBytes> buffer_{};
  ScsiUnit unit_;
  CapacityData capacity_;
  BlockLimits limits_;
  std::optional<ProvisioningData> provisioning_;
};

}  // namespace

ScsiUnit probeScsiUnit(ScsiTransport& transport, const ScsiDriveSettings& settings) {
  return Probe(transport, settings).run();
}

}  // namespace corvane::host
