#pragma once

#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <stdexcept>

namespace corvane::tests {

/// The kernel's sched_attr, as sched_getattr(2) has it.
struct ThreadSchedule {
  uint32_t size;
  uint32_t policy;
  uint64_t flags;
  int32_t nice;
  uint32_t priority;
  uint64_t runtimeNs;
  uint64_t deadlineNs;
  uint64_t periodNs;
};

/// How the calling thread is scheduled, as the kernel tells it.
inline ThreadSchedule threadSchedule() {
  ThreadSchedule schedule{};
  if (syscall(SYS_sched_getattr, 0, &schedule, sizeof(schedule), 0) != 0) {
    throw std::runtime_error("sched_getattr is refused");
  }
  return schedule;
}

/// The time slice that the calling thread asked for, or has; 0 where the kernel knows none.
inline uint64_t timeSliceUs() { return threadSchedule().runtimeNs / 1000; }

/// Whether the kernel lets threads ask for their time slices.
inline bool kernelKnowsTimeSlices() {
  utsname kernel{};
  int major = 0;
  int minor = 0;
  if (uname(&kernel) != 0 || std::sscanf(kernel.release, "%d.%d", &major, &minor) != 2) {
    throw std::runtime_error("the kernel's release is unreadable");
  }
  return major > 6 || (major == 6 && minor >= 12);
}

}  // namespace corvane::tests
