#include "host/run/StepLoop.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <stdexcept>
#include <string>

#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

constexpr uint32_t e2eBytes = 8;
constexpr uint64_t shortTransfer = 4096;  ///< bytes; to submit so many takes no time that a clock of microseconds shows
constexpr uint8_t protectWithE2e = 1;     ///< transfer and check
constexpr uint8_t protectVerbatim = 3;    ///< transfer, do not check

bool carriesWriteData(CommandKind kind) {
  return kind == CommandKind::write || kind == CommandKind::writeAtomic || kind == CommandKind::writeSame ||
         kind == CommandKind::verify;
}

}  // namespace

StepLoop::StepLoop(const vdl::AgentTable& agent, const void* configData, DriveThreadHost& host, Drive& drive,
                   LbaAgent& lbaAgent, const StepSettings& settings, DriveCounters& counters, HostClock& clock)
    : agent_(agent),
      configData_(configData),
      host_(host),
      thread_(host.thread()),
      tags_(host.tags()),
      drive_(drive),
      lbaAgent_(lbaAgent),
      settings_(settings),
      counters_(counters),
      clock_(clock),
      lba_(host.variables().u64("LBA")),
      xferLength_(host.variables().u32("XferLength")),
      atomicBound_(host.variables().u32("AtomicBound")),
      skipGen_(host.variables().u32("SkipGen")),
      epo_(host.variables().u32("EPO")),
      lastTagId_(host.variables().u32("LastTagID", nothing)),
      lastStatusByte_(host.variables().u32("LastStatusByte", nothing)),
      readDataIsValid_(host.variables().u32("ReadDataIsValid")),
      writeLba_(host.variables().u64("WriteLBA")),
      writeXferLength_(host.variables().u32("WriteXferLength")),
      writeCmdUsed_(host.variables().u32("WriteCmdUsed")),
      bucketIndex_(host.variables().u32("BucketIndex")),
      writeData_(host.variables().buffer("WriteData")),
      lastErrSenseData_(host.variables().buffer("LastErrSenseData")),
      readDataPtr_(host.variables().tagged("ReadDataPtr[TagID]")),
      cdb_(host.variables().tagged("CDB[TagID]")),
      recvCdb_(host.variables().tagged("RecvCDB[TagID]")),
      parameterList_(host.variables().tagged("ParameterList[TagID]")),
      zoneWriter_(settings.hostManaged
                      ? std::optional<ZoneWriter>(std::in_place, settings.ranges.zones, settings.minBlocks,
                                                  settings.maxBlocks, settings.zoneWriterSeed)
                      : std::nullopt),
      queue_(drive, tags_.size(), settings.ranges.any(), settings.watchdogMs, counters, clock),
      hangWatch_(queue_, settings.watchdogMs, clock),
      checks_(settings.checks, tags_.size(), counters.checked),
      ranges_(settings.ranges, tags_, queue_, host.variables(), counters, checks_,
              zoneWriter_ ? &*zoneWriter_ : nullptr),
      conditions_(settings.conditions),
      selector_(ConditionChoices(settings.mix, settings.conditions, conditions_), settings.e2ePercent,
                settings.selectorSeed),
      readMemory_(tags_.size(), uint64_t{settings.maxBlocks} * host.sectorBytes()),
      perTag_(tags_.size()),
      nextReset_(settings.resetEveryCommands) {
  readMemory_.lendTo(drive);
  host.variables().u32("TestMaxXferLength") = settings.maxBlocks;
  host.variables().u64("MinLBA") = settings.minLba;
  host.variables().u64("MaxLBA") = settings.maxLba;
  host.variables().u32("DeviceInterface") = settings.deviceInterface;
  host.variables().u32("HostManaged") = settings.hostManaged ? 1 : 0;
  parkedTags_.reserve(tags_.size());
  if (lastErrSenseData_.reserve(DriveCompletion().sense.size()) != 0) {
    throw std::bad_alloc();
  }
  publishNone();
}

void StepLoop::prepareDrive() {
  if (!zoneWriter_) {
    return;
  }
  for (;;) {
    try {
      // Nobody knows where the drive's write pointers stand.
      ranges_.emptyAllZones();
      return;
    } catch (const DriveConnectionLost& lost) {
      // The agent has issued nothing yet, so it need not know.
      noteLoss(lost);
      reachDrive();
      queue_.forgetAll();
    }
  }
}

