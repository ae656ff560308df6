// The hash of a block, which stands for content that no bucket explains.

#include <benchmark/benchmark.h>

#include <vector>

#include "LazyHasher.h"
#include "host/base/Random.h"

namespace corvane::bench {
namespace {

void hashOfABlock(benchmark::State& state) {
  std::vector<uint8_t> block(static_cast<size_t>(state.range(0)));
  host::Random random(1);
  for (uint8_t& byte : block) {
    byte = static_cast<uint8_t>(random.next());
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(vdl::blockHash(block.data(), block.data() + block.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(hashOfABlock)->ArgName("bytes")->Arg(512)->Arg(4096);

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
