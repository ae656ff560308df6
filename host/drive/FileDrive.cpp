#include "host/drive/FileDrive.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "host/drive/CommandCheck.h"
#include "host/drive/DriveError.h"
#include "host/drive/GeometryKeys.h"
#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

DriveGeometry withBlocks(DriveGeometry geometry, uint64_t fileBytes) {
  geometry.blocks = fileBytes / geometry.sectorBytes();
  return geometry;
}

bool isTransfer(FileRequest::Operation operation) {
  return operation == FileRequest::Operation::read || operation == FileRequest::Operation::write;
}

}  // namespace

FileDrive::FileDrive(const FileDriveSettings& settings)
    : file_(settings.file),
      geometry_(withBlocks(settings.geometry, file_.sizeBytes())),
      capabilities_{.atomicWrite = true,
                    .writeSame = true,
                    .trim = file_.punchesHoles(),
                    .verify = true,
                    .syncCache = true,
                    .powerToggle = true,
                    .deviceReset = true,
                    .volatileCache = false},
      slots_(settings.depth) {
  freeSlots_.reserve(settings.depth);
  for (uint32_t i = settings.depth; i-- > 0;) {
    freeSlots_.push_back(i);
  }
  ready_.reserve(settings.depth);
  makeEngine(settings.engine);
}

FileDrive::~FileDrive() {
  try {
    dropEverything();
  } catch (const std::exception&) {
    // Nobody is left who could be told; the engine's own end still waits for the kernel.
    running_ = 0;
  }
}

void FileDrive::makeEngine(FileDriveSettings::Engine wanted) {
  const auto depth = static_cast<uint32_t>(slots_.size());
  if (wanted != FileDriveSettings::Engine::threads) {
    engine_ = makeUringEngine(file_.fd(), depth, whyThreads_);
    if (engine_ != nullptr) {
      return;
    }
    if (wanted == FileDriveSettings::Engine::uring) {
      throw DriveError("file '" + file_.path() + "' cannot be used with engine=uring: io_uring is refused: " +
                       whyThreads_ + "; leave engine= out for a thread pool instead");
    }
  }
  engine_ = makeThreadEngine(file_.fd(), depth);
}

std::string FileDrive::description() const {
  std::string text = "file " + file_.path() + ", " + describeGeometry(geometry_) + ", " + engine_->name();
  if (!whyThreads_.empty()) {
    text += " (io_uring is refused: " + whyThreads_ + ")";
  }
  text += file_.direct() ? ", O_DIRECT" : ", buffered";
  if (!file_.whyBuffered().empty()) {
    text += " (" + file_.whyBuffered() + ")";
  }
  return text;
}

