#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/drive/engine/Engine.h"
#include "host/drive/engine/KernelFlags.h"

namespace corvane::host {
namespace {

constexpr uint32_t mostThreads = 16;

int64_t allocate(int fd, int mode, const EngineRequest& request) {
  return fallocate(fd, mode | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(request.offset),
                   static_cast<off_t>(request.bytes));
}

int64_t carryOut(int fd, const EngineRequest& request) {
  int64_t result = 0;
  do {
    switch (request.operation) {
      case EngineRequest::Operation::read:
        result = pread(fd, request.data, request.bytes, static_cast<off_t>(request.offset));
        break;
      case EngineRequest::Operation::write: {
        const iovec piece{request.data, request.bytes};
        result = pwritev2(fd, &piece, 1, static_cast<off_t>(request.offset), writeFlags(request));
        break;
      }
      case EngineRequest::Operation::punchHole:
        result = allocate(fd, FALLOC_FL_PUNCH_HOLE, request);
        break;
      case EngineRequest::Operation::writeZeros:
        result = allocate(fd, FALLOC_FL_ZERO_RANGE, request);
        break;
      case EngineRequest::Operation::discard: {
        const std::array<uint64_t, 2> range{request.offset, request.bytes};
        result = ioctl(fd, BLKDISCARD, range.data());
        break;
      }
      case EngineRequest::Operation::flush:
        result = fdatasync(fd);
        break;
    }
  } while (result < 0 && errno == EINTR);
  return result < 0 ? -errno : result;
}

/// A queue of fixed size.
template <typename Value>
class Ring {
 public:
  explicit Ring(uint32_t capacity) : values_(capacity) {}
  bool empty() const { return count_ == 0; }
  bool full() const { return count_ == values_.size(); }
  void push(const Value& value) {
    values_[(first_ + count_) % values_.size()] = value;
    ++count_;
  }
  Value pop() {
    const Value value = values_[first_];
    first_ = (first_ + 1) % values_.size();
    --count_;
    return value;
  }

 private:
  std::vector<Value> values_;
  size_t first_ = 0;
  size_t count_ = 0;
};

class ThreadEngine : public Engine {
 public:
  ThreadEngine(int fd, uint32_t depth) : fd_(fd), requests_(depth), replies_(depth) {
    threads_.reserve(std::min(depth, mostThreads));
    for (uint32_t i = 0; i < std::min(depth, mostThreads); ++i) {
      threads_.emplace_back([this] { work(); });
    }
  }
  ~ThreadEngine() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    toDo_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }
  ThreadEngine(const ThreadEngine&) = delete;
  ThreadEngine& operator=(const ThreadEngine&) = delete;

  std::string name() const override { return "thread pool"; }

  void submit(const EngineRequest& request) override {
    {
      const std::lock_guard lock(mutex_);
      if (requests_.full()) {
        throw std::logic_error("more requests than the thread pool was made for");
      }
      requests_.push(request);
    }
    toDo_.notify_one();
  }

  bool poll(EngineReply& out, bool wait) override {
    std::unique_lock lock(mutex_);
    if (wait) {
      done_.wait(lock, [this] { return !replies_.empty(); });
    }
    if (replies_.empty()) {
      return false;
    }
    out = replies_.pop();
    return true;
  }

 private:
  void work() {
    std::unique_lock lock(mutex_);
    for (;;) {
      toDo_.wait(lock, [this] { return ending_ || !requests_.empty(); });
      if (ending_) {
        return;
      }
      const EngineRequest request = requests_.pop();
      lock.unlock();
      const EngineReply reply{request.slot, carryOut(fd_, request)};
      lock.lock();
      replies_.push(reply);
      done_.notify_one();
    }
  }

  int fd_;
  std::mutex mutex_;
  std::condition_variable toDo_;
  std::condition_variable done_;
  Ring<EngineRequest> requests_;
  Ring<EngineReply> replies_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace

std::unique_ptr<Engine> makeThreadEngine(int fd, uint32_t depth) { return std::make_unique<ThreadEngine>(fd, depth); }

}  // namespace corvane::host
