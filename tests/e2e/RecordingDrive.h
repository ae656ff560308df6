#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/drive/ForwardingDrive.h"

namespace corvane::host::e2e {

/// One thing that happened to a drive.
struct DriveEvent {
  enum class What : uint8_t { command, reset, powerCycle };

  What what = What::command;
  CommandKind kind = CommandKind::read;  ///< of a command, as is the rest
  uint64_t lba = 0;
  uint32_t blocks = 0;
  uint32_t trailerBytes = 0;
  uint64_t dataSum = 0;  ///< of what is written or held against the medium

  bool is(CommandKind wanted) const { return what == What::command && kind == wanted; }
  bool operator==(const DriveEvent&) const = default;
};

using DriveEvents = std::vector<DriveEvent>;

/// Writes down what a drive is told to do, in the order in which it is told.
class RecordingDrive : public ForwardingDrive {
 public:
  RecordingDrive(std::unique_ptr<Drive> drive, DriveEvents& events)
      : ForwardingDrive(std::move(drive)), events_(events) {}

  void submit(const DriveCommand& command) override {
    DriveEvent event{
        .kind = command.kind, .lba = command.lba, .blocks = command.blocks, .trailerBytes = command.trailerBytes};
    if (command.kind != CommandKind::read) {
      for (uint64_t i = 0; i < command.dataBytes; ++i) {
        event.dataSum = event.dataSum * 31 + command.data[i];
      }
    }
    events_.push_back(event);
    inner().submit(command);
  }
  void reset() override {
    events_.push_back({.what = DriveEvent::What::reset});
    inner().reset();
  }
  void powerCycle() override {
    events_.push_back({.what = DriveEvent::What::powerCycle});
    inner().powerCycle();
  }

 private:
  DriveEvents& events_;
};

}  // namespace corvane::host::e2e
