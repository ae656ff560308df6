#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvane::host {

inline constexpr size_t latencyKinds = 7;  ///< those of an agent's commands

/// How long commands took, in classes that are 2 % wide, from one microsecond to 1000 seconds.
///
/// Memory is taken by the constructor. One thread.
class LatencyHistogram {
 public:
  LatencyHistogram();

  void add(uint64_t us);

  uint64_t count() const { return count_; }
  uint64_t minUs() const { return minUs_; }  ///< 0 without a command, like the others
  uint64_t maxUs() const { return maxUs_; }
  double meanUs() const;
  /// The time that so many per cent of the commands did not exceed: the upper bound of the class of the last of them,
  /// never more than the longest.
  uint64_t percentileUs(double percent) const;
  /// The classes that hold commands: upper bound in microseconds (included) and count; the bounds rise.
  std::vector<std::pair<uint64_t, uint64_t>> buckets() const;

 private:
  uint64_t upperBoundUs(int bucket) const;

  std::vector<uint64_t> commands_;  ///< by class; the last one is for all that is longer
  uint64_t count_ = 0;
  uint64_t sumUs_ = 0;
  uint64_t minUs_ = 0;
  uint64_t maxUs_ = 0;
};

}  // namespace corvane::host
