#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/drive/nvme/NvmeCommand.h"

namespace corvane::host {

class NvmeDevice;

/// An I/O command on its way.
struct NvmeRequest {
  uint32_t slot = 0;  ///< the caller's number for it
  NvmeCommand command;
};

struct NvmeReply {
  uint32_t slot = 0;
  int32_t result = 0;  ///< NVMe status, 0 when all is well; a negated errno when the kernel did not carry it out
};

/// The way to one NVMe namespace: carries commands and their ends, and knows nothing of what they mean.
///
/// Ends come in any order. One thread uses an object. The time limit of a command is the kernel's; one that it gave up,
/// or that a reset took back, ends with -EINTR. The end of an object waits for what the kernel has, because until
/// then the kernel may write to its memory.
class NvmePassthrough {
 public:
  virtual ~NvmePassthrough() = default;

  /// One phrase for people: "io_uring commands on /dev/ng0n1".
  virtual std::string name() const = 0;
  virtual uint32_t nsid() const = 0;
  /// The most bytes that the kernel moves with one command.
  virtual uint64_t mostBytes() const = 0;
  /// Why `reset` cannot work; empty when it can.
  virtual std::string whyNoReset() const = 0;

  /// As Drive::sendQueued.
  virtual void sendQueued() {}

  /// Never more requests at once than it was made for.
  virtual void submit(const NvmeRequest& request) = 0;

  /// Takes an end.
  ///
  /// @param wait until there is one; the caller has a request outstanding
  virtual bool poll(NvmeReply& out, bool wait) = 0;

  /// As Drive::waitUpTo.
  virtual bool waitUpTo(uint64_t microseconds) = 0;

  /// Carries out an admin command and waits for its end.
  ///
  /// @param result dword 0 of its completion; may be null
  /// @return as `NvmeReply::result`
  virtual int32_t admin(const NvmeCommand& command, uint32_t* result) = 0;

  /// Carries out an I/O command and waits for its end; only while nothing is outstanding.
  virtual int32_t runAlone(const NvmeCommand& command) = 0;

  /// Resets the controller, which ends the commands of all its namespaces. What was outstanding here is answered
  /// through `poll` all the same. Throws DriveError.
  virtual void reset() = 0;
};

/// By io_uring commands on the namespace's generic device; null, with the cause in `refusal`, where the kernel does not
/// have them or does not let us.
std::unique_ptr<NvmePassthrough> makeNvmeUring(const std::shared_ptr<NvmeDevice>& device, uint32_t depth,
                                               std::string& refusal);

/// By ioctl on threads of its own.
std::unique_ptr<NvmePassthrough> makeNvmeThreads(const std::shared_ptr<NvmeDevice>& device, uint32_t depth);

}  // namespace corvane::host
