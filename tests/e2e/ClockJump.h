#pragma once

#include <cstdint>

namespace corvane::host::e2e {

/// Sets the time of day forward or back for the agent and the host of `runTest`, as an administrator may in a test. The
/// steady clock does not move.
void jumpTimeOfDay(int64_t microseconds);

}  // namespace corvane::host::e2e
