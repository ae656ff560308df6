#include "host/run/TestRun.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "host/base/CpuList.h"
#include "host/drive/DriveAddress.h"
#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "host/fault/FaultExchange.h"
#include "host/fault/FaultyDrive.h"
#include "host/run/AgentConfig.h"
#include "host/run/ConditionSet.h"
#include "host/run/ConfigurationError.h"
#include "host/run/ContractCheck.h"
#include "host/run/DriveRun.h"
#include "host/run/FaultSetup.h"
#include "host/run/HostClock.h"
#include "host/run/PluginLoader.h"

namespace corvane::host {
namespace {

constexpr uint64_t faultSeedStep = 1000;  ///< more drives than a test has
constexpr uint64_t looksPerWatchdog = 8;
constexpr uint64_t longestPauseMs = 1000;  ///< before somebody looks again whether a drive hangs
constexpr uint64_t longestTurnUs = 100'000;

uint64_t pauseMsOf(const TestDefinition& test) {
  return std::clamp<uint64_t>(test.watchdogMs / looksPerWatchdog, 1, longestPauseMs);
}

/// How long a drive's thread should run before another one's takes its processor; 0: there is one for each.
uint64_t turnUsOf(const TestDefinition& test) {
  const uint64_t processors = test.pinnedCpus.empty() ? allowedCpus().size() : test.pinnedCpus.size();
  const uint64_t drives = test.driveAddresses.size();
  if (drives <= processors) {
    return 0;
  }
  // A thread may wait for two turns of each of the others, and must not be taken for one whose drive hangs meanwhile.
  return std::min(longestTurnUs, pauseMsOf(test) * 1000 * processors / (2 * drives));
}

}  // namespace

struct TestRun::State {
  State(TestDefinition definition, RunObserver* runObserver, RunSurroundings surroundings)
      : test(std::move(definition)),
        observer(runObserver != nullptr ? runObserver : &RunObserver::none()),
        world(std::move(surroundings)) {}

  const vdl::AgentTable& loadAgent() {
    return world.agent != nullptr ? *world.agent : plugin.emplace(test.pluginPath).table();
  }

  void prepare() {
    clock = world.clock != nullptr ? world.clock : &HostClock::real();
    if (!world.openDrive) {
      world.openDrive = [this](std::string_view address, uint32_t most, uint64_t seed, Overwriting overwriting) {
        AtStake stake;
        std::unique_ptr<Drive> drive = openDrive(address, most, seed, overwriting, &stake);
        warnOfLoss(std::string(address), stake);
        return drive;
      };
    }
    test.mix = mixUnder(test.mix, test.conditions);
    const vdl::AgentTable& agent = loadAgent();
    config.emplace(agent);
    warnings = config->apply(test, ConditionSet(test));
    options = AgentOptionValues::of(config->options());
    judge(checkTest(test, options));
    checkLbaAgentName();
    checkPinnedCpus();
    context.emplace(RunContext{.test = test,
                               .options = options,
                               .agent = agent,
                               .configData = config->record(),
                               .clock = *clock,
                               .stop = stop,
                               .observer = observer,
                               .worthListener = world.worthListener,
                               .turnUs = turnUsOf(test)});
    for (const std::string& address : test.driveAddresses) {
      addDrive(address);
    }
  }

  void checkLbaAgentName() const {
    if (lbaAgentHelp(test.lbaAgent).empty()) {
      makeLbaAgent(test.lbaAgent, {.endLba = 1}, 0);
    }
  }

  void checkPinnedCpus() const {
    const std::vector<uint32_t> allowed = test.pinnedCpus.empty() ? std::vector<uint32_t>() : allowedCpus();
    for (const uint32_t cpu : test.pinnedCpus) {
      if (std::find(allowed.begin(), allowed.end(), cpu) == allowed.end()) {
        throw ConfigurationError("no thread can be pinned to CPU " + std::to_string(cpu) +
                                 ", because this process may run on " + cpuListText(allowed) +
                                 " only; choose among these, or start it with a wider CPU affinity");
      }
    }
  }

  void judge(const ContractReport& report) {
    if (!report.refusals.empty()) {
      throw ConfigurationError(report.refusals.front());
    }
    for (const std::string& warning : report.warnings) {
      if (std::find(warnings.begin(), warnings.end(), warning) == warnings.end()) {
        warnings.push_back(warning);
      }
    }
  }

  /// What the user allowed to go is named once more before it goes.
  void warnOfLoss(const std::string& address, const AtStake& stake) {
    const std::string shown = maskedAddress(address);
    for (const std::string& use : stake.uses) {
      warnings.push_back("drive '" + shown + "' is overwritten while it is in use: " + use);
    }
    for (const std::string& content : stake.contents) {
      warnings.push_back("drive '" + shown + "' held " + content + ", which is overwritten");
    }
  }

  void addDrive(const std::string& address) {
    const auto index = static_cast<uint32_t>(runs.size());
    const uint32_t most = test.mostOutstanding();
    std::unique_ptr<Drive> drive =
        world.openDrive(address, most, deriveSeed(test.seed, "drive", index), test.overwriting);
    if (drive->maxOutstanding() < most) {
      throw ConfigurationError("queue depth " + std::to_string(test.queueDepth) + " is too much: drive '" +
                               maskedAddress(address) + "' takes " + std::to_string(drive->maxOutstanding()) +
                               " commands at once, not " + std::to_string(most) + "; lower it");
    }
    if (const std::string missing = missingCapability(test, *drive, address); !missing.empty()) {
      throw DriveError(missing);
    }
    judge(checkTestOnDrive(test, options, *drive));
    std::unique_ptr<FaultLedger> ledger = putFaultsAround(drive, index);
    runs.push_back(std::make_unique<DriveRun>(*context, index, uniqueName(address, index), address, std::move(drive),
                                              std::move(ledger)));
  }

