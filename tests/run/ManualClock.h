#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "host/run/HostClock.h"

namespace corvane::host::testing {

/// Time that goes on only when somebody pauses.
class ManualClock final : public HostClock {
 public:
  uint64_t steadyUs() override { return nowUs_; }
  uint64_t coarseUs() override { return nowUs_; }
  uint64_t wallUs() override { return 1'700'000'000'000'000 + nowUs_; }
  void pause(uint64_t microseconds) override {
    nowUs_ += microseconds;
    ++pauses;
    if (onPause) {
      onPause();
    }
  }

  std::atomic<int> pauses{0};
  std::function<void()> onPause;

 private:
  std::atomic<uint64_t> nowUs_{1};
};

}  // namespace corvane::host::testing
