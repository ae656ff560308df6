#pragma once

#include <cstddef>
#include <cstdint>

/// The allocations of the test program, all of which go through this unit's operators new and delete.
namespace modeltest {

/// Allocations made so far.
uint64_t allocations();
/// Allocations that nobody has freed yet.
int64_t liveAllocations();
/// What they hold, bytes, with what the allocator rounds up.
int64_t liveBytes();

/// The bytes that were asked for in the allocation made last.
struct Extent {
  const std::byte* first;
  const std::byte* end;
  bool holds(const void* object, std::size_t bytes) const {
    const auto* at = static_cast<const std::byte*>(object);
    return at >= first && at <= end && static_cast<std::size_t>(end - at) >= bytes;
  }
};
Extent lastAllocation();

/// While it lives, allocations that take `std::nothrow` and ask for at least `minBytes` fail, from number `first` on,
/// `count` of them.
class FailNothrow {
 public:
  explicit FailNothrow(uint64_t first = 1, uint64_t count = ~uint64_t{0}, std::size_t minBytes = 0);
  ~FailNothrow();
  FailNothrow(const FailNothrow&) = delete;
  FailNothrow& operator=(const FailNothrow&) = delete;

  /// How many allocations failed so far.
  uint64_t failed() const;
};

}  // namespace modeltest
