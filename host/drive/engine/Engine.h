#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace corvane::host {

/// One operation on an open file or block device.
struct EngineRequest {
  enum class Operation : uint8_t {
    read,
    write,
    punchHole,   ///< zeros, and the space is given back where that is possible; never by writing zeros
    writeZeros,  ///< zeros, however the kernel makes them
    discard,     ///< the space is given back; what is read then is the device's affair. Of block devices only
    flush
  };

  Operation operation = Operation::read;
  bool dataSync = false;  ///< of a write: on the medium before it ends
  bool atomic = false;    ///< of a write: wholly or not at all, or refused
  uint32_t slot = 0;      ///< the caller's number for it
  uint64_t offset = 0;    ///< bytes
  uint64_t bytes = 0;
  uint8_t* data = nullptr;  ///< of a read or write; untouched by the caller until the reply
};

struct EngineReply {
  uint32_t slot = 0;
  int64_t result = 0;  ///< bytes moved; a negated errno when it failed
};

/// Carries out operations, in the background and in any order where it can. One thread uses an object.
class Engine {
 public:
  virtual ~Engine() = default;

  /// "io_uring", "thread pool" or "synchronous calls".
  virtual std::string name() const = 0;

  /// As DriveCapabilities::worksInCalls.
  virtual bool worksInCalls() const { return false; }

  /// As Drive::useMemory.
  virtual void useMemory(uint8_t* /*data*/, uint64_t /*bytes*/) noexcept {}

  /// As Drive::sendQueued.
  virtual void sendQueued() {}

  /// Never more requests at once than the engine was made for.
  virtual void submit(const EngineRequest& request) = 0;

  /// Takes a reply.
  ///
  /// @param wait until there is one; the caller has a request outstanding
  virtual bool poll(EngineReply& out, bool wait) = 0;

  /// As Drive::waitUpTo.
  virtual bool waitUpTo(uint64_t microseconds) = 0;
};

/// Through the kernel's submission and completion rings; null, with the cause in `refusal`, where the kernel does not
/// let us have them.
///
/// @param discards the ring must be able to discard; `fd` is then a block device that can
std::unique_ptr<Engine> makeUringEngine(int fd, uint32_t depth, bool discards, std::string& refusal);

/// With pread, pwrite and their like on threads of its own.
std::unique_ptr<Engine> makeThreadEngine(int fd, uint32_t depth);

/// With the same calls in the thread that submits, one after the other, so that every operation has ended when `submit`
/// returns: the least that a command can cost where the answer comes out of memory, and never more than one operation
/// at the drive.
std::unique_ptr<Engine> makeSyncEngine(int fd, uint32_t depth);

}  // namespace corvane::host
