// Holds the account of what compares were worth against what the agent does, in many short tests with one wrong bit.
//
//   flipped_blocks [--seeds N] [--first-seed N] [--only WORKLOAD]
//
// The exit status is 0 when the account and the agent agreed in every test.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>

#include "tests/e2e/FlippedBlocks.h"

namespace corvane::host::e2e {
namespace {

/// What became of the tests of one class of blocks.
struct Tally {
  uint64_t failed = 0;
  uint64_t silent = 0;
};

struct Campaign {
  uint64_t seeds = 20;
  uint64_t firstSeed = 1;
  std::string only;
  uint64_t runs = 0;
  uint64_t unstruck = 0;
  uint64_t preReads = 0;
  uint64_t disagreements = 0;
  CheckedBlocks blocks;
  std::map<std::string, Tally> classes;
  std::map<std::string, uint64_t> otherEnds;

  void run();
  void add(const Workload& workload, const FlippedRun& run);
  void print() const;
};

const char* whereText(FlipWhere where) {
  switch (where) {
    case FlipWhere::anyBlock:
      return "any block";
    case FlipWhere::anyVerify:
      return "any verify";
    case FlipWhere::uncertain:
      return "uncertain block";
    case FlipWhere::underAtomic:
      break;
  }
  return "block under an atomic write";
}

void Campaign::run() {
  for (const Workload& workload : flippedWorkloads()) {
    if (!only.empty() && workload.name != only) {
      continue;
    }
    for (uint64_t seed = firstSeed; seed < firstSeed + seeds; ++seed) {
      for (const FlipWhere where : flipPlaces) {
        const CommandMix& mix = workload.test.mix;
        if ((where == FlipWhere::anyVerify && !mix.selects(CommandKind::verify)) ||
            (where == FlipWhere::underAtomic && !mix.selects(CommandKind::writeAtomic))) {
          continue;
        }
        const FlippedRun one = runFlipped(workload, where, seed);
        if (!one.agrees()) {
          ++disagreements;
          std::printf("DISAGREE %s, seed %lu, %s: %s", workload.name.c_str(), static_cast<unsigned long>(seed),
                      whereText(where), one.describe().c_str());
        }
        add(workload, one);
      }
    }
  }
}

void Campaign::add(const Workload& workload, const FlippedRun& run) {
  ++runs;
  const DriveResult& drive = run.result.drives.at(0);
  blocks += drive.totals.checked;
  const uint64_t untold = drive.totals.checked.notCheckable[static_cast<size_t>(Uncheckable::untold)];
  if (untold != 0) {
    ++otherEnds["untold blocks in " + workload.name];
  }
  if (drive.agentStatus != 0 && drive.agentStatus != -1046) {
    ++otherEnds[workload.name + " ended with " + std::to_string(drive.agentStatus)];
  }
  if (!run.flipped) {
    ++unstruck;
    if (drive.agentStatus != 0) {
      ++otherEnds[workload.name + " was reported without a flip"];
    }
    return;
  }
  if (!run.worth) {
    ++preReads;
    return;
  }
  const std::string name =
      run.worth->outcomes != 0 ? std::to_string(run.worth->outcomes) + " outcomes" : uncheckableText(run.worth->reason);
  Tally& tally = classes[name];
  ++(drive.agentStatus == -1046 ? tally.failed : tally.silent);
}

void Campaign::print() const {
  std::printf("%-85s %10s %10s\n", "class", "reported", "silent");
  for (const auto& [name, tally] : classes) {
    std::printf("%-85s %10lu %10lu\n", name.c_str(), static_cast<unsigned long>(tally.failed),
                static_cast<unsigned long>(tally.silent));
  }
  for (const auto& [name, count] : otherEnds) {
    std::printf("%s: %lu\n", name.c_str(), static_cast<unsigned long>(count));
  }
  const uint64_t untold = blocks.notCheckable[static_cast<size_t>(Uncheckable::untold)];
  std::printf("%lu blocks looked at, %lu of them untold\n", static_cast<unsigned long>(blocks.total()),
              static_cast<unsigned long>(untold));
  std::printf("%lu runs, %lu without a flip, %lu in a read ahead of an atomic write, %lu disagreements\n",
              static_cast<unsigned long>(runs), static_cast<unsigned long>(unstruck),
              static_cast<unsigned long>(preReads), static_cast<unsigned long>(disagreements));
}

}  // namespace
}  // namespace corvane::host::e2e

int main(int argc, char** argv) {
  corvane::host::e2e::Campaign campaign;
  CLI::App app("Flips one bit of one read block a test, and compares what the agent does with the account");
  app.add_option("--seeds", campaign.seeds, "tests of each workload and each kind of wrong answer")
      ->capture_default_str();
  app.add_option("--first-seed", campaign.firstSeed, "the first of them")->capture_default_str();
  app.add_option("--only", campaign.only, "one workload");
  CLI11_PARSE(app, argc, argv);
  campaign.run();
  campaign.print();
  return campaign.disagreements == 0 ? 0 : 1;
}
