#include "host/base/TimeSlice.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace corvane::host {
namespace {

/// The kernel's sched_attr in its first version: the C library has none before 2.41, and another name for it since.
struct Attributes {
  uint32_t size = sizeof(Attributes);
  uint32_t policy = 0;
  uint64_t flags = 0;
  int32_t nice = 0;
  uint32_t priority = 0;
  uint64_t runtime = 0;  ///< of a thread that has no deadline: its time slice, nanoseconds
  uint64_t deadline = 0;
  uint64_t period = 0;
};
static_assert(sizeof(Attributes) == 48);

}  // namespace

void askForTimeSlice(uint64_t microseconds) noexcept {
  Attributes own;
  // What is read is written back but for the slice, so that niceness, policy and flags stay.
  if (syscall(SYS_sched_getattr, 0, &own, sizeof(own), 0) != 0 ||
      (own.policy != SCHED_OTHER && own.policy != SCHED_BATCH) || own.runtime >= microseconds * 1000) {
    return;
  }
  own.runtime = microseconds * 1000;
  syscall(SYS_sched_setattr, 0, &own, 0);
}

}  // namespace corvane::host