int32_t StepLoop::step() {
  assert(!draining_);
  try {
    const int32_t status = makeStep();
    hangWatch_.look();
    return status;
  } catch (const DriveConnectionLost& lost) {
    return goOnAfter(lost);
  }
}

int32_t StepLoop::makeStep() {
  justIssued_ = TagPool::none;
  thread_.conditions &= ~conditions_.bits();
  publishChoice();
  selected_ = selector_.select(commandsIssued_);
  thread_.conditions |= selected_;

  if (settings_.ranges.any() && !carryOutRangeOperations()) {
    return quietStep();
  }
  publishZonePosition();

  const uint32_t peekedTag = tags_.front();
  if (const int32_t status = callExecute(); status != 0) {
    return status;
  }
  absorbZonePosition();
  absorbTakenBackTags();
  runConditionedStep(peekedTag);
  if (settings_.resetEveryCommands != 0 && commandsIssued_ >= nextReset_ &&
      conditions_.allows(ConditionedStep::reset, thread_.conditions)) {
    nextReset_ = commandsIssued_ + settings_.resetEveryCommands;
    if (const int32_t status = resetDevice(); status != 0) {
      return status;
    }
  }
  getStatus(tags_.front() == TagPool::none);
  return 0;
}

bool StepLoop::carryOutRangeOperations() {
  const RangeGates gates{.zoneReset = conditions_.allows(ConditionedStep::zoneReset, selected_),
                         .invalidate = conditions_.allows(ConditionedStep::invalidate, selected_)};
  return ranges_.carryOutDue(commandsIssued_, publishedTag_, gates);
}

int32_t StepLoop::quietStep() {
  parkFreeTags();
  if (const int32_t status = executeQuietly(); status != 0) {
    return status;
  }
  for (const uint32_t tag : parkedTags_) {
    tags_.release(tag);
  }
  getStatus(queue_.outstanding() != 0);
  return 0;
}

void StepLoop::parkFreeTags() {
  parkedTags_.clear();
  for (uint32_t tag = tags_.take(); tag != TagPool::none; tag = tags_.take()) {
    parkedTags_.push_back(tag);
  }
}

int32_t StepLoop::executeQuietly() {
  if (const int32_t status = callExecute(); status != 0) {
    return status;
  }
  if ((thread_.conditions & conditions_.appliedBits()) != 0) {
    throw std::logic_error("the agent applied a condition although no tag is free");
  }
  if (tags_.outstanding() != tags_.size()) {
    throw std::logic_error("the agent took tags back in a step in which no tag is free");
  }
  return 0;
}

void StepLoop::publishZonePosition() {
  if (!zoneWriter_) {
    return;
  }
  const ZonePosition& next = zoneWriter_->next();
  writeLba_ = next.lba;
  writeXferLength_ = next.blocks;
  zoneWrite_.reset();
}

void StepLoop::absorbZonePosition() {
  if (!zoneWriter_ || writeCmdUsed_ == writesUsed_) {
    return;
  }
  writesUsed_ = writeCmdUsed_;
  zoneWrite_ = zoneWriter_->next();
  zoneWriter_->used();
}

void StepLoop::checkZonePosition(const DriveCommand& command) const {
  if (zoneWriter_ && command.kind == CommandKind::write &&
      (!zoneWrite_ || zoneWrite_->lba != command.lba || zoneWrite_->blocks != command.blocks)) {
    throw std::logic_error("the agent writes " + std::to_string(command.blocks) + " blocks at LBA " +
                           std::to_string(command.lba) + ", which is not where the zone's write pointer stands");
  }
}

void StepLoop::publishChoice() {
  if (skipGen_ == 0 || !choice_) {
    choice_ = lbaAgent_.next();
    checks_.prefetchForWrite(choice_->lba, choice_->blocks);
  }
  // Also when the choice was kept: the agent has written the range of its own command over it.
  skipGen_ = 0;
  lba_ = choice_->lba;
  xferLength_ = choice_->blocks;
  atomicBound_ = choice_->atomicBound;
}

int32_t StepLoop::callExecute() {
  const int32_t status = agent_.execute(&thread_, configData_, host_.driveData());
  publishNone();
  return status;
}

void StepLoop::publishNone() {
  if (publishedTag_ != TagPool::none) {
    readDataPtr_.clear(publishedTag_);
    publishedTag_ = TagPool::none;
  }
  lastTagId_ = nothing;
  lastStatusByte_ = nothing;
  readDataIsValid_ = 0;
  lastErrSenseData_.size = 0;
}

