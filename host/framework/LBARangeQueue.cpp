#include "host/framework/LBARangeQueueImpl.h"

namespace vdl {

void LBARangeQueue::push(LBARange range) {
  std::lock_guard lock(impl->mutex);
  impl->ranges.push_back(range);
}

bool LBARangeQueue::empty() {
  std::lock_guard lock(impl->mutex);
  return impl->ranges.empty();
}

bool LBARangeQueue::tryPop(LBARange& out) {
  std::lock_guard lock(impl->mutex);
  if (impl->ranges.empty()) {
    return false;
  }
  out = impl->ranges.front();
  impl->ranges.pop_front();
  return true;
}

}  // namespace vdl
