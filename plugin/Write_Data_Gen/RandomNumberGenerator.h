#pragma once

#include <boost/random/mersenne_twister.hpp>
#include <boost/random/uniform_int_distribution.hpp>
#include <boost/random/variate_generator.hpp>
#include <cstdint>
#include <memory>

namespace vdl {

/// A drive's random source: the 32-bit Mersenne Twister, drawn through Boost's uniform integer distribution.
///
/// A 64-bit draw takes two outputs of the engine, the first one as the low half. The standard library's distribution
/// of the same name puts them together the other way round, so a run would not repeat with it.
template <typename T>
class RandomNumberGenerator {
 public:
  /// Creates engine, range and generator anew.
  ///
  /// @param seed only the low 32 bits count
  /// @param min,max range of the draws, both included
  void init(uint64_t seed, T min, T max) {
    engine_ = std::make_unique<Engine>(static_cast<uint32_t>(seed));
    range_ = std::make_unique<Range>(min, max);
    generator_ = std::make_unique<Generator>(*engine_, *range_);
  }

  /// One draw. Only after `init`.
  T operator()() { return (*generator_)(); }

  /// Whether `init` was called.
  bool ready() const { return generator_ != nullptr; }

 private:
  using Engine = boost::random::mt19937;
  using Range = boost::random::uniform_int_distribution<T>;
  using Generator = boost::random::variate_generator<Engine&, Range>;

  std::unique_ptr<Engine> engine_;
  std::unique_ptr<Range> range_;
  std::unique_ptr<Generator> generator_;
};

}  // namespace vdl
