#pragma once

#include <atomic>
#include <cstdint>

namespace corvane::host {

/// A count that one thread raises and any thread reads.
///
/// With a single writer a plain load and store is enough, and costs no locked instruction per command.
class Counter {
 public:
  void add(uint64_t n) { value_.store(get() + n, std::memory_order_relaxed); }
  void set(uint64_t n) { value_.store(n, std::memory_order_relaxed); }
  uint64_t get() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> value_{0};
};

}  // namespace corvane::host
