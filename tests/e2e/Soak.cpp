// Runs every legal combination on a good drive for long, and watches what is said and how memory grows.
//
//   soak [--commands N] [--depth N] [--seed N] [--only NAME] [--file PATH]
//
// Not a test of the suite, because it takes many minutes; its exit status is the number of combinations that were
// not silent.

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/e2e/Combinations.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

struct SoakSettings {
  uint64_t commands = 2'000'000;
  uint32_t depth = 128;
  uint64_t seed = 1;
  std::string only;
  std::string file;
};

uint64_t residentKib() {
  std::ifstream file("/proc/self/statm");
  uint64_t pages = 0;
  file >> pages >> pages;
  return pages * 4;
}

/// Looks at the process's memory while a test runs.
class MemoryWatch {
 public:
  MemoryWatch(const TestRun& run, uint64_t commands) : watcher_([this, &run, commands] { watch(run, commands); }) {}
  ~MemoryWatch() { stop(); }
  MemoryWatch(const MemoryWatch&) = delete;
  MemoryWatch& operator=(const MemoryWatch&) = delete;

  void stop() {
    ended_ = true;
    if (watcher_.joinable()) {
      watcher_.join();
    }
  }
  uint64_t warmKib() const { return warmKib_; }  ///< at a quarter of the test
  uint64_t peakKib() const { return peakKib_; }

 private:
  void watch(const TestRun& run, uint64_t commands) {
    while (!ended_) {
      const uint64_t now = residentKib();
      if (warmKib_ == 0 && run.progress().totals.commandsIssued() >= commands / 4) {
        warmKib_ = now;
      }
      peakKib_ = std::max<uint64_t>(peakKib_, now);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }

  std::atomic<bool> ended_{false};
  std::atomic<uint64_t> warmKib_{0};
  std::atomic<uint64_t> peakKib_{0};
  std::thread watcher_;
};

TestDefinition definitionOf(const Combination& combination, const SoakSettings& settings, const Workspace& workspace) {
  TestDefinition test = prepared(combination.test, workspace);
  const std::string size = "136581120";  // a multiple of every sector size
  test.driveAddresses = {settings.file.empty() ? "sim:" + size + combination.sim
                                               : "file:" + settings.file + ",size=" + size + combination.sim};
  test.commandLimit = settings.commands;
  test.seed = settings.seed;
  if (test.queueDepth == TestDefinition().queueDepth) {
    test.queueDepth = settings.depth;
  }
  return test;
}

bool silent(const Combination& combination, const SoakSettings& settings) {
  const Workspace workspace;
  VirtualClock::restart();
  VirtualClock clock;
  RunSurroundings world;
  world.clock = &clock;
  const TestDefinition test = definitionOf(combination, settings, workspace);
  Trespasses trespasses;
  world.openDrive = guardedDrives(test, {}, trespasses);
  TestRun run(test, nullptr, world);
  MemoryWatch memory(run, settings.commands);
  const RunResult result = run.run();
  memory.stop();
  const DriveTotals totals = result.totals();
  const AgentMessages& said = result.drives.at(0).messages;
  const bool ok = result.status == RunStatus::clean && said.warnings + said.errors == 0 && trespasses.text().empty();
  std::fprintf(stderr,
               "%-26s %-6s %8lu commands, %8lu blocks compared, %4lu resets, %4lu power cuts, %7lu held back, "
               "%6.0f/s, memory %lu KiB at a quarter, %lu KiB at most\n",
               combination.name.c_str(), ok ? "silent" : "LOUD", totals.commandsIssued(), totals.blocksCompared,
               totals.resets, totals.powerCycles, totals.heldBack,
               1000.0 * static_cast<double>(totals.commandsIssued()) / static_cast<double>(result.elapsedMs + 1),
               memory.warmKib(), memory.peakKib());
  if (!ok) {
    std::fputs((agentLines(result) + trespasses.text()).c_str(), stderr);
  }
  return ok;
}

int soak(const SoakSettings& settings) {
  int loud = 0;
  for (const Combination& combination : combinations()) {
    if ((settings.only.empty() || settings.only == combination.name) && (settings.file.empty() || combination.onFile)) {
      if (!settings.file.empty()) {
        std::filesystem::remove(settings.file);
      }
      loud += silent(combination, settings) ? 0 : 1;
    }
  }
  return loud;
}

}  // namespace
}  // namespace corvane::host::e2e

int main(int argc, char** argv) {
  try {
    corvane::host::e2e::SoakSettings settings;
    CLI::App app("Runs every legal combination on a good drive");
    app.add_option("--commands", settings.commands, "commands for each combination")->capture_default_str();
    app.add_option("--depth", settings.depth, "queue depth, where the combination has none of its own")
        ->capture_default_str();
    app.add_option("--seed", settings.seed, "seed of the first choice")->capture_default_str();
    app.add_option("--only", settings.only, "one combination");
    app.add_option("--file", settings.file, "on this file, which is removed first, instead of in memory");
    CLI11_PARSE(app, argc, argv);
    return corvane::host::e2e::soak(settings);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 100;
  }
}
