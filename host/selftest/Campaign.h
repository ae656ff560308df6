#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/fault/FaultClass.h"
#include "host/selftest/ExplanationCheck.h"
#include "host/selftest/Verdict.h"
#include "host/selftest/Workload.h"
#include "vdl/Agent.h"

namespace corvane::host {

/// How much a campaign does.
struct CampaignPlan {
  std::vector<FaultClass> classes;  ///< that are injected
  uint64_t faultSeeds = 1;          ///< runs of each class and workload
  uint64_t leastRuns = 0;           ///< of each class: more seeds where a class meets few workloads
  uint64_t cleanSeeds = 1;          ///< runs of each workload without a fault
  uint64_t cleanCommands = 2000;    ///< of each of those
  uint64_t firstSeed = 1;
  uint32_t jobs = 1;             ///< runs at once; no influence on any result
  std::string scratchDirectory;  ///< for the agent's reports, which are removed again
};

/// A run that ended as it must not.
struct CampaignExample {
  std::string text;  ///< one line
  TestDefinition test;
};

/// The verdicts of one class in one workload.
struct CellResult {
  std::string workload;
  uint64_t runs = 0;
  std::array<uint64_t, verdicts> count{};   ///< by Verdict
  std::map<std::string, uint64_t> reasons;  ///< of masked and explained
  std::map<std::string, uint64_t> kinds;    ///< of the found ones: what the explanation called them
  uint64_t suspected = 0;                   ///< of the found ones: explanations that name the class
  uint64_t suspectedFirst = 0;              ///< of those: explanations that name it first
  uint64_t contradicted = 0;  ///< explanations with a fact that the ledger contradicts, or without the class
  std::vector<CampaignExample> examples;  ///< of what must not be: the first few, with seed and command line
};

struct ClassResult {
  FaultClass what = FaultClass::lostWrite;
  std::vector<CellResult> cells;           ///< of the workloads in which it can strike
  std::vector<std::string> inexpressible;  ///< workloads in which it cannot

  uint64_t total(Verdict verdict) const;
  /// What the explanations called the found ones.
  std::map<std::string, uint64_t> kinds() const;
  uint64_t sum(uint64_t CellResult::*count) const;
  /// Injections that somebody had to notice.
  uint64_t visible() const;
  std::map<std::string, uint64_t> reasons() const;
};

/// The clean runs of one workload.
struct CleanResult {
  std::string workload;
  uint64_t runs = 0;
  uint64_t commands = 0;
  uint64_t blocksCompared = 0;
  uint64_t alarms = 0;
  std::vector<CampaignExample> examples;
};

struct CampaignResult {
  std::vector<ClassResult> classes;
  std::vector<CleanResult> clean;
  CellResult canary;
  uint64_t elapsedMs = 0;

  /// Every class that must be found was, and explained without contradiction; no clean run alarmed; the canary was
  /// missed.
  bool passed() const;
  uint64_t blocksCompared() const;
};

/// Runs tests with one injection each against simulated drives, and tests without any beside them.
///
/// Every run follows from its class, workload and seed alone, so a campaign's result does not depend on how many
/// runs go on at once.
class Campaign {
 public:
  /// @param agent outlives the object
  Campaign(const vdl::AgentTable& agent, CampaignPlan plan) : agent_(agent), plan_(std::move(plan)) {}

  /// Called when a class or the clean runs of a workload are done; on the calling thread.
  using OnClass = std::function<void(const ClassResult&)>;
  using OnClean = std::function<void(const CleanResult&)>;

  CampaignResult run(const OnClass& onClass = {}, const OnClean& onClean = {});

  /// One test of the campaign, as it would be run again by hand.
  static TestDefinition testOf(const Workload& workload, FaultClass what, uint64_t seed);
  static TestDefinition cleanTestOf(const Workload& workload, uint64_t seed, uint64_t commands);

 private:
  ClassResult runClass(FaultClass what);
  CellResult runCell(FaultClass what, const Workload& workload, uint64_t seeds);
  CleanResult runClean(const Workload& workload);
  /// Calls `work` for every index below `count`, several at once.
  void parallel(uint64_t count, const std::function<void(uint64_t)>& work) const;
  RunResult runTest(TestDefinition test) const;

  const vdl::AgentTable& agent_;
  const CampaignPlan plan_;
};

}  // namespace corvane::host
