#include <fcntl.h>
#include <liburing.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "host/drive/DriveError.h"
#include "host/drive/engine/Engine.h"
#include "host/drive/engine/KernelFlags.h"

namespace corvane::host {
namespace {

std::string textOf(int error) { return std::generic_category().message(error); }

class UringEngine : public Engine {
 public:
  UringEngine(int fd, uint32_t depth, int& error) : fd_(fd) {
    error = io_uring_queue_init(std::bit_ceil(depth), &ring_, 0);
    open_ = error == 0;
  }
  ~UringEngine() override {
    if (open_) {
      io_uring_queue_exit(&ring_);
    }
  }
  UringEngine(const UringEngine&) = delete;
  UringEngine& operator=(const UringEngine&) = delete;

  /// Whether the kernel's ring knows everything that is needed.
  bool complete() {
    io_uring_probe* probe = io_uring_get_probe_ring(&ring_);
    if (probe == nullptr) {
      return false;
    }
    const bool all = io_uring_opcode_supported(probe, IORING_OP_READ) != 0 &&
                     io_uring_opcode_supported(probe, IORING_OP_WRITE) != 0 &&
                     io_uring_opcode_supported(probe, IORING_OP_FSYNC) != 0 &&
                     io_uring_opcode_supported(probe, IORING_OP_FALLOCATE) != 0;
    io_uring_free_probe(probe);
    return all;
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
    io_uring_sqe* entry = io_uring_get_sqe(&ring_);
    if (entry == nullptr) {
      throw std::logic_error("more requests than the ring was made for");
    }
    // The kernel moves at most 2 GiB in one go anyway; what is left is asked for by the caller.
    const auto bytes = static_cast<unsigned>(std::min<uint64_t>(request.bytes, uint64_t{1} << 30));
    switch (request.operation) {
      case EngineRequest::Operation::read:
        io_uring_prep_read(entry, fd_, request.data, bytes, request.offset);
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
    io_uring_sqe_set_data64(entry, request.slot);
    unsent_ = true;
  }

  bool poll(EngineReply& out, bool wait) override {
    send();
    io_uring_cqe* entry = nullptr;
    int error = wait ? io_uring_wait_cqe(&ring_, &entry) : io_uring_peek_cqe(&ring_, &entry);
    while (error == -EINTR) {
      error = io_uring_wait_cqe(&ring_, &entry);
    }
    if (error == -EAGAIN) {
      return false;
    }
    if (error != 0) {
      throw DriveError("waiting for the kernel's ring failed: " + textOf(-error) + "; use engine=threads");
    }
    out.slot = static_cast<uint32_t>(io_uring_cqe_get_data64(entry));
    out.result = entry->res;
    io_uring_cqe_seen(&ring_, entry);
    return true;
  }

 private:
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

  /// Everything that was prepared since the last poll goes to the kernel in one call.
  void send() {
    while (unsent_) {
      const int sent = io_uring_submit(&ring_);
      if (sent < 0 && sent != -EINTR && sent != -EAGAIN && sent != -EBUSY) {
        throw DriveError("the kernel's ring takes no requests: " + textOf(-sent) + "; use engine=threads");
      }
      unsent_ = io_uring_sq_ready(&ring_) != 0;
      if (sent == -EAGAIN || sent == -EBUSY) {
        return;  // for want of memory; answers that are taken now make room
      }
    }
  }

  int fd_;
  io_uring ring_{};
  bool open_ = false;
  bool unsent_ = false;
};

}  // namespace

std::unique_ptr<Engine> makeUringEngine(int fd, uint32_t depth, bool discards, std::string& refusal) {
  int error = 0;
  auto engine = std::make_unique<UringEngine>(fd, depth, error);
  if (error != 0) {
    refusal = textOf(-error);
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
