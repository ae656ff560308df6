#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/TransferPlan.h"
#include "host/drive/engine/Engine.h"
#include "host/drive/engine/EngineTarget.h"

namespace corvane::host {

enum class EngineChoice : uint8_t { wherePossible, uring, threads, sync };

/// A drive that is an open file or device, reached through an engine: block n is sector n of it.
///
/// A flush is fdatasync, forced unit access a write with data sync; what a trim is the target says. What a file or
/// device cannot do is done on the way, as TransferPlan says.
///
/// A reset and a power cut let the operation that runs for a command end, and drop what the command still had to do;
/// a volatile cache is not emptied.
class EngineDrive : public Drive {
 public:
  /// @param target     not null
  /// @param engine     not null, made for the target's file and for `depth` requests at once
  /// @param whyThreads why it is not the ring that the user may expect; empty when it is, or when it was not wanted
  EngineDrive(std::unique_ptr<EngineTarget> target, uint32_t depth, std::unique_ptr<Engine> engine,
              std::string whyThreads = {});
  ~EngineDrive() override;
  EngineDrive(const EngineDrive&) = delete;
  EngineDrive& operator=(const EngineDrive&) = delete;

  const DriveGeometry& geometry() const override { return geometry_; }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override;
  uint32_t maxOutstanding() const override { return static_cast<uint32_t>(slots_.size()); }

  void submit(const DriveCommand& command) override;
  bool poll(DriveCompletion& out, bool wait) override;
  void reset() override { dropEverything(); }
  void powerCycle() override { dropEverything(); }
  void useMemory(uint8_t* data, uint64_t bytes) noexcept override { engine_->useMemory(data, bytes); }
  void sendQueued() override { engine_->sendQueued(); }
  bool waitUpTo(uint64_t microseconds) override;

 private:
  /// A command in work: the runs of its plan, one after the other.
  struct Slot {
    TransferPlan plan;
    EngineRequest rest;  ///< what is not moved yet of the run that the engine has
    uint32_t run = 0;    ///< that one
  };

  EngineRequest::Operation operationOf(CommandKind kind) const;
  void dropEverything();
  /// Hands the slot's run to the engine.
  void submitRun(Slot& slot);
  /// Takes note of what an operation moved; true when its run needs no more of it.
  static bool runEnded(EngineRequest& rest, int64_t result);
  /// Takes in what the engine answered; true when the command has ended and `out` says how.
  bool advance(const EngineReply& reply, DriveCompletion& out);
  void failed(const Slot& slot, int error, DriveCompletion& out) const;
  /// Answers a command that is refused, or that has nothing to do; false when it is neither.
  bool answerWithoutTarget(const DriveCommand& command);
  void answerAtOnce(const DriveCommand& command, DriveCompletion completion);

  std::unique_ptr<EngineTarget> target_;
  // The target's, so that no command has to ask it; how it works, the engine says.
  DriveGeometry geometry_;
  DriveCapabilities capabilities_;
  TransferLimits limits_;
  std::string whyThreads_;
  std::vector<Slot> slots_;
  std::vector<uint32_t> freeSlots_;
  std::vector<DriveCompletion> ready_;  ///< answers that needed no operation
  uint32_t running_ = 0;                ///< requests that the engine has
  // The last member, so that it is gone before the memory that its requests point to.
  std::unique_ptr<Engine> engine_;
};

/// Reads `engine=` of an address.
EngineChoice takeEngine(DriveAddress& address);

/// What `takeEngine` understands, for `--help`.
std::string engineKeyHelp();

/// A drive with the engine that was chosen. Throws DriveError, naming the target, where the kernel refuses the ring
/// that was asked for.
std::unique_ptr<Drive> makeEngineDrive(std::unique_ptr<EngineTarget> target, uint32_t depth, EngineChoice choice);

}  // namespace corvane::host
