#include <algorithm>

#include "host/drive/WorkerPool.h"
#include "host/drive/nvme/NvmeDevice.h"
#include "host/drive/nvme/NvmePassthrough.h"

namespace corvane::host {
namespace {

constexpr uint32_t mostThreads = 64;  // one for each command that is to be at the drive at once

class NvmeThreads : public NvmePassthrough {
 public:
  NvmeThreads(std::shared_ptr<NvmeDevice> device, uint32_t depth)
      : device_(std::move(device)), pool_(std::min(depth, mostThreads), depth, [this](const NvmeRequest& request) {
          return NvmeReply{request.slot, device_->io(request.command)};
        }) {}

  std::string name() const override { return "ioctl by a thread pool on " + device_->node(); }
  uint32_t nsid() const override { return device_->nsid(); }
  uint64_t mostBytes() const override { return device_->mostBytes(); }
  std::string whyNoReset() const override { return device_->whyNoReset(); }

  void submit(const NvmeRequest& request) override { pool_.submit(request); }
  bool poll(NvmeReply& out, bool wait) override { return pool_.poll(out, wait); }
  bool waitUpTo(uint64_t microseconds) override { return pool_.waitUpTo(microseconds); }
  int32_t admin(const NvmeCommand& command, uint32_t* result) override { return device_->admin(command, result); }
  int32_t runAlone(const NvmeCommand& command) override { return device_->io(command); }
  void reset() override { device_->resetController(); }

 private:
  std::shared_ptr<NvmeDevice> device_;
  WorkerPool<NvmeRequest, NvmeReply> pool_;  // the last member: its threads use the device
};

}  // namespace

std::unique_ptr<NvmePassthrough> makeNvmeThreads(const std::shared_ptr<NvmeDevice>& device, uint32_t depth) {
  return std::make_unique<NvmeThreads>(device, depth);
}

}  // namespace corvane::host
