#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/drive/file/FileEngine.h"

namespace corvane::host {
namespace {

constexpr uint32_t mostThreads = 16;

int64_t carryOut(int fd, const FileRequest& request) {
  int64_t result = 0;
  do {
    switch (request.operation) {
      case FileRequest::Operation::read:
        result = pread(fd, request.data, request.bytes, static_cast<off_t>(request.offset));
        break;
      case FileRequest::Operation::write: {
        const iovec piece{request.data, request.bytes};
        result = pwritev2(fd, &piece, 1, static_cast<off_t>(request.offset), request.dataSync ? RWF_DSYNC : 0);
        break;
      }
      case FileRequest::Operation::punchHole:
        result = fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(request.offset),
                           static_cast<off_t>(request.bytes));
        break;
      case FileRequest::Operation::flush:
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

class ThreadEngine : public FileEngine {
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

  void submit(const FileRequest& request) override {
    {
      const std::lock_guard lock(mutex_);
      if (requests_.full()) {
        throw std::logic_error("more file requests than the thread pool was made for");
      }
      requests_.push(request);
    }
    toDo_.notify_one();
  }

  bool poll(FileReply& out, bool wait) override {
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
      const FileRequest request = requests_.pop();
      lock.unlock();
      const FileReply reply{request.slot, carryOut(fd_, request)};
      lock.lock();
      replies_.push(reply);
      done_.notify_one();
    }
  }

  int fd_;
  std::mutex mutex_;
  std::condition_variable toDo_;
  std::condition_variable done_;
  Ring<FileRequest> requests_;
  Ring<FileReply> replies_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace

std::unique_ptr<FileEngine> makeThreadEngine(int fd, uint32_t depth) {
  return std::make_unique<ThreadEngine>(fd, depth);
}

}  // namespace corvane::host
