#pragma once

#include <gmock/gmock.h>

#include <cstdint>

namespace corvane::tests {

/// Lets one allocation of the process fail while it lives, the agent's among them: a program that uses it replaces the
/// operators that allocate.
class Shortage {
 public:
  /// @param number of the allocation, counted from here and from 1; 0: none fails
  explicit Shortage(uint64_t number);
  ~Shortage();
  Shortage(const Shortage&) = delete;
  Shortage& operator=(const Shortage&) = delete;

  /// Ends it; whether one failed.
  static bool end();
};

/// What has been allocated and not been given back.
int64_t livingAllocations();

/// What the program and the agent say of memory that has run out.
inline auto saysOutOfMemory() {
  using ::testing::HasSubstr;
  return ::testing::AnyOf(HasSubstr("out of memory"), HasSubstr("Could not allocate"),
                          HasSubstr("Failed memory allocation"), HasSubstr("Cannot allocate memory"),
                          // The agent leaves out an event that it has no memory for, and says so when its read-back is
                          // due.
                          HasSubstr("no record or no matching event (-1003)"));
}

}  // namespace corvane::tests
