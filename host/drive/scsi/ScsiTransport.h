#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "host/drive/SenseData.h"

namespace corvane::host {

/// A command descriptor block with its data, on its way to one logical unit.
struct ScsiRequest {
  enum class Data : uint8_t { none, toUnit, fromUnit };

  uint32_t slot = 0;              ///< the caller's number for it
  std::array<uint8_t, 16> cdb{};  ///< SAM: byte 0 is the operation code
  uint32_t cdbBytes = 16;         ///< 6, 10, 12 or 16
  Data direction = Data::none;
  uint8_t* data = nullptr;  ///< untouched by the caller until the reply
  uint64_t bytes = 0;
};

/// How a request ended.
struct ScsiReply {
  uint32_t slot = 0;
  uint32_t status = 0;  ///< SAM status code; `scsi_status::aborted` for one that the transport gave up
  uint64_t bytesMoved = 0;
  uint32_t senseBytes = 0;
  std::array<uint8_t, 64> sense{};
};

/// The way to one SCSI logical unit: carries requests and answers, and knows nothing of what they mean.
///
/// Answers come in any order. One thread uses an object. `submit`, `poll` and `resetUnit` throw DriveConnectionLost
/// when the way is broken: no request that was outstanding will be answered, and `resetUnit` goes on after it reached
/// the unit again. Nothing blocks for ever: a unit that does not answer to a reset or a new connection is given up with
/// a DriveError after the transport's own time limit. The end of an object waits for nobody but a kernel
/// that would still move data from or to the memory of its requests.
class ScsiTransport {
 public:
  virtual ~ScsiTransport() = default;

  /// One phrase for people: "iSCSI 127.0.0.1:3260 iqn.2026-01.example:disk LUN 1".
  virtual std::string description() const = 0;

  /// The most bytes that one request may move.
  virtual uint64_t mostBytes() const = 0;
  /// The most requests at once.
  virtual uint32_t mostRequests() const = 0;
  /// What the address of a request's data should be a multiple of, so that nobody has to copy them.
  virtual uint64_t memoryAlignment() const { return 1; }

  /// Whether `submit` and `poll` may throw DriveConnectionLost.
  virtual bool canBreak() const { return false; }

  virtual void submit(const ScsiRequest& request) = 0;

  /// Takes an answer.
  ///
  /// @param wait until there is one; false at once when nothing is outstanding
  virtual bool poll(ScsiReply& out, bool wait) = 0;

  /// As Drive::waitUpTo.
  virtual bool waitUpTo(uint64_t microseconds) = 0;

  /// LOGICAL UNIT RESET (SAM), after the connection was made again where it was lost. No request that was outstanding
  /// will be answered.
  virtual void resetUnit() = 0;
};

}  // namespace corvane::host
