#include "host/drive/sim/SimSchedule.h"

#include <algorithm>
#include <stdexcept>

namespace corvane::host {
namespace {

constexpr uint32_t patientPolls = 8;  ///< that find nothing before time runs on

}  // namespace

SimSchedule::SimSchedule(uint32_t depth, uint64_t seed) : depth_(depth), random_(seed) { heap_.reserve(depth); }

void SimSchedule::add(const DriveCommand& command) {
  if (heap_.size() >= depth_) {
    throw std::logic_error("more commands than the drive takes at once");
  }
  idlePolls_ = 0;
  heap_.push_back({now_ + random_.between(1, 2 * uint64_t{depth_}), random_.next(), command});
  std::push_heap(heap_.begin(), heap_.end(), later);
}

bool SimSchedule::take(DriveCommand& out, bool wait) {
  ++now_;
  if (heap_.empty()) {
    return false;
  }
  if (heap_.front().due > now_) {
    if (!wait && ++idlePolls_ < patientPolls) {
      return false;
    }
    now_ = heap_.front().due;
  }
  pop(out);
  return true;
}

bool SimSchedule::takeAny(DriveCommand& out) {
  if (heap_.empty()) {
    return false;
  }
  pop(out);
  return true;
}

void SimSchedule::pop(DriveCommand& out) {
  idlePolls_ = 0;
  std::pop_heap(heap_.begin(), heap_.end(), later);
  out = heap_.back().command;
  heap_.pop_back();
}

}  // namespace corvane::host
