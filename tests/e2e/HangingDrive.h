#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <utility>
#include <vector>

#include "host/drive/Drive.h"
#include "host/drive/DriveError.h"

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

/// What a drive that hangs saw; outlives it.
struct HangRecord {
  std::vector<DriveCommand> unanswered;
  uint64_t resets = 0;
  bool closed = false;
};

/// A good drive that never answers some commands, or never comes back from a call. What hangs, hangs for good: the
/// thread that called is lost.
class HangingDrive : public Drive {
 public:
  HangingDrive(std::unique_ptr<Drive> inner, const Hang& hang, HangRecord& record)
      : inner_(std::move(inner)), hang_(hang), record_(record) {}
  ~HangingDrive() override {
    if (hang_.closingHangs) {
      hangForGood();
    }
    record_.closed = true;
  }

  const DriveGeometry& geometry() const override { return inner_->geometry(); }
  const DriveCapabilities& capabilities() const override { return inner_->capabilities(); }
  std::string description() const override { return inner_->description(); }
  uint32_t maxOutstanding() const override { return inner_->maxOutstanding(); }

  void submit(const DriveCommand& command) override {
    if (++submitted_ > hang_.after && record_.unanswered.size() < hang_.commands) {
      record_.unanswered.push_back(command);
    } else {
      inner_->submit(command);
    }
  }
  bool poll(DriveCompletion& out, bool wait) override { return inner_->poll(out, wait); }
  void reset() override {
    if (hang_.everyReset || !record_.unanswered.empty()) {
      if (hang_.reset == Hang::Reset::hangs) {
        hangForGood();
      }
      if (hang_.reset == Hang::Reset::fails) {
        throw DriveError("nobody is there");
      }
    }
    ++record_.resets;
    inner_->reset();
  }
  void powerCycle() override {
    if (hang_.powerCutHangs) {
      hangForGood();
    }
    inner_->powerCycle();
  }

 private:
  [[noreturn]] static void hangForGood() {
    static std::binary_semaphore never{0};
    for (;;) {
      never.acquire();
    }
  }

  std::unique_ptr<Drive> inner_;
  const Hang hang_;
  HangRecord& record_;
  uint64_t submitted_ = 0;
};

}  // namespace corvane::host::e2e
