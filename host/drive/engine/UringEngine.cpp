#include <fcntl.h>
#include <liburing.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "host/drive/KernelRing.h"
#include "host/drive/engine/Engine.h"
#include "host/drive/engine/KernelFlags.h"

namespace corvane::host {
namespace {

std::string textOf(int error) { return std::generic_category().message(error); }

/// More memory than that is not pinned: it would all be taken from the system at once, whether it is read to or not.
constexpr uint64_t mostPinnedBytes = uint64_t{64} << 20;

class UringEngine : public Engine {
 public:
  UringEngine(int fd, uint32_t depth) : fd_(fd), ring_(depth, 0) {
    if (ring_.error() == 0 && ring_.registerFile(fd)) {
      fd_ = 0;
      fileFlags_ = IOSQE_FIXED_FILE;
    }
  }

  /// Why the kernel does not let us have the ring, an errno; 0 when it does.
  int error() const { return ring_.error(); }

  /// Whether the kernel's ring knows everything that is needed.
  bool complete() {
    return ring_.knows({IORING_OP_READ, IORING_OP_READ_FIXED, IORING_OP_WRITE, IORING_OP_FSYNC, IORING_OP_FALLOCATE});
  }

  /// Whether the kernel's ring can discard. Asked with an empty range: a kernel that knows the command takes offence at
  /// the range, and nothing is lost.
  bool discards() {
    EngineRequest nothing;
    nothing.operation = EngineRequest::Operation::discard;
    submit(nothing);
    EngineReply reply;
    poll(reply, true);
    return reply.result == -EINVAL;
  }

  std::string name() const override { return "io_uring"; }

  void submit(const EngineRequest& request) override {
    io_uring_sqe* entry = ring_.entry();
    // The kernel moves at most 2 GiB in one go anyway; what is left is asked for by the caller.
    const auto bytes = static_cast<unsigned>(std::min<uint64_t>(request.bytes, uint64_t{1} << 30));
    switch (request.operation) {
      case EngineRequest::Operation::read:
        prepareRead(entry, request, bytes);
        break;
      case EngineRequest::Operation::write:
        io_uring_prep_write(entry, fd_, request.data, bytes, request.offset);
        entry->rw_flags = writeFlags(request);
        break;
      case EngineRequest::Operation::punchHole:
        prepareAllocation(entry, FALLOC_FL_PUNCH_HOLE, request);
        break;
      case EngineRequest::Operation::writeZeros:
        prepareAllocation(entry, FALLOC_FL_ZERO_RANGE, request);
        break;
      case EngineRequest::Operation::discard:
        prepareDiscard(entry, request);
        break;
      case EngineRequest::Operation::flush:
        io_uring_prep_fsync(entry, fd_, IORING_FSYNC_DATASYNC);
        break;
    }
    io_uring_sqe_set_flags(entry, fileFlags_);
    ring_.queue(entry, request.slot);
  }

  void useMemory(uint8_t* data, uint64_t bytes) noexcept override {
    const bool pinned = ring_.registerMemory(data, bytes <= mostPinnedBytes ? bytes : 0);
    pinned_ = pinned ? data : nullptr;
    pinnedBytes_ = pinned ? bytes : 0;
  }

  void sendQueued() override { ring_.send(); }

  bool poll(EngineReply& out, bool wait) override {
    KernelRing::Answer answer;
    if (!ring_.poll(answer, wait)) {
      return false;
    }
    out = {.slot = answer.slot, .result = answer.result};
    return true;
  }

  bool waitUpTo(uint64_t microseconds) override { return ring_.waitUpTo(microseconds); }

 private:
  bool isPinned(const EngineRequest& request, uint64_t bytes) const {
    const uint64_t at = reinterpret_cast<uintptr_t>(request.data) - reinterpret_cast<uintptr_t>(pinned_);
    return at < pinnedBytes_ && bytes <= pinnedBytes_ - at;
  }

  /// Writes have no such way: their data stand in memory of the agent, which may give it back to the system and get it
  /// again at the same address, and the kernel would go on writing what stands in the pages that were there before.
  void prepareRead(io_uring_sqe* entry, const EngineRequest& request, unsigned bytes) const {
    if (isPinned(request, bytes)) {
      io_uring_prep_read_fixed(entry, fd_, request.data, bytes, request.offset, 0);
    } else {
      io_uring_prep_read(entry, fd_, request.data, bytes, request.offset);
    }
  }

  void prepareAllocation(io_uring_sqe* entry, int mode, const EngineRequest& request) const {
    io_uring_prep_fallocate(entry, fd_, mode | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(request.offset),
                            static_cast<off_t>(request.bytes));
  }

  void prepareDiscard(io_uring_sqe* entry, const EngineRequest& request) const {
    io_uring_prep_rw(IORING_OP_URING_CMD, entry, fd_, nullptr, 0, 0);
    entry->cmd_op = kernel::blockDiscardCommand;
    entry->addr = request.offset;
    entry->addr3 = request.bytes;
  }

  int fd_;  ///< or the number of the file that the ring holds
  unsigned fileFlags_ = 0;
  uint8_t* pinned_ = nullptr;
  uint64_t pinnedBytes_ = 0;
  KernelRing ring_;
};

}  // namespace

std::unique_ptr<Engine> makeUringEngine(int fd, uint32_t depth, bool discards, std::string& refusal) {
  auto engine = std::make_unique<UringEngine>(fd, depth);
  if (engine->error() != 0) {
    refusal = textOf(engine->error());
    return nullptr;
  }
  if (!engine->complete()) {
    refusal = "this kernel's ring lacks an operation";
    return nullptr;
  }
  if (discards && !engine->discards()) {
    refusal = "this kernel's ring cannot discard";
    return nullptr;
  }
  return engine;
}

}  // namespace corvane::host
