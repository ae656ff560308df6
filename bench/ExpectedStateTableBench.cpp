// The life of a block in the expected-state table: written, finished, read, compared, forgotten.

#include <benchmark/benchmark.h>

#include "AtomicHash.h"
#include "bench/AllocationCounter.h"

namespace corvane::bench {
namespace {

/// Arguments: blocks of a command, blocks that the table holds beside it.
void blockLife(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  const auto others = static_cast<uint64_t>(state.range(1));
  vdl::AtomicHash table;
  uint64_t id = 1;
  for (uint64_t lba = 0; lba < others; ++lba) {
    table.writeIssued(id, 10 * lba, 1, {true, id, 10 * lba});
  }
  const uint64_t allocationsBefore = allocations();
  uint64_t first = 5;
  for (auto _ : state) {
    const uint64_t write = ++id;
    const uint64_t read = ++id;
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.writeIssued(write, lba, 7, {true, write, lba});
    }
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.writeFinished(write, lba);
    }
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      table.readIssued(read, lba, true);
    }
    for (uint64_t lba = first; lba < first + blocks; ++lba) {
      benchmark::DoNotOptimize(table.readFinished(read, lba, false));
    }
    first = (first + 7919) % (10 * others + 1000);
  }
  const auto lives = static_cast<double>(state.iterations()) * static_cast<double>(blocks);
  state.SetItemsProcessed(static_cast<int64_t>(lives));
  state.counters["allocations/block"] = static_cast<double>(allocations() - allocationsBefore) / lives;
}

BENCHMARK(blockLife)
    ->ArgNames({"blocks", "others"})
    ->Args({1, 0})
    ->Args({8, 0})
    ->Args({64, 0})
    ->Args({8, 25'000})
    ->Args({8, 250'000});

/// The copy of a read's histories that a compare judges.
void readContext(benchmark::State& state) {
  const auto blocks = static_cast<uint64_t>(state.range(0));
  vdl::AtomicHash table;
  for (uint64_t lba = 0; lba < blocks; ++lba) {
    table.writeIssued(1, lba, 7, {true, 1, lba});
    table.writeFinished(1, lba);
    table.readIssued(2, lba, true);
  }
  const uint64_t allocationsBefore = allocations();
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.getContext(0, blocks, 2));
  }
  const auto copies = static_cast<double>(state.iterations()) * static_cast<double>(blocks);
  state.SetItemsProcessed(static_cast<int64_t>(copies));
  state.counters["allocations/block"] = static_cast<double>(allocations() - allocationsBefore) / copies;
}

BENCHMARK(readContext)->ArgName("blocks")->Arg(1)->Arg(8)->Arg(64);

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