void StepLoop::absorbTakenBackTags() {
  if (tags_.outstanding() == queue_.outstanding()) {
    return;
  }
  if (tags_.outstanding() != 0) {
    throw std::logic_error("the agent took back some of the outstanding tags but not all of them");
  }
  // Whatever the agent's reason was: its commands must not run any more. A power cut that follows does the same.
  if (!conditions_.runs(ConditionedStep::powerToggle, thread_.conditions)) {
    resetDrive();
    forgetOutstanding();
  }
}

void StepLoop::forgetOutstanding() {
  takeBackUnsentWrites();
  tellOfUnsentCommands();
  if (settings_.journal != nullptr) {
    settings_.journal->lostAll();
  }
  queue_.forgetAll();
  checks_.allLost();
  counters_.outstanding.set(0);
  if (syncTag_ != TagPool::none) {
    lostSync_ = syncTag_;
    syncTag_ = TagPool::none;
  }
}

void StepLoop::tellOfUnsentCommands() {
  if (settings_.ledger == nullptr) {
    return;
  }
  for (uint32_t tag = 0; tag < tags_.size(); ++tag) {
    if (queue_.isUnsent(tag) && changesMedium(queue_.command(tag).kind)) {
      settings_.ledger->neverSent(queue_.command(tag));
    }
  }
}

void StepLoop::takeBackUnsentWrites() {
  if (!zoneWriter_) {
    return;
  }
  // The drive's pointers are past every write that it took, whatever became of its data, but not past these.
  for (uint32_t tag = 0; tag < tags_.size(); ++tag) {
    if (queue_.isUnsent(tag) && queue_.command(tag).kind == CommandKind::write) {
      zoneWriter_->takeBackTo(queue_.command(tag).lba);
    }
  }
}

void StepLoop::runConditionedStep(uint32_t peekedTag) {
  const std::optional<ConditionedStep> step = conditions_.stepToRun(thread_.conditions);
  if (!step) {
    return;
  }
  if (const std::optional<CommandKind> kind = kindOf(*step)) {
    issue(*kind, peekedTag);
  } else {
    cutPower();
  }
}

void StepLoop::issue(CommandKind kind, uint32_t peekedTag) {
  const uint32_t tag = tags_.take();
  if (tag == TagPool::none) {
    throw std::logic_error("the agent applied a condition although no tag is free");
  }
  if (tag != peekedTag) {
    throw std::logic_error("the next free tag changed within a step");
  }
  const DriveCommand command = buildCommand(kind, tag);
  checkZonePosition(command);
  publishCommandBlock(command);
  perTag_[tag].preRead =
      checks_.issued(command, {.chosenRange = hasChosenRange(command), .mayBePreRead = mayBePreRead(command)});
  if (kind == CommandKind::syncCache) {
    syncTag_ = tag;
  }
  ++commandsIssued_;
  counters_.issued[static_cast<size_t>(kind)].add(1);
  if (settings_.ledger != nullptr) {
    settings_.ledger->issued(command);
  }
  if (settings_.journal != nullptr) {
    settings_.journal->issued(command, bucketIndex_, perTag_[tag].preRead);
  }
  justIssued_ = command.dataBytes <= shortTransfer ? tag : TagPool::none;
  queue_.submit(command);
  counters_.outstanding.set(queue_.outstanding());
  counters_.maxOutstanding.set(std::max<uint64_t>(counters_.maxOutstanding.get(), queue_.outstanding()));
}

DriveCommand StepLoop::buildCommand(CommandKind kind, uint32_t tag) {
  DriveCommand command;
  command.kind = kind;
  command.tag = tag;
  if (kind == CommandKind::syncCache) {
    return command;
  }
  command.lba = lba_;
  command.blocks = xferLength_;
  command.lbaStep = settings_.skipCommands ? 2 : 1;
  if (command.blocks == 0 || command.blocks > settings_.maxBlocks) {
    throw std::logic_error("the agent asked for a transfer of " + std::to_string(command.blocks) +
                           " blocks in a test of 1 to " + std::to_string(settings_.maxBlocks));
  }
  if (changesMedium(kind)) {
    checkRange(command);
  }
  command.forceUnitAccess = settings_.forceUnitAccess && changesMedium(kind);
  if (kind == CommandKind::writeAtomic) {
    command.atomicBound = atomicBound_;
  }
  if (kind == CommandKind::read) {
    command.data = readMemory_.of(tag);
    command.dataBytes = uint64_t{command.blocks} * host_.sectorBytes();
  } else if (carriesWriteData(kind)) {
    attachWriteData(command);
  }
  return command;
}

