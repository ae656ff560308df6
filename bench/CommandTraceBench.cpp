// Appending to the ring trace: an issue and an end.

#include <benchmark/benchmark.h>

#include "CommandTrace.h"

namespace corvane::bench {
namespace {

void traceACommand(benchmark::State& state) {
  vdl::CommandTrace trace(static_cast<uint64_t>(state.range(0)));
  uint64_t id = 0;
  for (auto _ : state) {
    const auto tag = static_cast<uint32_t>(id % 128);
    trace.traceWriteIssued(id * 8, 8, id, tag, 5);
    trace.traceWriteFinished(id * 8, 8, id, tag, 0, {});
    ++id;
  }
  benchmark::DoNotOptimize(trace.count());
  state.SetItemsProcessed(2 * state.iterations());
}

BENCHMARK(traceACommand)->ArgName("ring")->Arg(2000)->Arg(16'484)->Arg(4'000'000);

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
