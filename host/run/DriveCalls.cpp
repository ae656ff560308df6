#include "host/run/DriveCalls.h"

#include <unistd.h>

namespace corvane::host {

DriveCalls::Inside::Inside(DriveCalls* calls, const char* what) : calls_(calls) {
  if (calls_ != nullptr) {
    calls_->what_.store(what, std::memory_order_relaxed);
    calls_->current_.store(++calls_->entered_, std::memory_order_release);
  }
}

DriveCalls::Inside::~Inside() {
  if (calls_ == nullptr) {
    return;
  }
  uint64_t call = calls_->entered_;
  if (!calls_->current_.compare_exchange_strong(call, 0, std::memory_order_acq_rel)) {
    for (;;) {
      pause();
    }
  }
}

bool DriveCalls::giveUp(uint64_t call) {
  return call != 0 && current_.compare_exchange_strong(call, givenUp, std::memory_order_acq_rel);
}

}  // namespace corvane::host