void StepLoop::checkRange(const DriveCommand& command) const {
  // Without sums that may run over. What lies beside the range is somebody else's data.
  const uint64_t behindFirst = uint64_t{command.blocks - 1} * command.lbaStep;
  if (command.lba < settings_.minLba || command.lba > settings_.maxLba ||
      behindFirst > settings_.maxLba - command.lba) {
    throw std::logic_error("the agent asked for a " + std::string(commandKindName(command.kind)) + " of " +
                           std::to_string(command.blocks) + " blocks at LBA " + std::to_string(command.lba) +
                           " in a test of LBA " + std::to_string(settings_.minLba) + " to " +
                           std::to_string(settings_.maxLba));
  }
}

void StepLoop::attachWriteData(DriveCommand& command) {
  command.trailerBytes = conditions_.carriesE2e(command.kind, selected_, thread_.conditions) ? e2eBytes : 0;
  const uint64_t unit = host_.sectorBytes() + command.trailerBytes;
  const uint64_t needed = command.kind == CommandKind::writeSame ? unit : unit * command.blocks;
  if (writeData_.data == nullptr || writeData_.size != needed) {
    throw std::logic_error("the agent prepared " + std::to_string(writeData_.size) + " bytes for a " +
                           commandKindName(command.kind) + " of " + std::to_string(needed));
  }
  command.data = writeData_.data;
  command.dataBytes = needed;
}

void StepLoop::publishCommandBlock(const DriveCommand& command) {
  PerTag& own = perTag_[command.tag];
  uint8_t protection = thread_.protectionEnabled && thread_.protectionBytes != 0 ? protectVerbatim : 0;
  if (command.trailerBytes != 0) {
    protection = protectWithE2e;
  }
  own.cdb = buildCdb(command, protection);
  cdb_.set(command.tag, own.cdb.data(), own.cdb.size());
  if (command.kind == CommandKind::trim) {
    own.parameterList = cdb::unmapParameterList(command.lba, command.blocks);
    parameterList_.set(command.tag, own.parameterList.data(), own.parameterList.size());
  } else {
    parameterList_.clear(command.tag);
  }
}

bool StepLoop::hasChosenRange(const DriveCommand& command) const {
  return command.lba == choice_->lba && command.blocks == choice_->blocks;
}

bool StepLoop::mayBePreRead(const DriveCommand& command) const {
  // The read ahead of an atomic write goes to the range that the LBA agent chose; a read-back goes where a write was.
  const bool atomicSelected = (selected_ & choosingBits(conditions_.of(ConditionedStep::writeAtomic))) != 0;
  return command.kind == CommandKind::read && atomicSelected && skipGen_ == 0 && hasChosenRange(command);
}

void StepLoop::cutPower() {
  if (tags_.outstanding() != 0) {
    throw std::logic_error("the agent cuts the power without taking the outstanding tags back");
  }
  {
    const DriveCalls::Inside inside(settings_.calls, "a power cut of the drive");
    drive_.powerCycle();
  }
  counters_.powerCycles.add(1);
  noteIncident(Incident::What::powerCut);
  settings_.observer->onPowerCycle(settings_.driveIndex);
  forgetOutstanding();
  epo_ = 1;
}

void StepLoop::resetDrive() {
  reachDrive();
  counters_.resets.add(1);
  noteIncident(Incident::What::reset);
  settings_.observer->onReset(settings_.driveIndex);
}

int32_t StepLoop::resetDevice() {
  resetDrive();
  forgetOutstanding();
  return tellAgentOfReset();
}

int32_t StepLoop::tellAgentOfReset() {
  const int32_t status = agent_.deviceReset(&thread_, configData_, host_.driveData());
  if (status == 0 && tags_.outstanding() != 0) {
    throw std::logic_error("the agent left tags outstanding after a reset of the device");
  }
  publishNone();
  return status;
}

void StepLoop::publishLostSync() {
  if (lostSync_) {
    // The agent's own accounting of a reset has no place for a flush: it would wait for this one for ever.
    lastTagId_ = *lostSync_;
    lastStatusByte_ = scsi_status::aborted;
    lostSync_.reset();
  }
}

