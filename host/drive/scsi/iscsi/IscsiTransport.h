#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/base/Ring.h"
#include "host/drive/scsi/ScsiTransport.h"
#include "host/drive/scsi/iscsi/IscsiConnection.h"
#include "host/drive/scsi/iscsi/IscsiSettings.h"

namespace corvane::host {

/// The way to a logical unit of an iSCSI target (RFC 7143).
///
/// Requests are queued in the order of `submit`; those beyond the target's window of command numbers wait here. When
/// the connection breaks, whatever was outstanding is lost and nothing is sent again. Unit attentions are answers like
/// any other.
class IscsiTransport : public ScsiTransport {
 public:
  /// Connects, logs in and asks whether the unit is there. Throws DriveError.
  explicit IscsiTransport(const IscsiSettings& settings);
  /// Outstanding requests are dropped.
  ~IscsiTransport() override;

  std::string description() const override;
  uint64_t mostBytes() const override;
  uint32_t mostRequests() const override;

  bool canBreak() const override { return true; }

  void submit(const ScsiRequest& request) override;
  bool poll(ScsiReply& out, bool wait) override;
  bool waitUpTo(uint64_t microseconds) override;
  void resetUnit() override;

 private:
  struct Slot;
  using Clock = IscsiConnection::Clock;

  /// An ABORT TASK; one at a time.
  struct Abort {
    Slot* slot = nullptr;  ///< null: none runs, or what was aborted has been answered meanwhile
    bool running = false;
    bool answered = false;
    bool accepted = false;
  };

  void connect();
  void checkUnit();
  void makeTask(Slot& slot, const ScsiRequest& request);
  bool takeReady(ScsiReply& out);
  void free(Slot& slot);
  void dropAll();
  /// Looks for requests that take too long.
  void watchTimes();
  void startAbort(Slot& slot);
  void endAbort();
  bool resetOnce();
  void reconnect();
  [[noreturn]] void lose(const std::string& why);
  void throwIfLost();

  static void completed(iscsi_context* context, int status, void* data, void* slot);
  static void abortAnswered(iscsi_context* context, int status, void* data, void* self);

  const IscsiSettings settings_;
  const uint32_t qualifier_;
  std::vector<Slot> slots_;
  std::vector<Slot*> free_;
  Ring<Slot*> ready_;  ///< answered and not yet taken
  uint32_t outstanding_ = 0;
  bool cancelled_ = false;  ///< the library gave up requests that nobody asked it to
  bool dropping_ = false;
  Abort abort_;
  Clock::time_point nextLook_;
  std::unique_ptr<IscsiConnection> connection_;  // goes first: its end calls back
};

}  // namespace corvane::host
