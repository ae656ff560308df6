#include "host/drive/scsi/ScsiDrive.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "host/drive/CommandCheck.h"
#include "host/drive/DriveError.h"
#include "host/drive/SenseData.h"
#include "host/drive/scsi/ScsiDialogue.h"
#include "host/drive/scsi/ScsiIdentity.h"
#include "host/ostra/DeviceTable.h"

namespace corvane::host {
namespace {

/// A length that command blocks have, with the zeros behind a shorter one.
uint32_t wholeCdbBytes(uint32_t bytes) {
  for (const uint32_t whole : {6U, 10U, 12U}) {
    if (bytes <= whole) {
      return whole;
    }
  }
  return sizeof(Cdb);
}

void copyAnswer(const ScsiReply& reply, DriveCompletion& out) {
  out.status = reply.status;
  out.bytesTransferred = 0;
  takeSense(out, std::span(reply.sense).first(std::min<size_t>(reply.senseBytes, reply.sense.size())));
}

/// Whether data differ, and the unit does not say where.
bool isMiscompareSomewhere(const ScsiReply& reply) {
  const std::optional<Sense> sense = senseOf(reply);
  return sense && sense->key == sense_key::miscompare && !hasInformation(reply);
}

}  // namespace

ScsiDrive::ScsiDrive(std::unique_ptr<ScsiTransport> transport, const ScsiDriveSettings& settings,
                     uint32_t maxOutstanding)
    : transport_(std::move(transport)),
      readySeconds_(settings.readySeconds),
      unit_(probeScsiUnit(*transport_, settings)),
      capabilities_(unit_.capabilities()),
      slots_(std::max<uint32_t>(std::min(maxOutstanding, transport_->mostRequests()), 1)) {
  capabilities_.connectionCanBreak = transport_->canBreak();
  freeSlots_.reserve(slots_.size());
  ready_.reserve(slots_.size());
  kept_.reserve(slots_.size());
  const uint64_t zeroBlocks = unit_.mostSameBlocks != 0 ? 1 : unit_.trim.mostZeros;
  const uint64_t zeroBytes = zeroBlocks * unit_.geometry.blockSize;
  std::memset(zeros_.atLeast(zeroBytes), 0, zeroBytes);
  forgetEverything();
}

ScsiDrive::~ScsiDrive() {
  // It goes before the memory that its requests point to.
  transport_.reset();
}

std::string ScsiDrive::description() const { return transport_->description() + ", " + unit_.description(); }

ScsiDrive::Operation ScsiDrive::operationOf(CommandKind kind) const {
  switch (kind) {
    case CommandKind::write:
      return Operation::write;
    case CommandKind::writeAtomic:
      return Operation::writeAtomic;
    case CommandKind::writeSame:
      return unit_.mostSameBlocks != 0 ? Operation::writeSame : Operation::write;
    case CommandKind::trim:
      return Operation::trim;
    case CommandKind::read:
      return Operation::read;
    case CommandKind::verify:
      return unit_.verifies ? Operation::verify : Operation::read;
    case CommandKind::syncCache:
      return Operation::flush;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  throw std::logic_error("a SCSI drive offers no zones and no change of key");
}

TransferLimits ScsiDrive::limitsOf(Operation operation) const {
  // A trim is cut by its own rules.
  const uint64_t most = operation == Operation::trim        ? 0
                        : operation == Operation::writeSame ? unit_.mostSameBlocks
                                                            : unit_.mostBlocks;
  return {.mostBlocks = most,
          .memoryAlignment = transport_->memoryAlignment(),
          .splitsAtomicSegments = true,
          .repeatsBlock = operation == Operation::writeSame,
          .comparesData = operation == Operation::verify};
}

bool ScsiDrive::isTooLongForOneSegment(const DriveCommand& command) const {
  const uint32_t segment = command.atomicBound == 0 ? command.blocks : std::min(command.atomicBound, command.blocks);
  return command.kind == CommandKind::writeAtomic && command.lbaStep == 1 &&
         segment > capabilities_.atomicSegments.mostBlocks;
}

void ScsiDrive::submit(const DriveCommand& command) {
  if (lost_ != nullptr) {
    std::rethrow_exception(std::exchange(lost_, nullptr));
  }
  if (freeSlots_.empty()) {
    throw std::logic_error("more commands than the drive takes at once");
  }
  std::optional<Sense> refusal = refuse(command, unit_.geometry, capabilities_);
  if (!refusal && isTooLongForOneSegment(command)) {
    refusal = sense::invalidField;
  }
  if (refusal) {
    DriveCompletion completion;
    setSense(completion, *refusal);
    answerAtOnce(command, completion);
  } else if (command.blocks == 0 && command.kind != CommandKind::syncCache) {
    answerAtOnce(command, {});
  } else {
    begin(freeSlots_.back(), command);
    // Only now, so that a command that could not be started has taken nothing.
    freeSlots_.pop_back();
  }
}

void ScsiDrive::answerAtOnce(const DriveCommand& command, DriveCompletion completion) {
  completion.tag = command.tag;
  completion.id = command.id;
  ready_.push_back(completion);
}

void ScsiDrive::begin(uint32_t index, const DriveCommand& command) {
  Slot& slot = slots_[index];
  slot.operation = operationOf(command.kind);
  slot.plan.make(command, unit_.geometry, limitsOf(slot.operation));
  slot.run = 0;
  slot.brought = 0;
  slot.trimmed = 0;
  slot.flushing = false;
  slot.recovered = false;
  slot.locating = false;
  send(index);
}

void ScsiDrive::send(uint32_t index) {
  Slot& slot = slots_[index];
  ScsiRequest request;
  request.slot = index;
  if (slot.flushing || slot.operation == Operation::flush) {
    request.cdb = cdb::synchronizeCache16();
  } else if (slot.operation == Operation::trim) {
    fillTrim(slot, request);
  } else if (slot.locating) {
    fillLocatingRead(slot, request);
  } else {
    fillTransfer(slot, request);
  }
  request.cdbBytes = cdbBytesOf(request.cdb[0]);
  transport_->submit(request);
  ++running_;
}

void ScsiDrive::fillTransfer(const Slot& slot, ScsiRequest& request) const {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  const auto blocks = static_cast<uint32_t>(run.blocks);
  const CdbBits bits{.protection = unit_.protectionField(),
                     .forceUnitAccess = slot.plan.command().forceUnitAccess && unit_.forcesUnitAccess};
  request.direction =
      slot.plan.moves() == TransferPlan::Moves::fromDrive ? ScsiRequest::Data::fromUnit : ScsiRequest::Data::toUnit;
  request.data = run.data;
  request.bytes = run.bytes;
  switch (slot.operation) {
    case Operation::read:
      request.cdb = cdb::read16(run.lba, blocks, bits);
      break;
    case Operation::write:
      request.cdb = cdb::write16(run.lba, blocks, bits);
      break;
    case Operation::writeAtomic:
      request.cdb = cdb::writeAtomic16(run.lba, static_cast<uint16_t>(blocks),
                                       static_cast<uint16_t>(unit_.atomic.bySegmentBound ? blocks : 0), bits);
      break;
    case Operation::writeSame:
      request.cdb = cdb::writeSame16(run.lba, blocks, false, bits);
      break;
    case Operation::verify:
      request.cdb = cdb::verify16(run.lba, blocks, bits);
      break;
    case Operation::trim:
    case Operation::flush:
      break;
  }
}

void ScsiDrive::fillLocatingRead(Slot& slot, ScsiRequest& request) const {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  // From the medium where that can be asked for, as a VERIFY looks there, too.
  request.cdb = cdb::read16(run.lba, static_cast<uint32_t>(run.blocks),
                            {.protection = unit_.protectionField(), .forceUnitAccess = unit_.forcesUnitAccess});
  request.direction = ScsiRequest::Data::fromUnit;
  request.data = slot.found.atLeast(run.bytes);
  request.bytes = run.bytes;
}

void ScsiDrive::fillTrim(Slot& slot, ScsiRequest& request) {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  slot.piece = nextTrimPiece(unit_.trim, run.lba + slot.trimmed, run.lba + run.blocks);
  request.direction = ScsiRequest::Data::toUnit;
  if (slot.piece.unmaps) {
    slot.list = cdb::unmapParameterList(slot.piece.lba, slot.piece.blocks);
    request.cdb = cdb::unmap(static_cast<uint16_t>(slot.list.size()));
    request.data = slot.list.data();
    request.bytes = slot.list.size();
    return;
  }
  request.data = zeros_.data();
  if (unit_.mostSameBlocks != 0) {
    request.cdb = cdb::writeSame16(slot.piece.lba, slot.piece.blocks, unit_.trim.unmapBit, {});
    request.bytes = unit_.geometry.blockSize;
  } else {
    request.cdb = cdb::write16(slot.piece.lba, slot.piece.blocks, {});
    request.bytes = uint64_t{slot.piece.blocks} * unit_.geometry.blockSize;
  }
}

bool ScsiDrive::needsFlush(const Slot& slot) const {
  const bool carriesBit = slot.operation == Operation::write || slot.operation == Operation::writeAtomic;
  return slot.plan.command().forceUnitAccess && changesMedium(slot.plan.command().kind) &&
         capabilities_.volatileCache && capabilities_.syncCache && !(carriesBit && unit_.forcesUnitAccess);
}

bool ScsiDrive::step(Slot& slot) const {
  if (slot.flushing || slot.operation == Operation::flush) {
    return false;
  }
  if (slot.operation == Operation::trim) {
    slot.trimmed += slot.piece.blocks;
    if (slot.trimmed < slot.plan.run(slot.run).blocks) {
      return true;
    }
    slot.trimmed = 0;
  }
  if (slot.run + 1 < slot.plan.runs()) {
    ++slot.run;
    return true;
  }
  slot.flushing = needsFlush(slot);
  return slot.flushing;
}

bool ScsiDrive::poll(DriveCompletion& out, bool wait) {
  if (lost_ != nullptr) {
    std::rethrow_exception(std::exchange(lost_, nullptr));
  }
  if (!ready_.empty()) {
    out = ready_.back();
    ready_.pop_back();
    return true;
  }
  ScsiReply reply;
  while (running_ != 0 && take(reply, wait)) {
    if (advance(reply, out)) {
      return true;
    }
  }
  return false;
}

bool ScsiDrive::waitUpTo(uint64_t microseconds) {
  const bool toTake = lost_ != nullptr || !ready_.empty() || !kept_.empty();
  return toTake || (running_ != 0 && transport_->waitUpTo(microseconds));
}

bool ScsiDrive::take(ScsiReply& reply, bool wait) {
  if (!kept_.empty()) {
    reply = kept_.back();
    kept_.pop_back();
    return true;
  }
  return transport_->poll(reply, wait);
}

bool ScsiDrive::advance(const ScsiReply& reply, DriveCompletion& out) {
  --running_;
  Slot& slot = slots_[reply.slot];
  if (slot.operation == Operation::verify && !slot.locating && isMiscompareSomewhere(reply)) {
    // Before the answer goes up, so that no later write can change what is looked for.
    slot.locating = true;
    slot.answer = reply;
    send(reply.slot);
    return false;
  }
  copyAnswer(reply, out);
  out.tag = slot.plan.command().tag;
  out.id = slot.plan.command().id;
  if (slot.locating) {
    finishLocating(slot, reply, out);
  } else if (isCarriedOut(out)) {
    if (reply.status != scsi_status::good) {
      slot.recovered = true;
      slot.answer = reply;
    }
    const bool reads = slot.operation == Operation::read;
    slot.brought += reads ? reply.bytesMoved : 0;
    const bool isShort = reads && reply.bytesMoved < slot.plan.run(slot.run).bytes;
    if (!isShort && step(slot)) {
      send(reply.slot);
      return false;
    }
    isShort ? finishShort(slot, out) : finish(slot, out);
  }
  freeSlots_.push_back(reply.slot);
  return true;
}

void ScsiDrive::finish(const Slot& slot, DriveCompletion& out) const {
  slot.plan.finish(out);
  if (slot.recovered && out.status == scsi_status::good) {
    const uint64_t bytes = out.bytesTransferred;
    copyAnswer(slot.answer, out);
    out.bytesTransferred = bytes;
  }
}

void ScsiDrive::finishLocating(const Slot& slot, const ScsiReply& reply, DriveCompletion& out) const {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  const bool isRead = isCarriedOut(out) && reply.bytesMoved >= run.bytes;
  copyAnswer(slot.answer, out);
  if (!isRead) {
    return;
  }
  const auto [found, sent] = std::mismatch(slot.found.data(), slot.found.data() + run.bytes, run.data);
  if (sent != run.data + run.bytes) {
    const auto offset = static_cast<uint64_t>(sent - run.data);
    setSense(out, *senseOf(slot.answer), run.lba + offset / unit_.geometry.sectorBytes());
  }
}

void ScsiDrive::finishShort(const Slot& slot, DriveCompletion& out) const {
  const DriveCommand& command = slot.plan.command();
  if (command.kind == CommandKind::verify) {
    // Nothing can be said about what did not come.
    setSense(out, sense::dataPhaseError);
    return;
  }
  finish(slot, out);
  const uint32_t sector = unit_.geometry.sectorBytes();
  if (command.lbaStep == 1 && command.trailerBytes == 0) {
    out.bytesTransferred = slot.brought;
  } else {
    const uint64_t blocks = (slot.brought / sector + command.lbaStep - 1) / command.lbaStep;
    out.bytesTransferred = blocks * command.unitBytes(unit_.geometry);
  }
}

void ScsiDrive::forgetEverything() {
  ready_.clear();
  kept_.clear();
  freeSlots_.clear();
  running_ = 0;
  lost_ = nullptr;
  for (auto index = static_cast<uint32_t>(slots_.size()); index-- > 0;) {
    freeSlots_.push_back(index);
  }
}

void ScsiDrive::reset() {
  constexpr uint32_t mostTries = 3;
  forgetEverything();
  for (uint32_t tries = 1;; ++tries) {
    try {
      transport_->resetUnit();
      ScsiDialogue(*transport_).waitUntilReady(std::chrono::seconds(readySeconds_));
      demandSameUnit(*transport_, unit_);
      return;
    } catch (const DriveConnectionLost&) {
      // The way may break again right after it was found.
      if (tries == mostTries) {
        throw;
      }
    }
  }
}

void ScsiDrive::powerCycle() { throw std::logic_error("a SCSI drive's power is not cut here"); }

int ScsiDrive::sendVendorRequest(const uint8_t* block, uint32_t bytes) {
  constexpr uint32_t cdbLengthAt = 6;
  constexpr uint32_t cdbAt = 24;
  constexpr uint32_t shortestCdb = 6;
  if (block == nullptr || bytes < cdbAt) {
    return VendorDevice::badArgument;
  }
  const uint32_t stated = block[0] | uint32_t{block[1]} << 8 | uint32_t{block[2]} << 16 | uint32_t{block[3]} << 24;
  const uint32_t cdbBytes = block[cdbLengthAt];
  ScsiRequest request;
  if (stated != bytes || cdbBytes < shortestCdb || cdbBytes > request.cdb.size() || cdbBytes > bytes - cdbAt) {
    return VendorDevice::badArgument;
  }
  request.slot = static_cast<uint32_t>(slots_.size());
  std::copy_n(block + cdbAt, cdbBytes, request.cdb.begin());
  request.cdbBytes = wholeCdbBytes(cdbBytes);
  return sendAlone(request);
}

int ScsiDrive::sendAlone(const ScsiRequest& request) {
  constexpr int inputOutputError = 5;
  constexpr uint32_t mostAttentions = 8;
  try {
    ScsiReply reply;
    for (uint32_t tries = 0; lost_ == nullptr && tries < mostAttentions; ++tries) {
      makePlace();
      transport_->submit(request);
      if (!keepUntil(request.slot, reply)) {
        break;
      }
      if (!isUnitAttention(reply)) {
        return reply.status == scsi_status::good ? 0 : inputOutputError;
      }
    }
  } catch (const DriveError&) {
    // Whoever asked takes error numbers only; the next call that may throw does.
    lost_ = std::current_exception();
  }
  return inputOutputError;
}

void ScsiDrive::makePlace() {
  ScsiReply reply;
  while (running_ - kept_.size() >= transport_->mostRequests() && transport_->poll(reply, true)) {
    kept_.push_back(reply);
  }
}

bool ScsiDrive::keepUntil(uint32_t slot, ScsiReply& reply) {
  while (transport_->poll(reply, true)) {
    if (reply.slot == slot) {
      return true;
    }
    kept_.push_back(reply);
  }
  return false;
}

std::unique_ptr<Drive> makeScsiDrive(std::unique_ptr<ScsiTransport> transport, const ScsiDriveSettings& settings,
                                     uint32_t maxOutstanding) {
  return std::make_unique<ScsiDrive>(std::move(transport), settings, maxOutstanding);
}

}  // namespace corvane::host
