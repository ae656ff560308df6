// Judging finished reads: context, observation, rebuilding what was expected, comparing the bytes.

#include <benchmark/benchmark.h>

#include "Compare.h"
#include "bench/AllocationCounter.h"
#include "bench/BenchedAgent.h"
#include "bench/PreparedReads.h"

namespace corvane::bench {
namespace {

/// Arguments: blocks of a read, bytes of a block.
void compareReads(benchmark::State& state) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto blockSize = static_cast<uint32_t>(state.range(1));
  BenchedAgent agent({.blockSize = blockSize, .queueDepth = 1, .xferBlocks = blocks, .rangeBlocks = 8192});
  agent.cycle();
  vdl::agent::Step step = agent.step();
  uint64_t id = 1'000'000;
  uint64_t counted = 0;
  for (auto _ : state) {
    state.PauseTiming();
    step.data.spareReads.clear();
    prepareReads(step, blocks, id);
    const uint64_t before = allocations();
    state.ResumeTiming();
    if (vdl::agent::doCompares(step) != 0) {
      state.SkipWithError("a good read miscompared");
      break;
    }
    counted += allocations() - before;
  }
  const auto compared = static_cast<double>(state.iterations()) * readsInABatch * blocks;
  state.SetItemsProcessed(static_cast<int64_t>(compared));
  state.SetBytesProcessed(static_cast<int64_t>(compared * blockSize));
  state.counters["allocations/block"] = static_cast<double>(counted) / compared;
}

BENCHMARK(compareReads)
    ->ArgNames({"blocks", "blockSize"})
    ->Args({1, 512})
    ->Args({8, 512})
    ->Args({64, 512})
    ->Args({1, 4096})
    ->Args({8, 4096})
    ->Args({64, 4096});

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
