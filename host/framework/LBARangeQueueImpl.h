#pragma once

#include <deque>
#include <mutex>

#include "vdl/LBARangeQueue.h"

/// Ranges in the order in which they were posted.
struct vdl::LBARangeQueue::Impl {
  std::mutex mutex;
  std::deque<LBARange> ranges;
};
