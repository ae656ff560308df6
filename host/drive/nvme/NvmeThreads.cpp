#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "host/base/Ring.h"
#include "host/drive/nvme/NvmeDevice.h"
#include "host/drive/nvme/NvmePassthrough.h"

namespace corvane::host {
namespace {

constexpr uint32_t mostThreads = 64;  // one for each command that is to be at the drive at once

class NvmeThreads : public NvmePassthrough {
 public:
  NvmeThreads(std::shared_ptr<NvmeDevice> device, uint32_t depth) : device_(std::move(device)) {
    const uint32_t count = std::min(depth, mostThreads);
    threads_.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
      threads_.emplace_back([this] { work(); });
    }
  }
  ~NvmeThreads() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    toDo_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }
  NvmeThreads(const NvmeThreads&) = delete;
  NvmeThreads& operator=(const NvmeThreads&) = delete;

  std::string name() const override { return "ioctl by a thread pool on " + device_->node(); }
  uint32_t nsid() const override { return device_->nsid(); }
  uint64_t mostBytes() const override { return device_->mostBytes(); }
  std::string whyNoReset() const override { return device_->whyNoReset(); }

  void submit(const NvmeRequest& request) override {
    {
      const std::lock_guard lock(mutex_);
      requests_.pushBack(request);
    }
    toDo_.notify_one();
  }

  bool poll(NvmeReply& out, bool wait) override {
    std::unique_lock lock(mutex_);
    if (wait) {
      done_.wait(lock, [this] { return !replies_.empty(); });
    }
    if (replies_.empty()) {
      return false;
    }
    out = replies_.front();
    replies_.popFront();
    return true;
  }

  int32_t admin(const NvmeCommand& command, uint32_t* result) override { return device_->admin(command, result); }
  int32_t runAlone(const NvmeCommand& command) override { return device_->io(command); }
  void reset() override { device_->resetController(); }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      toDo_.wait(lock, [this] { return ending_ || !requests_.empty(); });
      if (ending_) {
        return;
      }
      const NvmeRequest request = requests_.front();
      requests_.popFront();
      lock.unlock();
      const NvmeReply reply{request.slot, device_->io(request.command)};
      lock.lock();
      replies_.pushBack(reply);
      done_.notify_one();
    }
  }

  std::shared_ptr<NvmeDevice> device_;
  std::mutex mutex_;
  std::condition_variable toDo_;
  std::condition_variable done_;
  Ring<NvmeRequest> requests_;
  Ring<NvmeReply> replies_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace

std::unique_ptr<NvmePassthrough> makeNvmeThreads(const std::shared_ptr<NvmeDevice>& device, uint32_t depth) {
  return std::make_unique<NvmeThreads>(device, depth);
}

}  // namespace corvane::host
