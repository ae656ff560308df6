#pragma once

#include <cstdint>

namespace corvane::host {

/// Asks the scheduler to let the calling thread run for so long, once it runs, before another one takes its processor.
///
/// Where more threads compute than there are processors, each change brings another thread's memory into the caches,
/// and longer turns have fewer of them. The thread's share of the processors stays what it is, so that it also waits
/// longer for its next turn. A thread that has a longer slice keeps it.
///
/// A request only: it is for threads of SCHED_OTHER and SCHED_BATCH on Linux 6.12 and later, which gives 100 ms at
/// most. Elsewhere, or where the system refuses it, everything stays as it was. The threads that the thread starts from
/// then on inherit it.
void askForTimeSlice(uint64_t microseconds) noexcept;

}  // namespace corvane::host
