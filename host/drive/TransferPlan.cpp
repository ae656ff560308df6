#include "host/drive/TransferPlan.h"

#include <algorithm>
#include <cstring>

#include "host/drive/SenseData.h"

namespace corvane::host {

void TransferPlan::make(const DriveCommand& command, const DriveGeometry& geometry, const TransferLimits& limits) {
  command_ = command;
  limits_ = limits;
  sectorBytes_ = geometry.sectorBytes();
  memory_ = nullptr;
  sameMemory_ = false;
  moves_ = Moves::nothing;
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
      planWrite();
      break;
    case CommandKind::writeSame:
      planWriteSame();
      break;
    case CommandKind::read:
      planRead();
      break;
    case CommandKind::verify:
      limits.comparesData ? planWrite() : planRead();
      break;
    case CommandKind::trim:
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      cut(command.blocks);
      break;
    case CommandKind::syncCache:
      allBlocks_ = runBlocks_ = runLbas_ = 0;
      runs_ = 1;
      break;
  }
}

void TransferPlan::cut(uint64_t blocks) {
  allBlocks_ = command_.blocks;
  if (command_.lbaStep != 1 && command_.blocks > 1) {
    runBlocks_ = 1;
    runLbas_ = command_.lbaStep;
    runs_ = command_.blocks;
    return;
  }
  runBlocks_ = limits_.mostBlocks == 0 ? blocks : std::min(blocks, limits_.mostBlocks);
  runBlocks_ = std::max<uint64_t>(runBlocks_, 1);
  runLbas_ = runBlocks_;
  runs_ = static_cast<uint32_t>(std::max<uint64_t>((allBlocks_ + runBlocks_ - 1) / runBlocks_, 1));
}

bool TransferPlan::movable() const {
  return command_.trailerBytes == 0 &&
         (reinterpret_cast<uintptr_t>(command_.data) & (limits_.memoryAlignment - 1)) == 0;
}

void TransferPlan::planWrite() {
  moves_ = Moves::toDrive;
  const bool segments = command_.kind == CommandKind::writeAtomic && limits_.splitsAtomicSegments;
  cut(segments && command_.atomicBound != 0 ? command_.atomicBound : command_.blocks);
  if (movable()) {
    memory_ = command_.data;
    return;
  }
  memory_ = own_.atLeast(command_.blocks * sectorBytes_);
  for (uint64_t i = 0; i < command_.blocks; ++i) {
    std::memcpy(memory_ + i * sectorBytes_, command_.data + i * unitBytes(), sectorBytes_);
  }
}

void TransferPlan::planWriteSame() {
  moves_ = Moves::toDrive;
  sameMemory_ = true;
  cut(command_.blocks);
  const uint64_t copies = limits_.repeatsBlock ? 1 : runBlocks_;
  if (copies == 1 && movable()) {
    memory_ = command_.data;
    return;
  }
  memory_ = own_.atLeast(copies * sectorBytes_);
  for (uint64_t i = 0; i < copies; ++i) {
    std::memcpy(memory_ + i * sectorBytes_, command_.data, sectorBytes_);
  }
}

void TransferPlan::planRead() {
  moves_ = Moves::fromDrive;
  // Blocks that are left out in between are read along: one transfer is cheaper than one for each block.
  allBlocks_ = command_.endLba() - command_.lba;
  runBlocks_ = limits_.mostBlocks == 0 ? allBlocks_ : std::min(allBlocks_, limits_.mostBlocks);
  runLbas_ = runBlocks_;
  runs_ = static_cast<uint32_t>((allBlocks_ + runBlocks_ - 1) / runBlocks_);
  const bool intoPlace = command_.kind == CommandKind::read && movable() && allBlocks_ == command_.blocks;
  memory_ = intoPlace ? command_.data : own_.atLeast(allBlocks_ * sectorBytes_);
}

void TransferPlan::finish(DriveCompletion& out) const {
  out.status = scsi_status::good;
  out.senseBytes = 0;
  out.bytesTransferred = 0;
  if (command_.kind == CommandKind::read) {
    if (memory_ != command_.data) {
      gather();
    }
    out.bytesTransferred = command_.dataBytes;
  } else if (command_.kind == CommandKind::verify && moves_ == Moves::fromDrive) {
    judgeVerify(out);
  }
}

void TransferPlan::gather() const {
  for (uint64_t i = 0; i < command_.blocks; ++i) {
    std::memcpy(command_.data + i * unitBytes(), memory_ + i * command_.lbaStep * sectorBytes_, sectorBytes_);
    std::memset(command_.data + i * unitBytes() + sectorBytes_, 0, command_.trailerBytes);
  }
}

void TransferPlan::judgeVerify(DriveCompletion& out) const {
  for (uint32_t i = 0; i < command_.blocks; ++i) {
    const uint8_t* found = memory_ + uint64_t{i} * command_.lbaStep * sectorBytes_;
    if (std::memcmp(found, command_.data + i * unitBytes(), sectorBytes_) != 0) {
      setSense(out, sense::miscompareDuringVerify, command_.lbaOf(i));
      return;
    }
  }
}

}  // namespace corvane::host
