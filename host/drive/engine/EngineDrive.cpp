#include "host/drive/engine/EngineDrive.h"

#include <stdexcept>
#include <utility>

#include "host/drive/CommandCheck.h"
#include "host/drive/DriveError.h"
#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

bool isTransfer(EngineRequest::Operation operation) {
  return operation == EngineRequest::Operation::read || operation == EngineRequest::Operation::write;
}

}  // namespace

EngineDrive::EngineDrive(std::unique_ptr<EngineTarget> target, uint32_t depth, std::unique_ptr<Engine> engine,
                         std::string whyThreads)
    : target_(std::move(target)),
      geometry_(target_->geometry()),
      capabilities_(target_->capabilities()),
      limits_(target_->limits()),
      whyThreads_(std::move(whyThreads)),
      slots_(depth),
      engine_(std::move(engine)) {
  capabilities_.worksInCalls = engine_->worksInCalls();
  freeSlots_.reserve(depth);
  for (uint32_t i = 0; i < depth; ++i) {
    slots_[i].rest.slot = i;
  }
  for (uint32_t i = depth; i-- > 0;) {
    freeSlots_.push_back(i);
  }
  ready_.reserve(depth);
}

EngineDrive::~EngineDrive() {
  try {
    dropEverything();
  } catch (const std::exception&) {
    // Nobody is left who could be told; the engine's own end still waits for the kernel.
    running_ = 0;
  }
}

std::string EngineDrive::description() const {
  return target_->description(engine_->name() +
                              (whyThreads_.empty() ? "" : " (io_uring is refused: " + whyThreads_ + ")"));
}

EngineRequest::Operation EngineDrive::operationOf(CommandKind kind) const {
  switch (kind) {
    case CommandKind::write:
    case CommandKind::writeAtomic:
    case CommandKind::writeSame:
      return EngineRequest::Operation::write;
    case CommandKind::trim:
      return target_->trimOperation();
    case CommandKind::read:
    case CommandKind::verify:
      return EngineRequest::Operation::read;
    case CommandKind::syncCache:
      return EngineRequest::Operation::flush;
    case CommandKind::zoneReset:
    case CommandKind::invalidate:
      break;
  }
  throw std::logic_error("what is reached through an engine has no zones and no key");
}

void EngineDrive::submit(const DriveCommand& command) {
  if (freeSlots_.empty()) {
    throw std::logic_error("more commands than the drive takes at once");
  }
  if (!isPlainTransfer(command, geometry_) && answerWithoutTarget(command)) {
    return;
  }
  const uint32_t index = freeSlots_.back();
  Slot& slot = slots_[index];
  slot.plan.make(command, geometry_, limits_);
  slot.rest.operation = operationOf(command.kind);
  slot.rest.dataSync = command.forceUnitAccess && slot.rest.operation == EngineRequest::Operation::write;
  slot.rest.atomic = command.kind == CommandKind::writeAtomic && limits_.splitsAtomicSegments;
  slot.run = 0;
  submitRun(slot);
  // Only now, so that a command that could not be started has taken nothing.
  freeSlots_.pop_back();
  ++running_;
}

bool EngineDrive::answerWithoutTarget(const DriveCommand& command) {
  DriveCompletion completion;
  if (const std::optional<Sense> refusal = refuse(command, geometry_, capabilities_)) {
    setSense(completion, *refusal);
  } else if (command.blocks != 0 || command.kind == CommandKind::syncCache) {
    return false;
  }
  answerAtOnce(command, completion);
  return true;
}

void EngineDrive::answerAtOnce(const DriveCommand& command, DriveCompletion completion) {
  completion.tag = command.tag;
  completion.id = command.id;
  ready_.push_back(completion);
}

void EngineDrive::submitRun(Slot& slot) {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  slot.rest.offset = run.lba * geometry_.sectorBytes();
  slot.rest.bytes = run.data == nullptr ? run.blocks * geometry_.sectorBytes() : run.bytes;
  slot.rest.data = run.data;
  engine_->submit(slot.rest);
}

bool EngineDrive::poll(DriveCompletion& out, bool wait) {
  if (!ready_.empty()) {
    out = ready_.back();
    ready_.pop_back();
    return true;
  }
  EngineReply reply;
  while (running_ != 0 && engine_->poll(reply, wait)) {
    if (advance(reply, out)) {
      return true;
    }
  }
  return false;
}

bool EngineDrive::waitUpTo(uint64_t microseconds) {
  return !ready_.empty() || (running_ != 0 && engine_->waitUpTo(microseconds));
}

