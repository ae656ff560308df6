#include <liburing.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "host/drive/DriveError.h"
#include "host/drive/nvme/NvmeDevice.h"
#include "host/drive/nvme/NvmeKernelForm.h"
#include "host/drive/nvme/NvmePassthrough.h"

namespace corvane::host {
namespace {

std::string textOf(int error) { return std::generic_category().message(error); }

constexpr size_t commandOffset = 48;  ///< of a command in a submission entry of 128 bytes

class NvmeUring : public NvmePassthrough {
 public:
  NvmeUring(std::shared_ptr<NvmeDevice> device, uint32_t depth, int& error) : device_(std::move(device)) {
    error = io_uring_queue_init(std::bit_ceil(depth), &ring_, IORING_SETUP_SQE128 | IORING_SETUP_CQE32);
    open_ = error == 0;
    if (open_) {
      error = allowOneWorker();
    }
  }
  ~NvmeUring() override {
    if (open_) {
      io_uring_queue_exit(&ring_);
    }
  }
  NvmeUring(const NvmeUring&) = delete;
  NvmeUring& operator=(const NvmeUring&) = delete;

  std::string name() const override { return "io_uring commands on " + device_->node(); }
  uint32_t nsid() const override { return device_->nsid(); }
  uint64_t mostBytes() const override { return device_->mostBytes(); }
  std::string whyNoReset() const override { return device_->whyNoReset(); }

  void submit(const NvmeRequest& request) override { prepare(NVME_URING_CMD_IO, request); }

  bool poll(NvmeReply& out, bool wait) override {
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

  int32_t admin(const NvmeCommand& command, uint32_t* result) override { return device_->admin(command, result); }
  int32_t runAlone(const NvmeCommand& command) override { return device_->io(command); }

  void reset() override {
    // What the caller handed over before is at the drive when it is reset, not behind it.
    send();
    device_->resetController();
  }

  /// Asks the device for an operation that it cannot know, so that nothing goes to the drive: a kernel may have rings
  /// with long entries and still no commands of NVMe's. The error of the kernel; 0 when it has them.
  int tryOut() {
    prepare(0, {});
    NvmeReply reply;
    poll(reply, true);
    constexpr int unknownToDevice = -ENOTTY;
    return reply.result == unknownToDevice ? 0 : std::max(-reply.result, EOPNOTSUPP);
  }

 private:
  /// Has the kernel keep to one worker for the commands that it could not start at once, as while it looks at the
  /// namespace again after a reset.
  ///
  /// It makes the first worker within our own call, but each further one whenever this thread returns to user mode,
  /// which may be from an interrupt. On x86 with the x32 ABI compiled in, such a worker passes for one of a 32-bit
  /// program (Linux 6.1), and the NVMe driver cuts the addresses of its commands to 32 bits: they end with EFAULT, or
  /// would move somebody else's memory if there were any at that address. A worker only starts commands, so one is
  /// enough.
  int allowOneWorker() {
    std::array<unsigned, 2> most{1, 1};  // for regular files, and for everything else
    return io_uring_register_iowq_max_workers(&ring_, most.data());
  }

  void prepare(uint32_t operation, const NvmeRequest& request) {
    io_uring_sqe* entry = io_uring_get_sqe(&ring_);
    if (entry == nullptr) {
      throw std::logic_error("more NVMe commands than the ring was made for");
    }
    io_uring_prep_rw(IORING_OP_URING_CMD, entry, device_->fd(), nullptr, 0, 0);
    entry->cmd_op = operation;
    const auto form = nvmeKernelForm<nvme_uring_cmd>(request.command);
    std::memcpy(reinterpret_cast<uint8_t*>(entry) + commandOffset, &form, sizeof form);
    io_uring_sqe_set_data64(entry, request.slot);
    unsent_ = true;
  }

  /// Everything that was prepared since the last poll goes to the kernel in one call.
  void send() {
    while (unsent_) {
      const int sent = io_uring_submit(&ring_);
      if (sent < 0 && sent != -EINTR && sent != -EAGAIN && sent != -EBUSY) {
        throw DriveError("the kernel's ring takes no commands: " + textOf(-sent) + "; use engine=threads");
      }
      unsent_ = io_uring_sq_ready(&ring_) != 0;
      if (sent == -EAGAIN || sent == -EBUSY) {
        return;  // for want of memory; ends that are taken now make room
      }
    }
  }

  std::shared_ptr<NvmeDevice> device_;
  io_uring ring_{};
  bool open_ = false;
  bool unsent_ = false;
};

}  // namespace

std::unique_ptr<NvmePassthrough> makeNvmeUring(const std::shared_ptr<NvmeDevice>& device, uint32_t depth,
                                               std::string& refusal) {
  if (!device->isGeneric()) {
    refusal = "the kernel has no generic device for " + device->node();
    return nullptr;
  }
  int error = 0;
  auto engine = std::make_unique<NvmeUring>(device, depth, error);
  error = error == 0 ? engine->tryOut() : -error;
  if (error != 0) {
    refusal = textOf(error);
    return nullptr;
  }
  return engine;
}

}  // namespace corvane::host