void FileDrive::submit(const DriveCommand& command) {
  if (freeSlots_.empty()) {
    throw std::logic_error("more commands than the drive takes at once");
  }
  if (const std::optional<Sense> refusal = refuse(command, geometry_, capabilities_)) {
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
  freeSlots_.pop_back();
  Slot& slot = slots_[index];
  slot.command = command;
  slot.piece = 0;
  slot.pieceDone = 0;
  plan(slot);
  ++running_;
  submitRest(index);
}

void FileDrive::answerAtOnce(const DriveCommand& command, DriveCompletion completion) {
  completion.tag = command.tag;
  completion.id = command.id;
  ready_.push_back(completion);
}

bool FileDrive::movable(const DriveCommand& command) const {
  return command.trailerBytes == 0 && reinterpret_cast<uintptr_t>(command.data) % file_.memoryAlignment() == 0;
}

void FileDrive::plan(Slot& slot) {
  const DriveCommand& command = slot.command;
  const uint64_t sectorBytes = geometry_.sectorBytes();
  const bool oneRun = command.lbaStep == 1 || command.blocks == 1;
  slot.pieces = oneRun ? 1 : command.blocks;
  slot.pieceBytes = oneRun ? command.blocks * sectorBytes : sectorBytes;
  slot.memoryStep = sectorBytes;
  slot.memory = nullptr;
  switch (command.kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
      slot.operation = FileRequest::Operation::write;
      planWrite(slot);
      break;
    case CommandKind::trim:
      slot.operation = FileRequest::Operation::punchHole;
      break;
    case CommandKind::read:
    case CommandKind::verify:
      slot.operation = FileRequest::Operation::read;
      planRead(slot);
      break;
    case CommandKind::syncCache:
      slot.operation = FileRequest::Operation::flush;
      slot.pieces = 1;
      slot.pieceBytes = 0;
      break;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      throw std::logic_error("a file has no zones and no key");
  }
}

void FileDrive::planWrite(Slot& slot) {
  const DriveCommand& command = slot.command;
  const uint64_t sectorBytes = geometry_.sectorBytes();
  if (command.kind == CommandKind::writeSame) {
    const uint64_t copies = slot.pieceBytes / sectorBytes;
    slot.memory = slot.own.atLeast(slot.pieceBytes);
    for (uint64_t i = 0; i < copies; ++i) {
      std::memcpy(slot.memory + i * sectorBytes, command.data, sectorBytes);
    }
    slot.memoryStep = 0;
    return;
  }
  if (movable(command)) {
    slot.memory = command.data;
    return;
  }
  slot.memory = slot.own.atLeast(command.blocks * sectorBytes);
  const uint64_t unit = sectorBytes + command.trailerBytes;
  for (uint64_t i = 0; i < command.blocks; ++i) {
    std::memcpy(slot.memory + i * sectorBytes, command.data + i * unit, sectorBytes);
  }
}

void FileDrive::planRead(Slot& slot) {
  const DriveCommand& command = slot.command;
  // Blocks that are left out in between are read along: one transfer is cheaper than one for each block.
  slot.pieces = 1;
  slot.pieceBytes = (command.endLba() - command.lba) * geometry_.sectorBytes();
  const bool intoPlace = command.kind == CommandKind::read && movable(command) &&
                         slot.pieceBytes == uint64_t{command.blocks} * geometry_.sectorBytes();
  slot.memory = intoPlace ? command.data : slot.own.atLeast(slot.pieceBytes);
}

void FileDrive::submitRest(uint32_t index) {
  const Slot& slot = slots_[index];
  const DriveCommand& command = slot.command;
  FileRequest request;
  request.operation = slot.operation;
  request.dataSync = command.forceUnitAccess && slot.operation == FileRequest::Operation::write;
  request.slot = index;
  request.offset = (command.lba + uint64_t{slot.piece} * command.lbaStep) * geometry_.sectorBytes() + slot.pieceDone;
  request.bytes = slot.pieceBytes - slot.pieceDone;
  request.data = slot.memory == nullptr ? nullptr : slot.memory + slot.piece * slot.memoryStep + slot.pieceDone;
  engine_->submit(request);
}

bool FileDrive::poll(DriveCompletion& out, bool wait) {
  if (!ready_.empty()) {
    out = ready_.back();
    ready_.pop_back();
    return true;
  }
  FileReply reply;
  while (running_ != 0 && engine_->poll(reply, wait)) {
    if (advance(reply, out)) {
      return true;
    }
  }
  return false;
}

bool FileDrive::pieceEnded(const FileReply& reply) {
  Slot& slot = slots_[reply.slot];
  if (reply.result <= 0 || !isTransfer(slot.operation)) {
    return true;
  }
  slot.pieceDone += static_cast<uint64_t>(reply.result);
  return slot.pieceDone >= slot.pieceBytes;
}

bool FileDrive::advance(const FileReply& reply, DriveCompletion& out) {
  if (!pieceEnded(reply)) {
    submitRest(reply.slot);
    return false;
  }
  Slot& slot = slots_[reply.slot];
  const bool moved = reply.result > 0 || (reply.result == 0 && !isTransfer(slot.operation));
  if (moved && slot.piece + 1 < slot.pieces) {
    ++slot.piece;
    slot.pieceDone = 0;
    submitRest(reply.slot);
    return false;
  }
  // Given back before anything is thrown: a reset that follows waits for what is still running.
  --running_;
  freeSlots_.push_back(reply.slot);
  if (reply.result == 0 && isTransfer(slot.operation)) {
    throw DriveError("file '" + file_.path() + "' has become shorter during the test; see who cut it off");
  }
  out.tag = slot.command.tag;
  out.id = slot.command.id;
  if (reply.result < 0) {
    failed(slot, static_cast<int>(-reply.result), out);
  } else {
    finish(slot, out);
  }
  return true;
}

void FileDrive::failed(const Slot& slot, int error, DriveCompletion& out) const {
  if (error != EIO) {
    throw DriveError("file '" + file_.path() + "': a " + commandKindName(slot.command.kind) + " at LBA " +
                     std::to_string(slot.command.lba) + " failed: " + std::generic_category().message(error) +
                     (error == ENOSPC ? "; make room or use a smaller file" : "; check the file system"));
  }
  const uint64_t lba =
      slot.command.lba + uint64_t{slot.piece} * slot.command.lbaStep + slot.pieceDone / geometry_.sectorBytes();
  switch (slot.operation) {
    case FileRequest::Operation::read:
      setSense(out, sense::unrecoveredRead, lba);
      break;
    case FileRequest::Operation::write:
    case FileRequest::Operation::punchHole:
      setSense(out, sense::writeError, lba);
      break;
    case FileRequest::Operation::flush:
      setSense(out, sense::internalFailure);
      break;
  }
}

void FileDrive::finish(Slot& slot, DriveCompletion& out) const {
  const DriveCommand& command = slot.command;
  out.status = scsi_status::good;
  out.senseBytes = 0;
  out.bytesTransferred = 0;
  if (command.kind == CommandKind::read) {
    if (slot.memory != command.data) {
      gather(slot);
    }
    out.bytesTransferred = command.dataBytes;
  } else if (command.kind == CommandKind::verify) {
    judgeVerify(slot, out);
  }
}

void FileDrive::gather(const Slot& slot) const {
  const DriveCommand& command = slot.command;
  const uint64_t sectorBytes = geometry_.sectorBytes();
  const uint64_t unit = sectorBytes + command.trailerBytes;
  for (uint64_t i = 0; i < command.blocks; ++i) {
    std::memcpy(command.data + i * unit, slot.memory + i * command.lbaStep * sectorBytes, sectorBytes);
    std::memset(command.data + i * unit + sectorBytes, 0, command.trailerBytes);
  }
}

void FileDrive::judgeVerify(const Slot& slot, DriveCompletion& out) const {
  const DriveCommand& command = slot.command;
  const uint64_t sectorBytes = geometry_.sectorBytes();
  const uint64_t unit = sectorBytes + command.trailerBytes;
  for (uint64_t i = 0; i < command.blocks; ++i) {
    if (std::memcmp(slot.memory + i * command.lbaStep * sectorBytes, command.data + i * unit, sectorBytes) != 0) {
      setSense(out, sense::miscompareDuringVerify, command.lba + i * command.lbaStep);
      return;
    }
  }
}

void FileDrive::dropEverything() {
  ready_.clear();
  FileReply reply;
  while (running_ != 0 && engine_->poll(reply, true)) {
    // What the kernel cut in two is finished, where all or nothing is promised.
    if (!pieceEnded(reply) && slots_[reply.slot].command.kind == CommandKind::writeAtomic) {
      submitRest(reply.slot);
      continue;
    }
    --running_;
    freeSlots_.push_back(reply.slot);
  }
}

std::unique_ptr<Drive> openFileDrive(DriveAddress& address, uint32_t maxOutstanding) {
  using Direct = TestFileSettings::Direct;
  using Engine = FileDriveSettings::Engine;
  FileDriveSettings settings;
  settings.depth = maxOutstanding;
  settings.geometry = takeGeometry(address);
  settings.file.path = address.target();
  settings.file.sectorBytes = settings.geometry.sectorBytes();
  settings.file.createBytes = address.sizeBytes("size");
  const std::string direct = address.word("direct", {"auto", "on", "off"});
  settings.file.direct = direct == "on" ? Direct::always : direct == "off" ? Direct::never : Direct::wherePossible;
  const std::string engine = address.word("engine", {"auto", "uring", "threads"});
  settings.engine = engine == "uring" ? Engine::uring : engine == "threads" ? Engine::threads : Engine::wherePossible;
  address.checkAllTaken();
  if (settings.file.path.empty()) {
    address.refuse("it names no file; write 'file:PATH'");
  }
  if (settings.file.createBytes) {
    blocksOf(address, *settings.file.createBytes, settings.geometry);
  }
  return std::make_unique<FileDrive>(settings);
}

std::string fileDriveHelp() {
  return "file:PATH[,key=value]...\n"
         "  a regular file; its content is overwritten. PATH has no comma\n"
         "  size=BYTES       creates the file with this size when it does not exist: 4096, 64k, 256m, 1g\n" +
         geometryKeysHelp() +
         "  direct=auto      O_DIRECT where the file system takes it; on: or fail; off: through the page cache\n"
         "  engine=auto      io_uring, or threads where the kernel refuses it; uring: or fail; threads\n";
}

}  // namespace corvane::host
