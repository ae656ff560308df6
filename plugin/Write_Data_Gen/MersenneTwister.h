#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace vdl {

/// The 32-bit Mersenne Twister (mt19937), a uniform random bit generator with the outputs of the standard library's
/// and Boost's engines of that name.
///
/// Outputs are made 624 at a time, by loops that the compiler turns into vector instructions; taking one is a load.
class MersenneTwister {
 public:
  using result_type = uint32_t;

  explicit MersenneTwister(uint32_t seed = 5489) { this->seed(seed); }

  /// Starts over.
  void seed(uint32_t seed);

  result_type operator()() {
    if (next_ == words) {
      refill();
    }
    return outputs_[next_++];
  }

  /// Two outputs, the first one as the low half.
  uint64_t pair() {
    if (words - next_ < 2) {
      const uint64_t low = (*this)();
      return low | uint64_t{(*this)()} << 32;
    }
    const uint64_t low = outputs_[next_];
    const uint64_t high = outputs_[next_ + 1];
    next_ += 2;
    return low | high << 32;
  }

  /// What `pair` will give after `pairs` other calls of it; nothing known of those that are not made yet: 0.
  uint64_t foreseen(std::size_t pairs) const {
    const std::size_t at = next_ + 2 * pairs;
    return at + 1 < words ? outputs_[at] | uint64_t{outputs_[at + 1]} << 32 : 0;
  }

  /// The next `count` outputs, each least significant byte first.
  void copy(uint8_t* out, uint64_t count);

  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }

  static constexpr std::size_t words = 624;
  using Words = std::array<uint32_t, words>;

 private:
  void refill();

  Words state_;
  Words outputs_;
  std::size_t next_;
};

}  // namespace vdl
