#pragma once

#include <poll.h>

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/drive/scsi/ScsiTransport.h"
#include "host/drive/scsi/sg/SgDevice.h"
#include "host/drive/scsi/sg/SgStatus.h"

namespace corvane::host {

struct SgSettings {
  std::string path;
  uint32_t timeoutSeconds = 30;  ///< after which the kernel aborts a request
};

/// The way to a SCSI unit through the kernel's SCSI generic driver: version 3 of its interface, asynchronously.
///
/// The kernel copies data between a request's memory and its own, once, unless the administrator has allowed direct I/O
/// (parameter allow_dio of the module sg) and the memory is aligned for the host adapter; nothing is copied here. A
/// request counts against the kernel's time limit from its submission, and the kernel's error handler, not this class,
/// aborts it.
class SgTransport : public ScsiTransport {
 public:
  /// Throws DriveError.
  ///
  /// @param requests at once
  SgTransport(const SgSettings& settings, uint32_t requests);
  /// Where data go straight to a request's memory, waits for what is outstanding, as long as the kernel's limits are.
  ~SgTransport() override;
  SgTransport(const SgTransport&) = delete;
  SgTransport& operator=(const SgTransport&) = delete;

  std::string description() const override;
  uint64_t mostBytes() const override { return device_.mostBytes(); }
  uint32_t mostRequests() const override { return static_cast<uint32_t>(pending_.size()); }

  void submit(const ScsiRequest& request) override;
  bool poll(ScsiReply& out, bool wait) override;
  bool waitUpTo(uint64_t microseconds) override;

  /// A unit that is gone may come back.
  bool canBreak() const override { return true; }

  /// Resets the unit alone: where the host adapter cannot do that, a DriveError and no reset of more. What was
  /// outstanding is waited for, because a host adapter may carry it out after the reset as if nothing had been.
  void resetUnit() override;

 private:
  using Clock = std::chrono::steady_clock;

  /// A request that the kernel has.
  struct Pending {
    uint32_t slot = 0;
    uint32_t opening = 0;  ///< index of SgDevice::openings
    bool repeatable = false;
    std::array<uint8_t, 64> sense{};
  };

  uint32_t idlestOpening() const;
  /// An answer of the transport's own, for a request that the kernel did not take.
  void answer(const ScsiRequest& request, uint32_t status);
  /// Takes an answer from the kernel, if there is one, and says what it means.
  std::optional<SgVerdict> take(ScsiReply& out);
  std::optional<SgVerdict> readOne(uint32_t opening, ScsiReply& out);
  /// Waits for something to take; throws DriveError when the kernel does not keep its own time limit.
  void waitForAnswer();
  void askForReset();
  void drain();
  [[noreturn]] void lose(const std::string& why);

  SgDevice device_;
  uint32_t timeoutSeconds_;
  bool direct_;  ///< data may go straight from and to the memory of requests
  std::vector<Pending> pending_;
  std::vector<uint32_t> free_;  ///< indices of pending_
  std::vector<uint32_t> busy_;  ///< requests of each opening
  std::vector<pollfd> waits_;
  std::vector<ScsiReply> ready_;
  uint32_t next_ = 0;  ///< the opening that is looked at first, so that none starves
  bool lost_ = false;  ///< until the unit was reset
};

}  // namespace corvane::host
