#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <utility>
#include <vector>

#include "host/drive/DriveError.h"
#include "host/drive/ForwardingDrive.h"

namespace corvane::host::e2e {

/// What a drive does not come back from.
struct Hang {
  enum class Reset : uint8_t { works, fails, hangs };

  uint64_t after = 0;          ///< commands that are answered
  uint64_t commands = 0;       ///< of those behind them, how many are never answered
  Reset reset = Reset::works;  ///< of those that come behind the first command that is not answered
  bool everyReset = false;     ///< `reset` also tells of those before
  bool powerCutHangs = false;
  bool closingHangs = false;
};

/// What a drive that hangs saw. It is the drive's too, which may never end.
struct HangRecord {
  std::vector<DriveCommand> unanswered;
  uint64_t resets = 0;
  bool closed = false;
};

/// A good drive that never answers some commands, or never comes back from a call. What hangs, hangs for good: the
/// thread that called is lost.
class HangingDrive : public ForwardingDrive {
 public:
  HangingDrive(std::unique_ptr<Drive> drive, const Hang& hang, std::shared_ptr<HangRecord> record)
      : ForwardingDrive(std::move(drive)), hang_(hang), record_(std::move(record)) {}
  ~HangingDrive() override {
    if (hang_.closingHangs) {
      hangForGood();
    }
    record_->closed = true;
  }

  void submit(const DriveCommand& command) override {
    if (++submitted_ > hang_.after && record_->unanswered.size() < hang_.commands) {
      record_->unanswered.push_back(command);
    } else {
      inner().submit(command);
    }
  }
  bool waitUpTo(uint64_t) override { return false; }  // the drive beneath has not got what is waited for
  void reset() override {
    if (hang_.everyReset || !record_->unanswered.empty()) {
      if (hang_.reset == Hang::Reset::hangs) {
        hangForGood();
      }
      if (hang_.reset == Hang::Reset::fails) {
        throw DriveError("nobody is there");
      }
    }
    ++record_->resets;
    inner().reset();
  }
  void powerCycle() override {
    if (hang_.powerCutHangs) {
      hangForGood();
    }
    inner().powerCycle();
  }

 private:
  [[noreturn]] static void hangForGood() {
    static std::binary_semaphore never{0};
    for (;;) {
      never.acquire();
    }
  }

  const Hang hang_;
  const std::shared_ptr<HangRecord> record_;
  uint64_t submitted_ = 0;
};

}  // namespace corvane::host::e2e