void StepLoop::getStatus(bool wait) {
  if (lostSync_) {
    publishLostSync();
    return;
  }
  const bool waits = !queue_.poll(completion_);
  if (waits && !wait) {
    return;
  }
  if (waits) {
    queue_.wait(completion_);
  }
  publishCompletion(completion_, !waits && justIssued_ != TagPool::none && justIssued_ != completion_.tag);
}

void StepLoop::publishCompletion(const DriveCompletion& completion, bool rightAfterIssue) {
  const uint32_t tag = completion.tag;
  const DriveCommand& command = queue_.command(tag);
  PerTag& own = perTag_[tag];
  const uint64_t readBytes =
      command.kind == CommandKind::read ? std::min(completion.bytesTransferred, command.dataBytes) : 0;
  if (readBytes != 0) {
    readDataPtr_.set(tag, command.data, readBytes);
  } else {
    readDataPtr_.clear(tag);
  }
  readDataIsValid_ = readBytes != 0 && settings_.readDataDelivered ? 1 : 0;
  own.recvCdb = own.cdb;
  recvCdb_.set(tag, own.recvCdb.data(), own.recvCdb.size());
  lastErrSenseData_.size = std::min<uint64_t>(completion.senseBytes, completion.sense.size());
  if (lastErrSenseData_.size != 0) {
    std::memcpy(lastErrSenseData_.data, completion.sense.data(), lastErrSenseData_.size);
  }
  lastTagId_ = tag;
  lastStatusByte_ = completion.status;
  publishedTag_ = tag;
  checks_.completed(command, completion, readDataIsValid_ != 0);
  if (tag == syncTag_) {
    syncTag_ = TagPool::none;
  }
  if (zoneWriter_ && command.kind == CommandKind::write && completion.status != scsi_status::good) {
    zoneWriter_->closeZoneOf(command.lba);
  }
  countCompletion(command, completion, rightAfterIssue);
  if (command.kind == CommandKind::verify) {
    lastVerify_ = command;
  } else {
    lastVerify_.data = nullptr;
  }
  if (!draining_) {
    tags_.release(tag);
  }
}

void StepLoop::noteIncident(Incident::What what) {
  if (settings_.journal != nullptr) {
    settings_.journal->happened(what);
  }
}

void StepLoop::countCompletion(const DriveCommand& command, const DriveCompletion& completion, bool rightAfterIssue) {
  counters_.outstanding.set(queue_.outstanding());
  counters_.completed[static_cast<size_t>(command.kind)].add(1);
  if (settings_.journal != nullptr) {
    settings_.journal->finished(command.tag, completion.status, rightAfterIssue);
  }
  if (completion.status != scsi_status::good) {
    counters_.failed.add(1);
    return;
  }
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
      counters_.blocksWritten.add(command.blocks);
      break;
    case CommandKind::trim:
      counters_.blocksTrimmed.add(command.blocks);
      break;
    case CommandKind::read:
      counters_.blocksRead.add(command.blocks);
      if (!perTag_[command.tag].preRead) {
        counters_.blocksCompared.add(command.blocks);
      }
      break;
    case CommandKind::verify:
      counters_.blocksCompared.add(command.blocks);
      break;
    case CommandKind::syncCache:
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
}

int32_t StepLoop::drain() {
  draining_ = true;
  int32_t status = 0;
  for (bool done = false; !done && status == 0;) {
    parkFreeTags();
    try {
      status = drainOnce(done);
    } catch (const DriveConnectionLost& lost) {
      status = goOnAfter(lost);
    }
  }
  if (status != 0) {
    abandon();
  }
  return status;
}

int32_t StepLoop::drainOnce(bool& done) {
  thread_.conditions &= ~conditions_.bits();
  publishChoice();
  if (const int32_t status = executeQuietly(); status != 0) {
    return status;
  }
  hangWatch_.look();
  done = queue_.outstanding() == 0;
  if (!done) {
    DriveCompletion completion;
    queue_.wait(completion);
    publishCompletion(completion);
  }
  return 0;
}

std::vector<uint8_t> StepLoop::verifiedData() const {
  std::vector<uint8_t> data;
  if (lastVerify_.data == nullptr) {
    return data;
  }
  const uint64_t sector = host_.sectorBytes();
  for (uint32_t block = 0; block < lastVerify_.blocks; ++block) {
    const uint8_t* begin = lastVerify_.data + block * (sector + lastVerify_.trailerBytes);
    data.insert(data.end(), begin, begin + sector);
  }
  return data;
}

}  // namespace corvane::host
