// A draw of the drive's random source, and the pool of write data that is filled with draws.

#include <benchmark/benchmark.h>

#include <boost/random/mersenne_twister.hpp>
#include <boost/random/uniform_int_distribution.hpp>
#include <cstring>
#include <limits>
#include <vector>

#include "SectorBuckets.h"

namespace corvane::bench {
namespace {

constexpr unsigned long noLimit = std::numeric_limits<unsigned long>::max();

void draw(benchmark::State& state) {
  vdl::RandomNumberGenerator<unsigned long> rng;
  rng.init(1, 0, noLimit);
  for (auto _ : state) {
    benchmark::DoNotOptimize(rng());
  }
}
BENCHMARK(draw);

/// What the draws are defined by, beside it.
void drawOfBoost(benchmark::State& state) {
  boost::random::mt19937 engine(1);
  boost::random::uniform_int_distribution<unsigned long> range(0, noLimit);
  for (auto _ : state) {
    benchmark::DoNotOptimize(range(engine));
  }
}
BENCHMARK(drawOfBoost);

constexpr uint64_t poolBytes = uint64_t{32} << 20;

void poolFill(benchmark::State& state) {
  std::vector<uint8_t> pool(poolBytes);
  vdl::RandomNumberGenerator<unsigned long> rng;
  rng.init(1, 0, noLimit);
  for (auto _ : state) {
    vdl::agent::fillRandomPool(pool.data(), pool.size(), 512, rng);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(poolBytes));
}
BENCHMARK(poolFill)->Unit(benchmark::kMillisecond);

/// The least that a pool can cost: its bytes are written once.
void poolWrite(benchmark::State& state) {
  std::vector<uint8_t> pool(poolBytes);
  int value = 0;
  for (auto _ : state) {
    std::memset(pool.data(), ++value & 0xFF, pool.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(poolBytes));
}
BENCHMARK(poolWrite)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
