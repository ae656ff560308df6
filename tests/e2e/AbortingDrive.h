#pragma once

#include <memory>
#include <unordered_set>
#include <utility>

#include "host/base/Random.h"
#include "host/drive/Drive.h"

namespace corvane::host::e2e {

/// A good drive whose commands get aborted now and then, by another initiator say: a write has then changed nothing
/// or its first blocks, an atomic write nothing or everything.
class AbortingDrive : public Drive {
 public:
  /// @param oneIn aborts one command that changes the medium in so many
  AbortingDrive(std::unique_ptr<Drive> inner, uint64_t seed, uint64_t oneIn)
      : inner_(std::move(inner)), random_(seed), oneIn_(oneIn) {}

  const DriveGeometry& geometry() const override { return inner_->geometry(); }
  const DriveCapabilities& capabilities() const override { return inner_->capabilities(); }
  std::string description() const override { return inner_->description() + ", with aborts"; }
  uint32_t maxOutstanding() const override { return inner_->maxOutstanding(); }

  void submit(const DriveCommand& command) override {
    if (!changesMedium(command.kind) || random_.below(oneIn_) != 0) {
      inner_->submit(command);
      return;
    }
    DriveCommand part = command;
    const bool whole = random_.below(3) == 0;
    if (!whole) {
      part.blocks = command.kind == CommandKind::writeAtomic ? 0 : static_cast<uint32_t>(random_.below(command.blocks));
    }
    if (command.kind == CommandKind::write || command.kind == CommandKind::writeAtomic) {
      part.dataBytes = command.dataBytes / command.blocks * part.blocks;
    }
    aborted_.insert(command.id);
    inner_->submit(part);
  }

  bool poll(DriveCompletion& out, bool wait) override {
    if (!inner_->poll(out, wait)) {
      return false;
    }
    if (aborted_.erase(out.id) != 0) {
      out.status = scsi_status::aborted;
      out.senseBytes = 0;
    }
    return true;
  }

  void reset() override {
    aborted_.clear();
    inner_->reset();
  }
  void powerCycle() override {
    aborted_.clear();
    inner_->powerCycle();
  }

 private:
  std::unique_ptr<Drive> inner_;
  Random random_;
  uint64_t oneIn_;
  std::unordered_set<uint64_t> aborted_;
};

}  // namespace corvane::host::e2e
