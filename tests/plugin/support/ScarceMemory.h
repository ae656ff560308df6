#pragma once

#include <cstddef>
#include <cstdint>

namespace benchtest {

/// While it lives, allocations of one kind fail: those for at least `minBytes`, from number `first` on, `count` of
/// them. All allocations of the test program go through this unit's operators new and delete.
class ScarceMemory {
 public:
  enum class Kind { nothrow, throwing };

  explicit ScarceMemory(Kind kind, std::size_t minBytes = 0, uint64_t first = 1, uint64_t count = 1);
  ~ScarceMemory();
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;

  uint64_t failed() const;
};

}  // namespace benchtest
