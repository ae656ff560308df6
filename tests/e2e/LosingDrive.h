#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/drive/DriveError.h"
#include "host/drive/ForwardingDrive.h"

namespace corvane::host::e2e {

/// Where the connection breaks.
enum class Break : uint8_t {
  beforeSubmit,  ///< the command never reaches the drive
  afterSubmit,   ///< it does, but nobody hears of it
  instead,       ///< of a completion that the drive has sent
};

/// A drive behind a connection that breaks when the test says so. What is outstanding then is left by the drive beneath
/// as a reset leaves it.
class LosingDrive : public ForwardingDrive {
 public:
  /// Asked at each place where the connection can break, with the command of a submission.
  using Judge = std::function<bool(Break where, const DriveCommand* command)>;

  LosingDrive(std::unique_ptr<Drive> drive, Judge judge)
      : ForwardingDrive(std::move(drive)), judge_(std::move(judge)), claims_(inner().capabilities()) {
    claims_.connectionCanBreak = true;
  }

  const DriveCapabilities& capabilities() const override { return claims_; }
  std::string description() const override { return inner().description() + ", far away"; }

  void submit(const DriveCommand& command) override {
    failWhileBroken();
    if (judge_(Break::beforeSubmit, &command)) {
      breakConnection("the command was not sent");
    }
    inner().submit(command);
    if (judge_(Break::afterSubmit, &command)) {
      breakConnection("no answer came");
    }
  }

  bool poll(DriveCompletion& out, bool wait) override {
    failWhileBroken();
    if (!inner().poll(out, wait)) {
      return false;
    }
    if (judge_(Break::instead, nullptr)) {
      breakConnection("an answer was lost");
    }
    return true;
  }

  void reset() override {
    if (resetsThatFail != 0) {
      --resetsThatFail;
      throw DriveConnectionLost("nobody answers");
    }
    broken_ = false;
    inner().reset();
  }

  void powerCycle() override {
    broken_ = false;
    inner().powerCycle();
  }

  uint32_t resetsThatFail = 0;  ///< of the next ones

 private:
  void failWhileBroken() const {
    if (broken_) {
      throw DriveConnectionLost("there is no connection");
    }
  }

  [[noreturn]] void breakConnection(const std::string& how) {
    broken_ = true;
    inner().reset();
    throw DriveConnectionLost(how);
  }

  Judge judge_;
  DriveCapabilities claims_;
  bool broken_ = false;
};

}  // namespace corvane::host::e2e
