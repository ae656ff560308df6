#pragma once

#include <cstdint>

namespace corvane::bench {

/// Calls of operator new that this program has made so far, on all threads.
uint64_t allocations();

}  // namespace corvane::bench
