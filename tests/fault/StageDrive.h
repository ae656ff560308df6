#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/SenseData.h"
#include "host/drive/sim/SimDrive.h"

namespace corvane::host {

/// A simulated drive whose course a test directs: it fails commands, falls silent, and reports what was never asked.
///
/// It also resets zones and declares blocks invalid; both leave zeros.
class StageDrive : public Drive {
 public:
  explicit StageDrive(const SimSettings& settings) : sim_(settings), capabilities_(sim_.capabilities()) {
    capabilities_.zoneReset = capabilities_.invalidate = true;
  }

  const DriveGeometry& geometry() const override { return sim_.geometry(); }
  const DriveCapabilities& capabilities() const override { return capabilities_; }
  std::string description() const override { return "stage"; }
  uint32_t maxOutstanding() const override { return sim_.maxOutstanding(); }

  void submit(const DriveCommand& command) override {
    received_.push_back(command);
    if (failing_ && failing_->kind == command.kind && failing_->skip-- == 0) {
      answers_.push_back(failing_->completion);
      answers_.back().tag = command.tag;
      answers_.back().id = command.id;
      failing_.reset();
      return;
    }
    DriveCommand honest = command;
    if (command.kind == CommandKind::zoneReset || command.kind == CommandKind::invalidate) {
      honest.kind = CommandKind::trim;
    }
    sim_.submit(honest);
  }

  bool poll(DriveCompletion& out, bool wait) override {
    if (answersLeft_ == 0) {
      return false;
    }
    if (!answers_.empty()) {
      out = answers_.front();
      answers_.pop_front();
    } else if (!sim_.poll(out, wait)) {
      return false;
    }
    --answersLeft_;
    return true;
  }

  void reset() override {
    answers_.clear();
    sim_.reset();
  }
  void powerCycle() override {
    answers_.clear();
    sim_.powerCycle();
  }

  /// The next command of this kind, after so many others of it, is not carried out and ends so.
  void failNext(CommandKind kind, const Sense& sense, uint64_t skip = 0) {
    failing_ = Failing{.kind = kind, .skip = skip, .completion = {}};
    setSense(failing_->completion, sense);
  }
  void abortNext(CommandKind kind) {
    failing_ = Failing{.kind = kind, .skip = 0, .completion = {.status = scsi_status::aborted}};
  }

  /// An answer to a command that nobody gave.
  void answerStray(uint32_t tag, uint64_t id) {
    DriveCompletion completion;
    completion.tag = tag;
    completion.id = id;
    answers_.push_back(completion);
  }

  /// Falls silent after so many further answers.
  void silenceAfter(uint64_t answers) { answersLeft_ = answers; }
  void speakAgain() { answersLeft_ = std::numeric_limits<uint64_t>::max(); }

  /// Every command that arrived, the first one first.
  const std::vector<DriveCommand>& received() const { return received_; }

  SimMedium& medium() { return sim_.medium(); }

 private:
  struct Failing {
    CommandKind kind = CommandKind::read;
    uint64_t skip = 0;
    DriveCompletion completion;
  };

  SimDrive sim_;
  DriveCapabilities capabilities_;
  std::vector<DriveCommand> received_;
  std::optional<Failing> failing_;
  std::deque<DriveCompletion> answers_;  ///< that come before those of the simulated drive
  uint64_t answersLeft_ = std::numeric_limits<uint64_t>::max();
};

}  // namespace corvane::host
