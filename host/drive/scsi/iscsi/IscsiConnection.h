#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "host/drive/scsi/iscsi/IscsiSettings.h"

struct iscsi_context;

namespace corvane::host {

/// One TCP connection with one session (RFC 7143), from the login to the end. It is not made again when it breaks: a
/// write that is sent twice unseen would make the history of its blocks ambiguous.
///
/// One thread uses an object.
class IscsiConnection {
 public:
  using Clock = std::chrono::steady_clock;

  /// How a task management function was answered.
  enum class Answer : uint8_t {
    none,  ///< not at all within the time, or the connection is broken
    done,  ///< carried out, or there was nothing to carry it out on
    refused
  };

  /// Connects and logs in.
  ///
  /// @param qualifier tells the sessions of this host apart; a second one with the same ends the first one
  ///
  /// Throws DriveError: nobody listens, no answer in time, wrong credentials, no such target.
  IscsiConnection(const IscsiSettings& settings, uint32_t qualifier);
  /// Logs out, and does not wait long for it. Every callback of a task that is outstanding is called.
  ~IscsiConnection();
  IscsiConnection(const IscsiConnection&) = delete;
  IscsiConnection& operator=(const IscsiConnection&) = delete;

  iscsi_context* context() { return context_; }

  /// Sends what is to be sent and takes what has come; calls the callbacks of what was answered.
  ///
  /// @param waitMs for something to do; 0: one look
  /// @return false when the connection is broken
  bool serve(int waitMs);

  /// Sends what can be sent at once. False when the connection is broken.
  bool send();

  bool broken() const { return broken_; }
  void setBroken() { broken_ = true; }

  /// Whether the target has every byte of every request. Before, a task must not be taken back: the gap in the command
  /// numbers would hold up all later ones.
  bool allSent() const;

  /// LOGICAL UNIT RESET. Tasks that are answered meanwhile get their callbacks.
  Answer resetUnit(Clock::time_point end);

 private:
  void configure(uint32_t qualifier);
  void connect(Clock::time_point end);
  void logIn(Clock::time_point end);
  void logOut();
  /// Serves until the answer to the request that was just made has come, or the end.
  void await(Clock::time_point end);
  /// Why the connection is broken, as the socket or the library says.
  std::string reason() const;
  [[noreturn]] void fail(const std::string& what) const;
  static void answered(iscsi_context* context, int status, void* data, void* self);
  static void resetAnswered(iscsi_context* context, int status, void* data, void* self);

  const IscsiSettings& settings_;
  iscsi_context* context_ = nullptr;
  bool broken_ = false;
  bool answered_ = false;
  int status_ = 0;
  int socketError_ = 0;
  uint32_t response_ = 0;
};

}  // namespace corvane::host
