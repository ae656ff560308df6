#include "host/drive/file/FileDrive.h"

#include <cerrno>
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

/// What is done to the file for a command.
FileRequest::Operation operationOf(CommandKind kind) {
  switch (kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
      return FileRequest::Operation::write;
    case CommandKind::trim:
      return FileRequest::Operation::punchHole;
    case CommandKind::read:
    case CommandKind::verify:
      return FileRequest::Operation::read;
    case CommandKind::syncCache:
      return FileRequest::Operation::flush;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  throw std::logic_error("a file has no zones and no key");
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
  slot.plan.make(command, geometry_, {.memoryAlignment = file_.memoryAlignment()});
  slot.operation = operationOf(command.kind);
  slot.run = 0;
  slot.runDone = 0;
  ++running_;
  submitRest(index);
}

void FileDrive::answerAtOnce(const DriveCommand& command, DriveCompletion completion) {
  completion.tag = command.tag;
  completion.id = command.id;
  ready_.push_back(completion);
}

void FileDrive::submitRest(uint32_t index) {
  const Slot& slot = slots_[index];
  const TransferPlan::Run run = slot.plan.run(slot.run);
  FileRequest request;
  request.operation = slot.operation;
  request.dataSync = slot.plan.command().forceUnitAccess && slot.operation == FileRequest::Operation::write;
  request.slot = index;
  request.offset = run.lba * geometry_.sectorBytes() + slot.runDone;
  request.bytes = (run.data == nullptr ? run.blocks * geometry_.sectorBytes() : run.bytes) - slot.runDone;
  request.data = run.data == nullptr ? nullptr : run.data + slot.runDone;
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

bool FileDrive::runEnded(const FileReply& reply) {
  Slot& slot = slots_[reply.slot];
  if (reply.result <= 0 || !isTransfer(slot.operation)) {
    return true;
  }
  slot.runDone += static_cast<uint64_t>(reply.result);
  return slot.runDone >= slot.plan.run(slot.run).bytes;
}

bool FileDrive::advance(const FileReply& reply, DriveCompletion& out) {
  if (!runEnded(reply)) {
    submitRest(reply.slot);
    return false;
  }
  Slot& slot = slots_[reply.slot];
  const bool moved = reply.result > 0 || (reply.result == 0 && !isTransfer(slot.operation));
  if (moved && slot.run + 1 < slot.plan.runs()) {
    ++slot.run;
    slot.runDone = 0;
    submitRest(reply.slot);
    return false;
  }
  // Given back before anything is thrown: a reset that follows waits for what is still running.
  --running_;
  freeSlots_.push_back(reply.slot);
  if (reply.result == 0 && isTransfer(slot.operation)) {
    throw DriveError("file '" + file_.path() + "' has become shorter during the test; see who cut it off");
  }
  out.tag = slot.plan.command().tag;
  out.id = slot.plan.command().id;
  if (reply.result < 0) {
    failed(slot, static_cast<int>(-reply.result), out);
  } else {
    slot.plan.finish(out);
  }
  return true;
}

void FileDrive::failed(const Slot& slot, int error, DriveCompletion& out) const {
  if (error != EIO) {
    throw DriveError("file '" + file_.path() + "': a " + commandKindName(slot.plan.command().kind) + " at LBA " +
                     std::to_string(slot.plan.command().lba) + " failed: " + std::generic_category().message(error) +
                     (error == ENOSPC ? "; make room or use a smaller file" : "; check the file system"));
  }
  const uint64_t lba = slot.plan.run(slot.run).lba + slot.runDone / geometry_.sectorBytes();
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

void FileDrive::dropEverything() {
  ready_.clear();
  FileReply reply;
  while (running_ != 0 && engine_->poll(reply, true)) {
    // What the kernel cut in two is finished, where all or nothing is promised.
    if (!runEnded(reply) && slots_[reply.slot].plan.command().kind == CommandKind::writeAtomic) {
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