inline bool EngineDrive::runEnded(EngineRequest& rest, int64_t result) {
  if (result <= 0 || !isTransfer(rest.operation)) {
    return true;
  }
  const auto moved = static_cast<uint64_t>(result);
  rest.offset += moved;
  rest.bytes -= moved;
  rest.data += moved;
  return rest.bytes == 0;
}

bool EngineDrive::advance(const EngineReply& reply, DriveCompletion& out) {
  Slot& slot = slots_[reply.slot];
  if (!runEnded(slot.rest, reply.result)) {
    engine_->submit(slot.rest);
    return false;
  }
  const bool moved = reply.result > 0 || (reply.result == 0 && !isTransfer(slot.rest.operation));
  if (moved && slot.run + 1 < slot.plan.runs()) {
    ++slot.run;
    submitRun(slot);
    return false;
  }
  // Given back before anything is thrown: a reset that follows waits for what is still running.
  --running_;
  freeSlots_.push_back(reply.slot);
  out.tag = slot.plan.command().tag;
  out.id = slot.plan.command().id;
  if (moved) {
    slot.plan.finish(out);
  } else {
    failed(slot, static_cast<int>(-reply.result), out);
  }
  return true;
}

void EngineDrive::failed(const Slot& slot, int error, DriveCompletion& out) const {
  const TransferPlan::Run run = slot.plan.run(slot.run);
  FailedOperation failure;
  failure.operation = slot.rest.operation;
  failure.command = slot.plan.command().kind;
  failure.lba = slot.rest.offset / geometry_.sectorBytes();
  failure.endLba = run.lba + run.blocks;
  failure.error = error;
  out.bytesTransferred = 0;
  target_->answerFailure(failure, out);
}

void EngineDrive::dropEverything() {
  ready_.clear();
  EngineReply reply;
  while (running_ != 0 && engine_->poll(reply, true)) {
    // What the kernel cut in two is finished, where all or nothing is promised.
    Slot& slot = slots_[reply.slot];
    if (!runEnded(slot.rest, reply.result) && slot.plan.command().kind == CommandKind::writeAtomic) {
      engine_->submit(slot.rest);
      continue;
    }
    --running_;
    freeSlots_.push_back(reply.slot);
  }
}

void setMediumError(const FailedOperation& failed, DriveCompletion& out) {
  switch (failed.operation) {
    case EngineRequest::Operation::read:
      setSense(out, sense::unrecoveredRead, failed.lba);
      break;
    case EngineRequest::Operation::write:
    case EngineRequest::Operation::punchHole:
    case EngineRequest::Operation::writeZeros:
    case EngineRequest::Operation::discard:
      setSense(out, sense::writeError, failed.lba);
      break;
    case EngineRequest::Operation::flush:
      setSense(out, sense::internalFailure);
      break;
  }
}

EngineChoice takeEngine(DriveAddress& address) {
  const std::string engine = address.word("engine", {"auto", "uring", "threads", "sync"});
  return engine == "uring"     ? EngineChoice::uring
         : engine == "threads" ? EngineChoice::threads
         : engine == "sync"    ? EngineChoice::sync
                               : EngineChoice::wherePossible;
}

std::string engineKeyHelp() {
  return "  engine=auto      io_uring, or threads where the kernel refuses it; uring: or fail; threads;\n"
         "                   sync: plain calls, one operation at a time, for what answers from memory\n";
}

std::unique_ptr<Drive> makeEngineDrive(std::unique_ptr<EngineTarget> target, uint32_t depth, EngineChoice choice) {
  std::unique_ptr<Engine> engine;
  std::string whyThreads;
  if (choice == EngineChoice::sync) {
    engine = makeSyncEngine(target->fd(), depth);
  } else if (choice != EngineChoice::threads) {
    const bool discards = target->capabilities().trim && target->trimOperation() == EngineRequest::Operation::discard;
    engine = makeUringEngine(target->fd(), depth, discards, whyThreads);
    if (engine == nullptr && choice == EngineChoice::uring) {
      throw DriveError(target->name() + " cannot be used with engine=uring: io_uring is refused: " + whyThreads +
                       "; leave engine= out for a thread pool instead");
    }
  }
  if (engine == nullptr) {
    engine = makeThreadEngine(target->fd(), depth);
  }
  return std::make_unique<EngineDrive>(std::move(target), depth, std::move(engine), std::move(whyThreads));
}

}  // namespace corvane::host
