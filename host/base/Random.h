#pragma once

#include <cassert>
#include <cstdint>

namespace corvane::host {

/// A small random source (xoshiro256**, seeded by splitmix64) whose numbers are the same on every machine.
///
/// Our own, because the standard library's distributions differ between implementations, and a seed has to name one
/// sequence of commands.
class Random {
 public:
  explicit Random(uint64_t seed) {
    for (uint64_t& word : state_) {
      word = splitMix(seed);
    }
  }

  /// All 64 bits.
  uint64_t next() {
    const uint64_t result = rotate(state_[1] * 5, 7) * 9;
    const uint64_t shifted = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= shifted;
    state_[3] = rotate(state_[3], 45);
    return result;
  }

  /// 0 to bound - 1; every value equally likely, but for a bias far below what any test could see.
  uint64_t below(uint64_t bound) {
    assert(bound != 0);
    return static_cast<uint64_t>((static_cast<Wide>(next()) * bound) >> 64);
  }

  /// first to last, both included.
  uint64_t between(uint64_t first, uint64_t last) {
    assert(first <= last);
    const uint64_t values = last - first + 1;
    return values == 0 ? next() : first + below(values);
  }

  /// True with this probability, 0 to 1; draws one number.
  bool happens(double probability) {
    constexpr int unusedBits = 11;  // those that a double cannot hold
    return static_cast<double>(next() >> unusedBits) * 0x1p-53 < probability;
  }

  /// One step of splitmix64; advances the state that it is given.
  static uint64_t splitMix(uint64_t& state) {
    state += 0x9E3779B97F4A7C15;
    uint64_t mixed = state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
  }

 private:
  __extension__ using Wide = unsigned __int128;

  static uint64_t rotate(uint64_t value, int by) { return (value << by) | (value >> (64 - by)); }

  uint64_t state_[4];
};

}  // namespace corvane::host
