// Judging finished reads: context, observation, rebuilding what was expected, comparing the bytes.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "Compare.h"
#include "WriteData.h"
#include "bench/AllocationCounter.h"
#include "bench/BenchedAgent.h"

namespace corvane::bench {
namespace {

constexpr uint64_t readsInABatch = 64;

/// Puts a batch of good reads into the state in which they wait for their compare.
void prepareReads(vdl::agent::Step& step, uint32_t blocks, uint32_t blockSize, uint64_t& id) {
  vdl::AtomicHash& table = step.data.atomicHash;
  for (uint64_t i = 0; i < readsInABatch; ++i) {
    const uint64_t lba = i * blocks;
    const uint64_t write = ++id;
    const uint64_t read = ++id;
    const vdl::BlockNum bucket = vdl::agent::chooseBucket(step, blocks);
    vdl::agent::assembleWriteData(step, {0, lba, write, bucket, blocks, false, true});
    vdl::agent::ComparableReadData kept;
    for (uint32_t k = 0; k < blocks; ++k) {
      table.writeIssued(write, lba + k, bucket + k, {true, write, lba + k});
      table.writeFinished(write, lba + k);
      table.readIssued(read, lba + k, true);
    }
    kept.cmdId = read;
    kept.lba = lba;
    kept.xferLength = blocks;
    kept.blockCount = blocks;
    kept.data.reserve(uint64_t{blocks} * blockSize);
    std::memcpy(kept.data.data, step.data.writeData->data, uint64_t{blocks} * blockSize);
    kept.data.size = uint64_t{blocks} * blockSize;
    step.data.comparableReads.push_back(std::move(kept));
  }
}

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
    prepareReads(step, blocks, blockSize, id);
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