  std::unique_ptr<FaultLedger> putFaultsAround(std::unique_ptr<Drive>& drive, uint32_t index) {
    if (test.faults.empty()) {
      return nullptr;
    }
    auto ledger = std::make_unique<FaultLedger>(index);
    const FaultSurroundings surroundings = faultSurroundings(test);
    for (size_t fault = 0; fault < test.faults.size(); ++fault) {
      const FaultSpec& spec = test.faults[fault];
      if (const std::string never = faultNeeds(spec, surroundings, drive->geometry()); !never.empty()) {
        throw ConfigurationError(never);
      }
      drive = std::make_unique<FaultyDrive>(
          std::move(drive), spec, deriveSeed(test.seed, "fault", fault * faultSeedStep + index), *ledger, &exchange);
    }
    return ledger;
  }

  std::string uniqueName(const std::string& address, uint32_t index) const {
    const std::string name = driveDisplayName(address, index);
    const bool taken = std::any_of(runs.begin(), runs.end(), [&](const auto& run) { return run->name() == name; });
    return taken ? name + "-" + std::to_string(index) : name;
  }

  void oneEnded() {
    running.fetch_sub(1);
    const std::lock_guard lock(ending);
    ended.notify_all();
  }

  /// Until every drive's test has ended; the threads of drives that hang are let go.
  void waitForAll(std::vector<std::jthread>& threads) {
    std::unique_lock lock(ending);
    const std::chrono::milliseconds pause(pauseMsOf(test));
    while (running.load() != 0) {
      ended.wait_for(lock, pause);
      for (size_t drive = 0; drive < runs.size(); ++drive) {
        if (!runs[drive]->ended() && runs[drive]->giveUpIfHung(std::chrono::steady_clock::now())) {
          threads[drive].detach();
          running.fetch_sub(1);
        }
      }
    }
  }

  uint64_t elapsedMs() const {
    const uint64_t began = beganUs.load(std::memory_order_relaxed);
    return began == 0 ? 0 : (clock->steadyUs() - began) / 1000;
  }

  TestDefinition test;
  RunObserver* observer;
  RunSurroundings world;
  HostClock* clock = nullptr;
  std::optional<AgentPlugin> plugin;  // unloaded last: everything below may call into it
  std::optional<AgentConfig> config;
  AgentOptionValues options;
  std::vector<std::string> warnings;
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> beganUs{0};
  std::atomic<uint32_t> running{0};
  bool started = false;
  std::mutex ending;
  std::condition_variable ended;
  std::optional<RunContext> context;
  FaultExchange exchange;  // the drives use it
  std::vector<std::unique_ptr<DriveRun>> runs;
};

TestRun::TestRun(TestDefinition definition, RunObserver* observer, RunSurroundings surroundings)
    : state_(std::make_shared<State>(std::move(definition), observer, std::move(surroundings))) {
  state_->prepare();
}

TestRun::~TestRun() = default;

const std::vector<std::string>& TestRun::warnings() const { return state_->warnings; }

std::vector<DriveIntroduction> TestRun::drives() const {
  std::vector<DriveIntroduction> drives;
  for (const auto& run : state_->runs) {
    drives.push_back({.name = run->name(),
                      .address = run->address(),
                      .description = run->description(),
                      .geometry = run->geometry(),
                      .firstLba = run->range().firstLba,
                      .endLba = run->range().endLba});
  }
  return drives;
}

RunResult TestRun::run() {
  State& state = *state_;
  if (std::exchange(state.started, true)) {
    throw std::logic_error("a test runs once");
  }
  state.beganUs.store(state.clock->steadyUs());
  state.running.store(static_cast<uint32_t>(state.runs.size()));
  {
    std::vector<std::jthread> threads;
    for (const auto& run : state.runs) {
      threads.emplace_back([kept = state_, &run] {
        if (kept->world.onDriveThread) {
          kept->world.onDriveThread();
        }
        run->run();
        kept->oneEnded();
      });
    }
    state.waitForAll(threads);
  }
  RunResult result;
  result.seed = state.test.seed;
  result.elapsedMs = state.elapsedMs();
  result.stopped = state.stop.load();
  for (const auto& run : state.runs) {
    const DriveResult& drive = result.drives.emplace_back(run->result());
    result.status = worse(result.status, drive.status);
    if (std::optional<Finding> finding = findingOf(drive)) {
      finding->driveIndex = static_cast<uint32_t>(result.drives.size() - 1);
      result.findings.push_back(*std::move(finding));
    }
  }
  return result;
}

void TestRun::requestStop() noexcept { state_->stop.store(true, std::memory_order_relaxed); }

ProgressSnapshot TestRun::progress() const {
  ProgressSnapshot snapshot;
  for (const auto& run : state_->runs) {
    DriveProgress& drive = snapshot.drives.emplace_back();
    drive.ended = run->ended();
    drive.status = drive.ended ? run->result().status : RunStatus::clean;
    drive.totals = run->totals();
    snapshot.totals += drive.totals;
  }
  snapshot.elapsedMs = state_->elapsedMs();
  snapshot.drivesRunning = state_->running.load(std::memory_order_relaxed);
  return snapshot;
}

}  // namespace corvane::host
