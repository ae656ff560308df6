#include <liburing.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

#include "host/drive/KernelRing.h"
#include "host/drive/nvme/NvmeDevice.h"
#include "host/drive/nvme/NvmeKernelForm.h"
#include "host/drive/nvme/NvmePassthrough.h"

namespace corvane::host {
namespace {

std::string textOf(int error) { return std::generic_category().message(error); }

constexpr size_t commandOffset = 48;  ///< of a command in a submission entry of 128 bytes

class NvmeUring : public NvmePassthrough {
 public:
  NvmeUring(std::shared_ptr<NvmeDevice> device, uint32_t depth)
      : device_(std::move(device)), ring_(depth, IORING_SETUP_SQE128 | IORING_SETUP_CQE32) {}

  std::string name() const override { return "io_uring commands on " + device_->node(); }
  uint32_t nsid() const override { return device_->nsid(); }
  uint64_t mostBytes() const override { return device_->mostBytes(); }
  std::string whyNoReset() const override { return device_->whyNoReset(); }

  void submit(const NvmeRequest& request) override { prepare(NVME_URING_CMD_IO, request); }

  void sendQueued() override { ring_.send(); }

  bool poll(NvmeReply& out, bool wait) override {
    KernelRing::Answer answer;
    if (!ring_.poll(answer, wait)) {
      return false;
    }
    out = {.slot = answer.slot, .result = answer.result};
    return true;
  }

  bool waitUpTo(uint64_t microseconds) override { return ring_.waitUpTo(microseconds); }

  int32_t admin(const NvmeCommand& command, uint32_t* result) override { return device_->admin(command, result); }
  int32_t runAlone(const NvmeCommand& command) override { return device_->io(command); }

  void reset() override {
    // What the caller handed over before is at the drive when it is reset, not behind it.
    ring_.send();
    device_->resetController();
  }

  /// Asks the device for an operation that it cannot know, so that nothing goes to the drive: a kernel may have rings
  /// with long entries and still no commands of NVMe's. The error of the kernel; 0 when it has them.
  int tryOut() {
    if (ring_.error() != 0) {
      return ring_.error();
    }
    if (const int error = allowOneWorker(); error != 0) {
      return error;
    }
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
  int allowOneWorker() { return ring_.limitWorkers(1); }

  void prepare(uint32_t operation, const NvmeRequest& request) {
    io_uring_sqe* entry = ring_.entry();
    io_uring_prep_rw(IORING_OP_URING_CMD, entry, device_->fd(), nullptr, 0, 0);
    entry->cmd_op = operation;
    const auto form = nvmeKernelForm<nvme_uring_cmd>(request.command);
    std::memcpy(reinterpret_cast<uint8_t*>(entry) + commandOffset, &form, sizeof form);
    ring_.queue(entry, request.slot);
  }

  std::shared_ptr<NvmeDevice> device_;
  KernelRing ring_;
};

}  // namespace

std::unique_ptr<NvmePassthrough> makeNvmeUring(const std::shared_ptr<NvmeDevice>& device, uint32_t depth,
                                               std::string& refusal) {
  if (!device->isGeneric()) {
    refusal = "the kernel has no generic device for " + device->node();
    return nullptr;
  }
  auto engine = std::make_unique<NvmeUring>(device, depth);
  if (const int error = engine->tryOut(); error != 0) {
    refusal = textOf(error);
    return nullptr;
  }
  return engine;
}

}  // namespace corvane::host
