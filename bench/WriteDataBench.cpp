// Assembling a write's data: buckets copied into the tag's buffer, each block stamped.

#include <benchmark/benchmark.h>

#include <cstring>

#include "WriteData.h"
#include "bench/BenchedAgent.h"

namespace corvane::bench {
namespace {

/// Arguments: blocks of the write, bytes of a block, whether blocks are stamped.
void writeData(benchmark::State& state) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto blockSize = static_cast<uint32_t>(state.range(1));
  BenchedAgent agent({.blockSize = blockSize, .queueDepth = 1, .xferBlocks = blocks, .rangeBlocks = 4096});
  agent.cycle();  // makes the tags' buffers
  vdl::agent::Step step = agent.step();
  uint64_t id = 1000;
  for (auto _ : state) {
    const vdl::BlockNum bucket = vdl::agent::chooseBucket(step, blocks);
    benchmark::DoNotOptimize(
        vdl::agent::assembleWriteData(step, {0, id * 3, id, bucket, blocks, false, state.range(2) != 0}));
    ++id;
  }
  state.SetItemsProcessed(state.iterations() * blocks);
  state.SetBytesProcessed(state.iterations() * blocks * blockSize);
}

/// The least that write data can cost: the same sectors, drawn from the pool alike, copied into the tag's buffer.
void copyOfTheSectors(benchmark::State& state) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto blockSize = static_cast<uint32_t>(state.range(1));
  BenchedAgent agent({.blockSize = blockSize, .queueDepth = 1, .xferBlocks = blocks, .rangeBlocks = 4096});
  agent.cycle();
  vdl::agent::Step step = agent.step();
  for (auto _ : state) {
    const vdl::BlockNum bucket = vdl::agent::chooseBucket(step, blocks);
    std::memcpy(step.data.tagBuffers[0], step.data.buckets + uint64_t{bucket} * blockSize,
                uint64_t{blocks} * blockSize);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * blocks);
  state.SetBytesProcessed(state.iterations() * blocks * blockSize);
}

BENCHMARK(copyOfTheSectors)
    ->ArgNames({"blocks", "blockSize"})
    ->Args({1, 512})
    ->Args({8, 512})
    ->Args({64, 512})
    ->Args({256, 512})
    ->Args({1, 4096})
    ->Args({64, 4096});

BENCHMARK(writeData)
    ->ArgNames({"blocks", "blockSize", "stamped"})
    ->Args({1, 512, 1})
    ->Args({8, 512, 1})
    ->Args({64, 512, 1})
    ->Args({256, 512, 1})
    ->Args({64, 512, 0})
    ->Args({1, 4096, 1})
    ->Args({8, 4096, 1})
    ->Args({64, 4096, 1});

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
