#pragma once

#include <cstdint>
#include <string>

#include "host/drive/Drive.h"
#include "host/drive/TransferPlan.h"
#include "host/drive/engine/Engine.h"

namespace corvane::host {

/// An operation that did not do what it was asked to.
struct FailedOperation {
  EngineRequest::Operation operation = EngineRequest::Operation::read;
  CommandKind command = CommandKind::read;
  uint64_t lba = 0;     ///< of the first block that was not moved, as far as is known
  uint64_t endLba = 0;  ///< one past the last block of the operation
  int error = 0;        ///< errno; 0: nothing was moved, as behind the end
};

/// An open file or device: what an EngineDrive has to know of it. It lives as long as its drive.
class EngineTarget {
 public:
  virtual ~EngineTarget() = default;

  virtual int fd() const = 0;
  /// For complaints: "file '/tmp/x.img'".
  virtual std::string name() const = 0;
  /// For people: `Drive::description`.
  ///
  /// @param engine how the target is reached: "io_uring"
  virtual std::string description(const std::string& engine) const = 0;

  virtual const DriveGeometry& geometry() const = 0;
  virtual const DriveCapabilities& capabilities() const = 0;
  /// Atomic segments are asked of the kernel, one by one, where `splitsAtomicSegments` says so.
  virtual TransferLimits limits() const = 0;
  /// What a trim is, where the capabilities have one.
  virtual EngineRequest::Operation trimOperation() const = 0;

  /// Answers a command of which an operation failed: sets status and sense data. Throws DriveError where the cause is
  /// not the drive's answer but that there is no drive any more.
  virtual void answerFailure(const FailedOperation& failed, DriveCompletion& out) const = 0;
};

/// A check condition for an operation that the medium did not take: unrecovered read error or write error at the LBA,
/// or an internal failure for a flush.
void setMediumError(const FailedOperation& failed, DriveCompletion& out);

}  // namespace corvane::host
