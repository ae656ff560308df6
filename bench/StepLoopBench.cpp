// A step of the host alone, and a whole test as a user runs it: the step loop, the fence, the simulated drive and the
// built agent.

#include <benchmark/benchmark.h>

#include "bench/CostlessAgent.h"
#include "bench/CostlessDrive.h"
#include "host/run/StepLoop.h"
#include "host/run/TestRun.h"

namespace corvane::bench {
namespace {

constexpr uint32_t usualDepth = 32;

/// Steps between an agent and a drive that cost next to nothing.
///
/// Arguments: blocks of a command, whether commands are remembered with their times, writes that wait to be read back.
void hostStep(benchmark::State& state) {
  constexpr uint64_t driveBlocks = 128U << 10;
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto waiting = static_cast<uint32_t>(state.range(2));
  host::DriveThreadHost::Settings thread;
  thread.name = "bench";
  thread.queueDepth = usualDepth;
  host::DriveThreadHost threadHost(thread);
  CostlessDrive drive(driveBlocks, usualDepth);
  host::CommandJournal journal(1U << 15, usualDepth, host::HostClock::real());
  const std::unique_ptr<host::LbaAgent> lbaAgent =
      host::makeLbaAgent("mixed", {.endLba = driveBlocks, .minBlocks = blocks, .maxBlocks = blocks}, 1);
  host::StepSettings settings;
  settings.minBlocks = blocks;
  settings.maxBlocks = blocks;
  settings.maxLba = driveBlocks - 1;
  settings.checks = {.minQueueSize = waiting, .maxQueueSize = 2 * waiting};
  settings.journal = state.range(1) != 0 ? &journal : nullptr;
  host::DriveCounters counters;
  const vdl::AgentTable table = CostlessAgent::table();
  CostlessAgent agent(threadHost, {host::CommandKind::write}, blocks, waiting);
  host::StepLoop loop(table, nullptr, threadHost, drive, *lbaAgent, settings, counters, host::HostClock::real());
  for (uint32_t i = 0; i < 4 * (waiting + usualDepth); ++i) {
    loop.step();
  }
  const uint64_t before = loop.commandsIssued();
  for (auto _ : state) {
    loop.step();
  }
  if (counters.checked.oneOutcome.get() == 0 || counters.checked.get().uncheckable() != 0) {
    state.SkipWithError("the account does not follow the commands");
  }
  state.SetItemsProcessed(static_cast<int64_t>(loop.commandsIssued() - before));
  loop.abandon();
}

BENCHMARK(hostStep)
    ->ArgNames({"blocks", "journal", "waiting"})
    ->Args({1, 0, 2048})
    ->Args({1, 1, 2048})
    ->Args({1, 1, 64})
    ->Args({8, 0, 2048})
    ->Args({8, 1, 2048})
    ->Args({256, 0, 64})
    ->Args({256, 1, 64});

/// Arguments: queue depth, whether every kind of command takes part, whether commands are remembered with their times,
/// blocks of a command; 0: 1 to 8.
void simulatedTest(benchmark::State& state) {
  const uint64_t commands = state.range(3) > 8 ? 20'000 : 200'000;
  for (auto _ : state) {
    host::TestDefinition test;
    test.pluginPath = CORVANE_AGENT_PATH;
    test.driveAddresses = {"sim:64m"};
    test.queueDepth = static_cast<uint32_t>(state.range(0));
    test.commandLimit = commands;
    test.journalDepth = state.range(2) != 0 ? 1U << 15 : 0;
    if (state.range(3) != 0) {
      test.minBlocks = static_cast<uint32_t>(state.range(3));
      test.maxBlocks = test.minBlocks;
    }
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
    ->ArgNames({"depth", "everyKind", "journal", "blocks"})
    ->Args({1, 0, 1, 0})
    ->Args({32, 0, 1, 0})
    ->Args({32, 0, 1, 1})
    ->Args({32, 0, 1, 8})
    ->Args({32, 0, 1, 256})
    ->Args({128, 0, 0, 0})
    ->Args({128, 0, 1, 0})
    ->Args({128, 1, 1, 0})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

}  // namespace
}  // namespace corvane::bench

BENCHMARK_MAIN();
