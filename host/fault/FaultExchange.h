#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

namespace corvane::host {

/// Carries one sector from the first drive of a test to the others, for cross-talk. Any thread.
class FaultExchange {
 public:
  void publish(std::vector<uint8_t> sector) {
    {
      const std::lock_guard lock(mutex_);
      sector_ = std::move(sector);
    }
    published_.notify_all();
  }

  /// Waits for the other drive to come to its command, so that a seed gives one result; gives up after some seconds,
  /// when that drive must have ended.
  ///
  /// @return empty when nothing came
  std::vector<uint8_t> take() {
    constexpr std::chrono::seconds patience{5};
    std::unique_lock lock(mutex_);
    published_.wait_for(lock, patience, [this] { return !sector_.empty(); });
    return sector_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable published_;
  std::vector<uint8_t> sector_;
};

}  // namespace corvane::host
