#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "host/base/Ring.h"
#include "host/drive/DriveError.h"

namespace corvane::host {

/// Threads that carry out requests, in any order, where the kernel has no other way to have several at once.
///
/// The end of an object waits for the requests that are being carried out, and drops those that nobody began. One
/// thread uses an object.
template <typename Request, typename Reply>
class WorkerPool {
 public:
  using Work = std::function<Reply(const Request&)>;

  /// Throws DriveError when the system does not let us have so many threads.
  ///
  /// @param depth the most requests at once; for more than these, memory is allocated
  /// @param work  carries out a request; called by any of the threads, throws nothing
  WorkerPool(uint32_t threads, uint32_t depth, Work work) : work_(std::move(work)), requests_(depth), replies_(depth) {
    threads_.reserve(threads);
    try {
      while (threads_.size() < threads) {
        threads_.emplace_back([this] { run(); });
      }
    } catch (const std::system_error& error) {
      end();
      throw DriveError("only " + std::to_string(threads_.size()) + " of " + std::to_string(threads) +
                       " threads can be started: " + error.code().message() +
                       "; allow more of them, or have fewer commands outstanding");
    }
  }
  ~WorkerPool() { end(); }
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  void submit(const Request& request) {
    {
      const std::lock_guard lock(mutex_);
      requests_.pushBack(request);
    }
    toDo_.notify_one();
  }

  /// Takes a reply.
  ///
  /// @param wait until there is one; the caller has a request outstanding
  bool poll(Reply& out, bool wait) {
    std::unique_lock lock(mutex_);
    if (wait) {
      done_.wait(lock, [this] { return !replies_.empty(); });
    }
    return replies_.takeFront(out);
  }

  /// Sleeps until a reply is there, or so long. Always true: it can.
  bool waitUpTo(uint64_t microseconds) {
    std::unique_lock lock(mutex_);
    done_.wait_for(lock, std::chrono::microseconds(microseconds), [this] { return !replies_.empty(); });
    return true;
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    for (;;) {
      toDo_.wait(lock, [this] { return ending_ || !requests_.empty(); });
      if (ending_) {
        return;
      }
      const Request request = requests_.front();
      requests_.popFront();
      lock.unlock();
      const Reply reply = work_(request);
      lock.lock();
      replies_.pushBack(reply);
      done_.notify_one();
    }
  }

  void end() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    toDo_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }

  Work work_;
  std::mutex mutex_;
  std::condition_variable toDo_;
  std::condition_variable done_;
  Ring<Request> requests_;
  Ring<Reply> replies_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace corvane::host
