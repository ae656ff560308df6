#pragma once

#include <boost/random/uniform_int_distribution.hpp>
#include <cstdint>
#include <cstring>
#include <limits>

#include "MersenneTwister.h"

namespace vdl {

/// A drive's random source: the 32-bit Mersenne Twister, drawn as Boost's uniform integer distribution does.
///
/// A 64-bit draw takes two outputs of the engine, the first one as the low half. The standard library's distribution
/// of the same name puts them together the other way round, so a run would not repeat with it.
template <typename T>
class RandomNumberGenerator {
 public:
  /// Starts the engine anew.
  ///
  /// @param seed only the low 32 bits count
  /// @param min,max range of the draws, both included
  void init(uint64_t seed, T min, T max) {
    engine_.seed(static_cast<uint32_t>(seed));
    range_ = Range(min, max);
    everyNumber_ = sizeof(T) == 8 && min == 0 && max == std::numeric_limits<T>::max();
    ready_ = true;
  }

  /// One draw. Only after `init`.
  T operator()() {
    if (everyNumber_) {
      // What the distribution makes of a range without gaps, without its loops and divisions.
      return static_cast<T>(engine_.pair());
    }
    return range_(engine_);
  }

  /// What a draw will give after `draws` others, where that is known already; else some number. For what may be wrong.
  T foreseen(std::size_t draws) const { return everyNumber_ ? static_cast<T>(engine_.foreseen(draws)) : T{}; }

  /// What as many draws would give, each least significant byte first: `draws` * sizeof(T) bytes.
  void copy(uint8_t* out, uint64_t draws) {
    if (everyNumber_) {
      engine_.copy(out, 2 * draws);
      return;
    }
    for (uint64_t i = 0; i < draws; ++i) {
      const T draw = (*this)();
      std::memcpy(out + i * sizeof(T), &draw, sizeof(T));
    }
  }

  /// Whether `init` was called.
  bool ready() const { return ready_; }

 private:
  using Range = boost::random::uniform_int_distribution<T>;

  MersenneTwister engine_;
  Range range_;
  bool everyNumber_ = false;
  bool ready_ = false;
};

}  // namespace vdl
