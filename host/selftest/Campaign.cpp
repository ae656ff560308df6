#include "host/selftest/Campaign.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "host/base/Random.h"
#include "host/drive/DriveFactory.h"
#include "host/run/FaultSetup.h"
#include "host/run/TestRun.h"
#include "host/selftest/SimulatedTime.h"

namespace corvane::host {
namespace {

constexpr uint64_t canarySeeds = 20;
constexpr size_t mostExamples = 5;
constexpr uint64_t earliestStrike = 60;  ///< when the queue is filled and reads have begun
constexpr uint64_t strikeWindow = 240;
constexpr uint32_t rememberedCommands = 2048;  ///< more than a test of the campaign has

/// Adds what became of an explanation to a cell. Returns what is wrong with it; empty when nothing is.
std::string addExplanation(CellResult& cell, const ExplanationVerdict& verdict) {
  std::string wrong = verdict.wrong;
  if (!verdict.explained) {
    wrong = "there was nothing to explain it with";
  } else {
    ++cell.kinds[findingKindName(verdict.kind)];
    cell.suspected += verdict.suspected ? 1 : 0;
    cell.suspectedFirst += verdict.suspectedFirst ? 1 : 0;
    if (wrong.empty() && !verdict.suspected) {
      wrong = std::string("explained as ") + findingKindName(verdict.kind) + " by other faults";
    }
  }
  if (!wrong.empty()) {
    ++cell.contradicted;
  }
  return wrong;
}

/// A folder of a run's own; gone with it.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& below) : path_(below + "/run-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::runtime_error("no folder can be made in '" + below + "'; check that it can be written to");
    }
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

JudgedTest judgedTest(const TestDefinition& test) {
  const auto& options = test.agentOptions;
  const auto on = [&options](const char* name) {
    return std::ranges::any_of(options, [name](const auto& one) { return one.first == name && one.second == "true"; });
  };
  const uint64_t step = on("Use Skip Commands") ? 2 : 1;
  return {.maxSpan = test.maxBlocks * step,
          .looksForSplices = on("Write Splice Detection"),
          .slidesReads = on("Slide Reads")};
}

std::string whyNotExpressible(FaultClass what, const Workload& workload) {
  const FaultSpec spec{.what = what, .atCommand = 1, .most = 1};
  const auto drive = openDrive(workload.test.driveAddresses.front(), 1);
  return faultNeeds(spec, faultSurroundings(workload.test), drive->geometry());
}

bool isFound(Verdict verdict) { return verdict == Verdict::named || verdict == Verdict::found; }

std::map<std::string, uint64_t> merged(const std::vector<CellResult>& cells,
                                       std::map<std::string, uint64_t> CellResult::*counts) {
  std::map<std::string, uint64_t> sum;
  for (const CellResult& cell : cells) {
    for (const auto& [name, count] : cell.*counts) {
      sum[name] += count;
    }
  }
  return sum;
}

bool mustNotBe(Verdict verdict) {
  return verdict == Verdict::missed || verdict == Verdict::falseAlarm || verdict == Verdict::broken;
}

}  // namespace

uint64_t ClassResult::total(Verdict verdict) const {
  uint64_t sum = 0;
  for (const CellResult& cell : cells) {
    sum += cell.count[static_cast<size_t>(verdict)];
  }
  return sum;
}

uint64_t ClassResult::visible() const {
  return total(Verdict::named) + total(Verdict::found) + total(Verdict::explained) + total(Verdict::missed);
}

std::map<std::string, uint64_t> ClassResult::reasons() const { return merged(cells, &CellResult::reasons); }

std::map<std::string, uint64_t> ClassResult::kinds() const { return merged(cells, &CellResult::kinds); }

uint64_t ClassResult::sum(uint64_t CellResult::*count) const {
  uint64_t sum = 0;
  for (const CellResult& cell : cells) {
    sum += cell.*count;
  }
  return sum;
}

uint64_t CampaignResult::blocksCompared() const {
  uint64_t sum = 0;
  for (const CleanResult& one : clean) {
    sum += one.blocksCompared;
  }
  return sum;
}

bool CampaignResult::passed() const {
  const bool classesPassed = std::ranges::none_of(classes, [](const ClassResult& one) {
    return one.total(Verdict::missed) + one.total(Verdict::falseAlarm) + one.total(Verdict::broken) +
               one.sum(&CellResult::contradicted) !=
           0;
  });
  const bool cleanPassed = std::ranges::none_of(clean, [](const CleanResult& one) { return one.alarms != 0; });
  return classesPassed && cleanPassed && canary.count[static_cast<size_t>(Verdict::missed)] != 0;
}

TestDefinition Campaign::testOf(const Workload& workload, FaultClass what, uint64_t seed) {
  TestDefinition test = workload.test;
  test.seed = deriveSeed(seed, workload.name, static_cast<uint64_t>(what));
  Random random(test.seed);
  test.journalDepth = rememberedCommands;
  test.faults = {{.what = what, .atCommand = earliestStrike + random.below(strikeWindow), .most = 1}};
  return test;
}

TestDefinition Campaign::cleanTestOf(const Workload& workload, uint64_t seed, uint64_t commands) {
  TestDefinition test = workload.test;
  test.seed = deriveSeed(seed, workload.name, faultClasses().size());
  test.commandLimit = commands;
  return test;
}

