#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

#include "host/drive/ForwardingDrive.h"
#include "host/drive/SenseData.h"

namespace corvane::host::e2e {

/// How a command fails.
struct Fault {
  uint32_t blocksLeftOut = 0;               ///< of a write: its first blocks, which do not reach the medium
  uint32_t blocksDone = 0;                  ///< of a write: those behind, which reach the medium all the same
  std::optional<Sense> sense = {};          ///< nothing: the command is reported as aborted
  std::optional<uint64_t> failingLba = {};  ///< that the sense data names
  bool withoutSenseData = false;            ///< the drive has nothing to say about its check condition
  uint16_t unitErrorCode = 0;               ///< that the sense data carries in its vendor's bytes; 0: none
};

/// A drive some of whose commands fail, as the test decides for each of them before it is carried out.
class FailingDrive : public ForwardingDrive {
 public:
  /// Nothing lets the command pass.
  using Judge = std::function<std::optional<Fault>(const DriveCommand&)>;
  /// Told of each power cut, before it happens.
  using Watch = std::function<void()>;

  FailingDrive(std::unique_ptr<Drive> drive, Judge judge, Watch beforePowerCut = {})
      : ForwardingDrive(std::move(drive)), judge_(std::move(judge)), beforePowerCut_(std::move(beforePowerCut)) {}

  std::string description() const override { return inner().description() + ", with faults"; }

  void submit(const DriveCommand& command) override {
    const std::optional<Fault> fault = judge_(command);
    if (!fault) {
      inner().submit(command);
      return;
    }
    faults_.emplace(command.id, *fault);
    inner().submit(partOf(command, *fault));
  }

  bool poll(DriveCompletion& out, bool wait) override {
    if (!inner().poll(out, wait)) {
      return false;
    }
    if (const auto found = faults_.find(out.id); found != faults_.end()) {
      fail(out, found->second);
      faults_.erase(found);
    }
    return true;
  }

  void reset() override {
    faults_.clear();
    inner().reset();
  }
  void powerCycle() override {
    if (beforePowerCut_) {
      beforePowerCut_();
    }
    faults_.clear();
    inner().powerCycle();
  }

 private:
  static DriveCommand partOf(const DriveCommand& command, const Fault& fault) {
    DriveCommand part = command;
    if (command.kind == CommandKind::syncCache) {
      // A flush has no part that could be left out: a read of nothing stands for it.
      part.kind = CommandKind::read;
    } else if (command.kind != CommandKind::writeSame) {
      const uint64_t unit = command.dataBytes / command.blocks;
      part.dataBytes = unit * fault.blocksDone;
      part.data = command.data == nullptr ? nullptr : command.data + unit * fault.blocksLeftOut;
    }
    part.lba += uint64_t{fault.blocksLeftOut} * command.lbaStep;
    part.blocks = fault.blocksDone;
    return part;
  }

  static void fail(DriveCompletion& out, const Fault& fault) {
    out.bytesTransferred = 0;
    if (!fault.sense) {
      out.status = scsi_status::aborted;
      out.senseBytes = 0;
      return;
    }
    setSense(out, *fault.sense, fault.failingLba);
    if (fault.withoutSenseData) {
      out.senseBytes = 0;
    }
    if (fault.unitErrorCode != 0) {
      constexpr uint32_t unitErrorCodeOffset = 20;  // of fixed-format sense data
      out.sense.at(unitErrorCodeOffset) = static_cast<uint8_t>(fault.unitErrorCode >> 8);
      out.sense.at(unitErrorCodeOffset + 1) = static_cast<uint8_t>(fault.unitErrorCode & 0xFF);
      out.senseBytes = unitErrorCodeOffset + 2;
      out.sense.at(7) = unitErrorCodeOffset + 2 - 8;  // the additional length
    }
  }

  Judge judge_;
  Watch beforePowerCut_;
  std::unordered_map<uint64_t, Fault> faults_;
};

}  // namespace corvane::host::e2e
