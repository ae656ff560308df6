// A whole test as a user runs it: the step loop, the fence, the simulated drive and the built agent.

#include <benchmark/benchmark.h>

#include "host/run/TestRun.h"

namespace corvane::bench {
namespace {

/// Arguments: queue depth, whether every kind of command takes part, whether commands are remembered with their times.
void simulatedTest(benchmark::State& state) {
  constexpr uint64_t commands = 200'000;
  for (auto _ : state) {
    host::TestDefinition test;
    test.pluginPath = CORVANE_AGENT_PATH;
    test.driveAddresses = {"sim:64m"};
    test.queueDepth = static_cast<uint32_t>(state.range(0));
    test.commandLimit = commands;
    test.journalDepth = state.range(2) != 0 ? 1U << 15 : 0;
    if (state.range(1) != 0) {
      test.mix = {.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
    }
    host::TestRun run(test);
    if (run.run().status != host::RunStatus::clean) {
      state.SkipWithError("the test was not clean");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(commands));
}

BENCHMARK(simulatedTest)
    ->ArgNames({"depth", "everyKind", "journal"})
    ->Args({1, 0, 1})
    ->Args({32, 0, 1})
    ->Args({128, 0, 0})
    ->Args({128, 0, 1})
    ->Args({128, 1, 1})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
