#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/TempFolder.h"

namespace corvane::tests {

/// How a process ended in which one allocation failed.
struct Ending {
  int status = 0;  ///< that of its exit, or the negative number of its signal
  std::string said;
  bool failed = false;  ///< whether there were so many allocations that one failed
};

/// Does work in a process of its own, which may also end in the middle.
///
/// @param allocation the number of the one that fails; 0: none
/// @param work returns the status, of less than 100; what it allocates for its own sake may fail, too
/// @param folder for what the process says
Ending endingWithout(uint64_t allocation, const std::function<int()>& work, const TempFolder& folder);

/// Which allocations fail, one in each process.
struct Allocations {
  uint64_t everyOneUpTo = 0;
  uint64_t stride = 1;  ///< of those behind
};

/// Does work again and again, and expects of each allocation that failed that the work either ended as ever or said
/// that memory has run out, with the status for that.
///
/// @param good status of work of which no allocation fails
/// @param withoutMemory status of work that has said that memory has run out
/// @param prepare called before each time
/// @return how often memory that had run out was the end of it
uint64_t failEachAllocation(const std::function<int()>& work, int good, int withoutMemory, Allocations which = {},
                            const std::function<void()>& prepare = {});

}  // namespace corvane::tests
