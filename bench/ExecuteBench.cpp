// What the agent costs a command, from completion to the next command, against a drive that costs nothing.

#include <benchmark/benchmark.h>

#include "bench/AllocationCounter.h"
#include "bench/BenchedAgent.h"

namespace corvane::bench {
namespace {

/// Arguments: queue depth, blocks of a transfer, bytes of a block.
void executeCycle(benchmark::State& state) {
  BenchedAgent agent({.blockSize = static_cast<uint32_t>(state.range(2)),
                      .queueDepth = static_cast<uint32_t>(state.range(0)),
                      .xferBlocks = static_cast<uint32_t>(state.range(1)),
                      .rangeBlocks = uint64_t{32} << 20 >> 9});
  // Until read-backs and writes balance, and pools have grown.
  while (agent.commands() < 40'000) {
    agent.cycle();
  }
  const uint64_t commandsBefore = agent.commands();
  const uint64_t allocationsBefore = allocations();
  for (auto _ : state) {
    state.SetIterationTime(agent.cycle());
  }
  const auto commands = static_cast<double>(agent.commands() - commandsBefore);
  state.counters["commands/s"] = benchmark::Counter(commands, benchmark::Counter::kIsRate);
  state.counters["allocations/command"] = static_cast<double>(allocations() - allocationsBefore) / commands;
}

BENCHMARK(executeCycle)
    ->UseManualTime()
    ->ArgNames({"depth", "blocks", "blockSize"})
    ->Args({1, 8, 512})
    ->Args({32, 1, 512})
    ->Args({32, 8, 512})
    ->Args({128, 8, 512})
    ->Args({32, 64, 512})
    ->Args({32, 8, 4096});

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
