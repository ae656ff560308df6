#include "host/drive/nvme/NvmeDrive.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "host/drive/CommandCheck.h"
#include "host/drive/DriveError.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/nvme/NvmeStatus.h"
#include "host/ostra/DeviceTable.h"

namespace corvane::host {
namespace {

bool isWrite(CommandKind kind) {
  return kind == CommandKind::write || kind == CommandKind::writeAtomic || kind == CommandKind::writeSame;
}

}  // namespace

NvmeDrive::NvmeDrive(std::unique_ptr<NvmePassthrough> passthrough, const NvmeOptions& options,
                     const std::string& device, uint32_t depth)
    : device_(device),
      identity_(identifyNvme(*passthrough, device)),
      traits_(nvmeTraits(identity_, options, passthrough->mostBytes(), passthrough->whyNoReset().empty(), device)),
      vendorAdmin_(options.vendorAdmin),
      slots_(depth),
      passthrough_(std::move(passthrough)) {
  freeSlots_.reserve(depth);
  for (uint32_t i = depth; i-- > 0;) {
    freeSlots_.push_back(i);
  }
  zoneWrites_.reserve(depth);
  ready_.reserve(depth);
}

NvmeDrive::~NvmeDrive() {
  try {
    drain();
  } catch (const std::exception&) {
    // Nobody is left who could be told; the passthrough's own end still waits for the kernel.
    atDrive_ = 0;
  }
}

std::string NvmeDrive::description() const {
  const NvmeIdentity::Controller& controller = identity_.controller;
  std::string text = "NVMe " + device_ + ", " + controller.model + ", serial " + controller.serial + ", firmware " +
                     controller.firmware + ", " + describeGeometry(traits_.geometry);
  if (traits_.geometry.zoneBlocks != 0) {
    text += ", zones of " + std::to_string(traits_.geometry.zoneBlocks) + " blocks";
  }
  text += traits_.capabilities.volatileCache ? ", volatile write cache, " : ", no volatile cache, ";
  text += traits_.compromises + ", " + passthrough_->name();
  if (!passthrough_->whyNoReset().empty()) {
    text += ", no reset (" + passthrough_->whyNoReset() + ")";
  }
  return text;
}

bool NvmeDrive::writesInZone(const DriveCommand& command) const {
  return traits_.geometry.zoneBlocks != 0 && isWrite(command.kind);
}

bool NvmeDrive::isWholeZones(const DriveCommand& command) const {
  const uint64_t zone = traits_.geometry.zoneBlocks;
  const uint64_t end = command.endLba();
  return command.lbaStep == 1 && command.lba % zone == 0 && (end % zone == 0 || end == traits_.geometry.blocks);
}

TransferLimits NvmeDrive::limitsOf(CommandKind kind) const {
  TransferLimits limits = traits_.transfers;
  if (kind == CommandKind::trim) {
    // A range of Dataset Management may have any length.
    limits.mostBlocks = traits_.trim == NvmeOptions::Trim::deallocate ? 0 : traits_.mostZeroBlocks;
  } else if (kind == CommandKind::zoneReset) {
    limits.mostBlocks = traits_.geometry.zoneBlocks;
  }
  return limits;
}

void NvmeDrive::submit(const DriveCommand& command) {
  if (freeSlots_.empty()) {
    throw std::logic_error("more commands than the drive takes at once");
  }
  std::optional<Sense> refusal = refuse(command, traits_.geometry, traits_.capabilities);
  if (!refusal && command.kind == CommandKind::zoneReset && !isWholeZones(command)) {
    refusal = sense::invalidField;
  }
  if (refusal) {
    DriveCompletion completion;
    setSense(completion, *refusal);
    answerAtOnce(command, completion);
    return;
  }
  if (command.blocks == 0 && command.kind != CommandKind::syncCache) {
    answerAtOnce(command, {});
    return;
  }
  const uint32_t index = freeSlots_.back();
  Slot& slot = slots_[index];
  slot.plan.make(command, traits_.geometry, limitsOf(command.kind));
  slot.run = 0;
  slot.done = 0;
  slot.locating = false;
  begin(index);
  // Only now, so that a command that could not be started has taken nothing.
  freeSlots_.pop_back();
}

void NvmeDrive::answerAtOnce(const DriveCommand& command, DriveCompletion completion) {
  completion.tag = command.tag;
  completion.id = command.id;
  ready_.push_back(completion);
}

uint64_t NvmeDrive::zoneOf(uint32_t slot) const {
  return slots_[slot].plan.command().lba / traits_.geometry.zoneBlocks;
}

void NvmeDrive::begin(uint32_t index) {
  const bool inZone = writesInZone(slots_[index].plan.command());
  const bool waits = inZone && std::any_of(zoneWrites_.begin(), zoneWrites_.end(),
                                           [&](uint32_t other) { return zoneOf(other) == zoneOf(index); });
  if (!waits) {
    sendPiece(index);
  }
  if (inZone) {
    zoneWrites_.push_back(index);
  }
}

void NvmeDrive::leaveZone(uint32_t index) {
  const auto own = std::find(zoneWrites_.begin(), zoneWrites_.end(), index);
  if (own == zoneWrites_.end()) {
    return;
  }
  zoneWrites_.erase(own);
  const auto next = std::find_if(zoneWrites_.begin(), zoneWrites_.end(),
                                 [&](uint32_t other) { return zoneOf(other) == zoneOf(index); });
  if (next != zoneWrites_.end()) {
    sendPiece(*next);
  }
}

void NvmeDrive::sendPiece(uint32_t index) {
  Slot& slot = slots_[index];
  const TransferPlan::Run run = slot.plan.run(slot.run);
  uint64_t blocks = run.blocks - slot.done;
  // A Compare counts as a read for that.
  const CommandKind kind = slot.plan.command().kind;
  if (traits_.readsStayInZones && (kind == CommandKind::read || kind == CommandKind::verify)) {
    const uint64_t zone = traits_.geometry.zoneBlocks;
    blocks = std::min(blocks, zone - (run.lba + slot.done) % zone);
  }
  slot.piece = static_cast<uint32_t>(blocks);
  passthrough_->submit({.slot = index, .command = commandOf(slot, run)});
  ++atDrive_;
}

NvmeBlocks NvmeDrive::blocksOf(const Slot& slot, const TransferPlan::Run& run) const {
  NvmeBlocks blocks{
      .nsid = identity_.nsid, .lba = run.lba + slot.done, .count = slot.piece, .protection = traits_.protection};
  blocks.initialReference = traits_.referenceIsLba ? static_cast<uint32_t>(blocks.lba) : 0;
  return blocks;
}

NvmeCommand NvmeDrive::commandOf(Slot& slot, const TransferPlan::Run& run) {
  const uint64_t lba = run.lba + slot.done;
  NvmeCommand command;
  switch (slot.plan.command().kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
      command = nvmeWrite(blocksOf(slot, run), slot.plan.command().forceUnitAccess);
      attachData(slot, run, command, true);
      return command;
    case CommandKind::verify:
      if (traits_.transfers.comparesData && !slot.locating) {
        command = nvmeCompare(blocksOf(slot, run));
        attachData(slot, run, command, true);
        return command;
      }
      [[fallthrough]];
    case CommandKind::read:
      command = nvmeRead(blocksOf(slot, run));
      attachData(slot, run, command, false);
      return command;
    case CommandKind::trim:
      if (traits_.trim == NvmeOptions::Trim::writeZeroes) {
        return nvmeWriteZeroes(blocksOf(slot, run), traits_.zeroesDeallocate);
      }
      slot.range = nvmeDatasetRange(lba, slot.piece);
      command = nvmeDeallocate(identity_.nsid);
      command.data = slot.range.data();
      command.dataBytes = nvmeDatasetRangeBytes;
      return command;
    case CommandKind::syncCache:
      return nvmeFlush(identity_.nsid);
    case CommandKind::zoneReset:
      return nvmeZoneReset(identity_.nsid, lba);
    case CommandKind::invalidate:
      break;
  }
  throw std::logic_error("an NVMe namespace has no key that could be changed");
}

uint8_t* NvmeDrive::memoryOf(Slot& slot, const TransferPlan::Run& run) const {
  const uint64_t sector = traits_.geometry.sectorBytes();
  return slot.locating ? slot.found.atLeast(slot.piece * sector) : run.data + slot.done * sector;
}

void NvmeDrive::attachData(Slot& slot, const TransferPlan::Run& run, NvmeCommand& command, bool toDrive) const {
  const DriveGeometry& geometry = traits_.geometry;
  uint8_t* const sectors = memoryOf(slot, run);
  if (!traits_.separateMetadata) {
    command.data = sectors;
    command.dataBytes = slot.piece * geometry.sectorBytes();
    return;
  }
  command.dataBytes = slot.piece * geometry.blockSize;
  command.data = slot.data.atLeast(command.dataBytes);
  command.metadataBytes = slot.piece * geometry.protectionBytes;
  command.metadata = slot.metadata.atLeast(command.metadataBytes);
  for (uint64_t i = 0; toDrive && i < slot.piece; ++i) {
    const uint8_t* const sector = sectors + i * geometry.sectorBytes();
    std::memcpy(command.data + i * geometry.blockSize, sector, geometry.blockSize);
    std::memcpy(command.metadata + i * geometry.protectionBytes, sector + geometry.blockSize, geometry.protectionBytes);
  }
}

void NvmeDrive::joinMetadata(Slot& slot, const TransferPlan::Run& run) const {
  const DriveGeometry& geometry = traits_.geometry;
  uint8_t* const sectors = memoryOf(slot, run);
  for (uint64_t i = 0; i < slot.piece; ++i) {
    uint8_t* const sector = sectors + i * geometry.sectorBytes();
    std::memcpy(sector, slot.data.data() + i * geometry.blockSize, geometry.blockSize);
    std::memcpy(sector + geometry.blockSize, slot.metadata.data() + i * geometry.protectionBytes,
                geometry.protectionBytes);
  }
}

bool NvmeDrive::poll(DriveCompletion& out, bool wait) {
  if (!ready_.empty()) {
    out = ready_.back();
    ready_.pop_back();
    return true;
  }
  NvmeReply reply;
  while (atDrive_ != 0 && passthrough_->poll(reply, wait)) {
    --atDrive_;
    if (advance(reply, out)) {
      return true;
    }
  }
  return false;
}

bool NvmeDrive::waitUpTo(uint64_t microseconds) {
  return !ready_.empty() || (atDrive_ != 0 && passthrough_->waitUpTo(microseconds));
}

bool NvmeDrive::advance(const NvmeReply& reply, DriveCompletion& out) {
  Slot& slot = slots_[reply.slot];
  const int32_t code = reply.result < 0 ? reply.result : reply.result & nvme_status::codeMask;
  if (code == nvme_status::compareFailure && !slot.locating) {
    slot.locating = true;
    sendPiece(reply.slot);
    return false;
  }
  const TransferPlan::Run run = slot.plan.run(slot.run);
  if (code == nvme_status::success && !slot.locating) {
    if (traits_.separateMetadata && slot.plan.moves() == TransferPlan::Moves::fromDrive) {
      joinMetadata(slot, run);
    }
    slot.done += slot.piece;
    if (slot.done >= run.blocks) {
      ++slot.run;
      slot.done = 0;
    }
    if (slot.run < slot.plan.runs()) {
      sendPiece(reply.slot);
      return false;
    }
  }
  out.tag = slot.plan.command().tag;
  out.id = slot.plan.command().id;
  // The slot is free before anything may be thrown, and its memory stays until it is taken again.
  release(reply.slot);
  if (code != nvme_status::success) {
    judgeFailure(slot, code, out);
  } else if (slot.locating) {
    judgeDifference(slot, out);
  } else {
    slot.plan.finish(out);
  }
  return true;
}

void NvmeDrive::judgeFailure(const Slot& slot, int32_t result, DriveCompletion& out) const {
  const CommandKind kind = slot.plan.command().kind;
  if (result == -EINTR) {
    // The kernel gave it up, after its time limit or because somebody reset the controller.
    out.status = scsi_status::aborted;
    out.senseBytes = 0;
    out.bytesTransferred = 0;
    return;
  }
  const uint64_t lba = slot.plan.run(slot.run).lba + slot.done;
  if (result < 0) {
    throw DriveError("NVMe device '" + device_ + "': a " + commandKindName(kind) + " at LBA " + std::to_string(lba) +
                     " failed: " + std::generic_category().message(-result) +
                     "; see what the kernel says about it (dmesg)");
  }
  setNvmeStatus(out, static_cast<uint16_t>(result), slot.piece == 1 ? std::optional(lba) : std::nullopt);
}

void NvmeDrive::judgeDifference(Slot& slot, DriveCompletion& out) const {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  const uint64_t sector = traits_.geometry.sectorBytes();
  if (traits_.separateMetadata) {
    joinMetadata(slot, run);
  }
  std::optional<uint64_t> lba;
  for (uint64_t i = 0; i < slot.piece && !lba; ++i) {
    if (std::memcmp(slot.found.data() + i * sector, run.data + (slot.done + i) * sector, sector) != 0) {
      lba = run.lba + slot.done + i;
    }
  }
  setSense(out, sense::miscompareDuringVerify, lba);
}

void NvmeDrive::release(uint32_t index) {
  freeSlots_.push_back(index);
  leaveZone(index);
}

void NvmeDrive::reset() {
  ready_.clear();
  if (!traits_.capabilities.deviceReset) {
    throw std::logic_error("the controller cannot be reset");
  }
  passthrough_->reset();
  drain();
}

void NvmeDrive::powerCycle() { throw std::logic_error("the power of an NVMe drive cannot be cut"); }

void NvmeDrive::drain() {
  ready_.clear();
  NvmeReply reply;
  while (atDrive_ != 0 && passthrough_->poll(reply, true)) {
    --atDrive_;
  }
  // Also those whose commands were never sent, for want of their turn in a zone.
  zoneWrites_.clear();
  freeSlots_.clear();
  for (auto i = static_cast<uint32_t>(slots_.size()); i-- > 0;) {
    freeSlots_.push_back(i);
  }
}

int NvmeDrive::sendVendorRequest(const uint8_t* block, uint32_t bytes) {
  constexpr uint32_t lengthAt = 6;
  constexpr uint32_t descriptorAt = 24;
  constexpr uint8_t firstVendorOpcode = 0xC0;
  constexpr int inputOutputError = 5;
  if (!vendorAdmin_) {
    return VendorDevice::unsupported;
  }
  NvmeCommand command;
  constexpr uint32_t mostParameters = sizeof command.dwords;
  if (bytes <= descriptorAt || block[lengthAt] == 0 || block[lengthAt] > bytes - descriptorAt ||
      block[lengthAt] > 1 + mostParameters) {
    return VendorDevice::badArgument;
  }
  if (block[descriptorAt] < firstVendorOpcode) {
    return VendorDevice::unsupported;
  }
  command.opcode = block[descriptorAt];
  command.nsid = identity_.nsid;
  for (uint32_t i = 0; i + 1 < block[lengthAt]; ++i) {
    command.dwords[i / 4] |= uint32_t{block[descriptorAt + 1 + i]} << i % 4 * 8;
  }
  const int32_t result = passthrough_->admin(command, nullptr);
  if (result == nvme_status::success) {
    return 0;
  }
  const bool isUnknown = result > 0 && (result & nvme_status::codeMask) == nvme_status::invalidOpcode;
  return isUnknown ? VendorDevice::unsupported : inputOutputError;
}

}  // namespace corvane::host
