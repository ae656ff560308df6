#pragma once

#include <liburing.h>

#include <cstdint>
#include <initializer_list>

namespace corvane::host {

/// The kernel's submission and completion rings (io_uring), and the account of what the kernel has.
///
/// The end of an object waits until everything that the kernel has was answered, because until then the kernel may
/// write to the memory of a request; what was not sent yet is dropped. One thread uses an object.
class KernelRing {
 public:
  struct Answer {
    uint32_t slot = 0;
    int32_t result = 0;  ///< as the operation gives it; a negated errno when it failed
  };

  /// @param depth the most requests at once
  /// @param flags of io_uring_setup(2)
  KernelRing(uint32_t depth, unsigned flags);
  ~KernelRing();
  KernelRing(const KernelRing&) = delete;
  KernelRing& operator=(const KernelRing&) = delete;

  /// Why the kernel does not let us have the rings, an errno; 0 when it does. Then alone the other operations work.
  int error() const { return error_; }

  /// Whether the kernel's rings know an operation.
  bool knows(std::initializer_list<int> operations);

  /// Has the kernel start what it cannot start at once on so many threads at most, of either kind; an errno, or 0.
  int limitWorkers(unsigned most);

  /// Has the kernel hold the file from now on, as number 0 of requests with IOSQE_FIXED_FILE, so that it does not look
  /// it up for each. False when it does not.
  bool registerFile(int fd);

  /// Has the kernel hold the pages of the memory, as number 0 of requests on fixed buffers, so that it does not pin
  /// them for each. What was registered before is given up. False when the kernel does not, for want of locked memory
  /// or because it cannot.
  bool registerMemory(uint8_t* data, uint64_t bytes);

  /// An entry that the caller prepares and then queues. Throws std::logic_error when more are queued than `depth`.
  io_uring_sqe* entry();

  /// @param slot the caller's number for it
  void queue(io_uring_sqe* entry, uint32_t slot);

  /// Hands everything that is queued to the kernel in one call; for want of memory it may leave some of it for later.
  /// Throws DriveError.
  void send();

  /// Takes an answer. Throws DriveError, also when the kernel has no memory for a request for a long time.
  ///
  /// As long as answers lie ready, what is queued waits for company, so that one system call sends it all: until no
  /// further answer is ready, or `mostUnsent()` are queued. Nothing stays unsent once there is nothing to be taken.
  ///
  /// @param wait until there is one; the caller has a request outstanding
  bool poll(Answer& out, bool wait);

  /// Sends what is queued and sleeps until there is an answer, or so long. False at once when the kernel has nothing
  /// that it could answer, or cannot wait for a time without a request of its own (Linux before 5.11). Throws
  /// DriveError.
  bool waitUpTo(uint64_t microseconds);

  /// The most requests that a poll leaves unsent: half the depth, so that the drive has the other half to work on.
  uint32_t mostUnsent() const { return mostUnsent_; }

 private:
  /// Takes note of what an attempt to send gave: `sent` requests, or a negated errno. False when nothing could be taken
  /// for want of memory, which answers that are taken make.
  bool wereTaken(int sent);
  void sendOneAtLeast();
  bool take(Answer& out);
  /// Sends and waits in one call.
  void waitForAnswer();

  io_uring ring_{};
  int error_ = 0;
  bool hasFile_ = false;
  bool hasMemory_ = false;
  uint32_t mostUnsent_ = 0;
  uint32_t unsent_ = 0;
  uint32_t atKernel_ = 0;  ///< sent and not answered yet
};

}  // namespace corvane::host
