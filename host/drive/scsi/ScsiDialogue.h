#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/drive/SenseData.h"
#include "host/drive/scsi/ScsiCdb.h"
#include "host/drive/scsi/ScsiTransport.h"

namespace corvane::host {

/// Asks a unit one thing after the other, for the times at which no test's command is outstanding.
///
/// What only kept a command from being carried out (unit attention, busy, task set full) is met by sending it again,
/// for a bounded time.
class ScsiDialogue {
 public:
  /// @param transport has nothing outstanding; outlives the object
  explicit ScsiDialogue(ScsiTransport& transport) : transport_(transport) {}

  /// The answer to a command without data.
  ScsiReply send(const Cdb& block);

  /// The bytes that a command brought, a part of `into`; nothing when it did not end well.
  std::optional<std::span<const uint8_t>> read(const Cdb& block, std::span<uint8_t> into);

  /// The answer to a command that sends data.
  ScsiReply write(const Cdb& block, std::span<uint8_t> data);

  /// Sends TEST UNIT READY until the unit says that it is ready, so that no unit attention is left.
  ///
  /// Throws DriveError when it is still becoming ready after `patience`, or still aborts commands (sense key Bh), or
  /// needs something else first.
  void waitUntilReady(std::chrono::milliseconds patience);

 private:
  ScsiReply once(const ScsiRequest& request);
  ScsiReply untilTaken(const ScsiRequest& request);

  ScsiTransport& transport_;
};

/// Sense key and codes of a check condition; nothing without sense data that can be read.
std::optional<Sense> senseOf(const ScsiReply& reply);

/// Whether the sense data have valid information, for a command on blocks an LBA.
bool hasInformation(const ScsiReply& reply);

/// Whether the command was not carried out because the unit has news.
bool isUnitAttention(const ScsiReply& reply);

/// "03/11/00", or "status 18h" for an answer without sense data.
std::string describeAnswer(const ScsiReply& reply);

}  // namespace corvane::host