RunResult Campaign::runTest(TestDefinition test) const {
  const ScratchFolder folder(plan_.scratchDirectory);
  test.outputDirectory = folder.path();
  SimulatedTime clock;
  RunSurroundings world;
  world.agent = &agent_;
  world.clock = &clock;
  world.onDriveThread = [] { SimulatedTime::begin(); };
  TestRun run(std::move(test), nullptr, std::move(world));
  return run.run();
}

void Campaign::parallel(uint64_t count, const std::function<void(uint64_t)>& work) const {
  std::atomic<uint64_t> next{0};
  std::mutex mutex;
  std::exception_ptr failure;
  {
    std::vector<std::jthread> threads;
    for (uint32_t job = 0; job < std::max(1U, plan_.jobs); ++job) {
      threads.emplace_back([&] {
        try {
          for (uint64_t index = next++; index < count; index = next++) {
            work(index);
          }
        } catch (...) {
          const std::lock_guard lock(mutex);
          failure = std::current_exception();
          next = count;
        }
      });
    }
  }
  if (failure != nullptr) {
    std::rethrow_exception(failure);
  }
}

CellResult Campaign::runCell(FaultClass what, const Workload& workload, uint64_t seeds) {
  struct One {
    Judgement judgement;
    ExplanationVerdict explanation;
  };
  std::vector<One> runs(seeds);
  parallel(seeds, [&](uint64_t index) {
    const TestDefinition test = testOf(workload, what, plan_.firstSeed + index);
    const RunResult result = runTest(test);
    One& one = runs[index];
    one.judgement = judge(what, result, judgedTest(test));
    if (isFound(one.judgement.verdict)) {
      one.explanation = checkExplanation(what, result);
    }
  });
  CellResult cell;
  cell.workload = workload.name;
  cell.runs = seeds;
  for (uint64_t index = 0; index < seeds; ++index) {
    const auto& [verdict, reason] = runs[index].judgement;
    ++cell.count[static_cast<size_t>(verdict)];
    if (verdict == Verdict::masked || verdict == Verdict::explained) {
      ++cell.reasons[reason];
    }
    std::string complaint = reason;
    bool wrong = mustNotBe(verdict);
    if (isFound(verdict)) {
      complaint = addExplanation(cell, runs[index].explanation);
      wrong = !complaint.empty();
    }
    if (wrong && cell.examples.size() < mostExamples) {
      const uint64_t seed = plan_.firstSeed + index;
      cell.examples.push_back({.text = std::string(verdictName(verdict)) + ": " + faultClassInfo(what).name +
                                       ", workload " + workload.name + ", seed " + std::to_string(seed) +
                                       (complaint.empty() ? "" : ": " + complaint),
                               .test = testOf(workload, what, seed)});
    }
  }
  return cell;
}

ClassResult Campaign::runClass(FaultClass what) {
  ClassResult result;
  result.what = what;
  std::vector<const Workload*> expressible;
  for (const Workload& workload : workloads()) {
    if (whyNotExpressible(what, workload).empty()) {
      expressible.push_back(&workload);
    } else {
      result.inexpressible.push_back(workload.name);
    }
  }
  for (const Workload* workload : expressible) {
    const uint64_t share = (plan_.leastRuns + expressible.size() - 1) / expressible.size();
    result.cells.push_back(runCell(what, *workload, std::max(plan_.faultSeeds, share)));
  }
  return result;
}

CleanResult Campaign::runClean(const Workload& workload) {
  struct One {
    DriveTotals totals;
    RunStatus status = RunStatus::clean;
    std::string error;
  };
  std::vector<One> runs(plan_.cleanSeeds);
  parallel(plan_.cleanSeeds, [&](uint64_t index) {
    const RunResult result = runTest(cleanTestOf(workload, plan_.firstSeed + index, plan_.cleanCommands));
    One& one = runs[index];
    one.totals = result.totals();
    one.status = result.status;
    for (const DriveResult& drive : result.drives) {
      one.error += drive.error;
    }
  });
  CleanResult clean;
  clean.workload = workload.name;
  clean.runs = plan_.cleanSeeds;
  for (uint64_t index = 0; index < runs.size(); ++index) {
    const One& one = runs[index];
    clean.commands += one.totals.commandsIssued();
    clean.blocksCompared += one.totals.blocksCompared;
    if (one.status != RunStatus::clean) {
      ++clean.alarms;
      if (clean.examples.size() < mostExamples) {
        const uint64_t seed = plan_.firstSeed + index;
        clean.examples.push_back({.text = "alarm: clean run, workload " + workload.name + ", seed " +
                                          std::to_string(seed) + ": " + one.error,
                                  .test = cleanTestOf(workload, seed, plan_.cleanCommands)});
      }
    }
  }
  return clean;
}

CampaignResult Campaign::run(const OnClass& onClass, const OnClean& onClean) {
  const uint64_t beganUs = HostClock::real().steadyUs();
  CampaignResult result;
  result.canary = runCell(FaultClass::lostWrite, canaryWorkload(), std::min(canarySeeds, plan_.faultSeeds));
  for (const FaultClass what : plan_.classes) {
    const ClassResult& done = result.classes.emplace_back(runClass(what));
    if (onClass) {
      onClass(done);
    }
  }
  for (const Workload& workload : workloads()) {
    if (plan_.cleanSeeds == 0) {
      break;
    }
    const CleanResult& done = result.clean.emplace_back(runClean(workload));
    if (onClean) {
      onClean(done);
    }
  }
  result.elapsedMs = (HostClock::real().steadyUs() - beganUs) / 1000;
  return result;
}

}  // namespace corvane::host
