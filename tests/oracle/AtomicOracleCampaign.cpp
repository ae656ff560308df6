// Holds the agent's judgement of reads against what drives can do, over more histories than the tests have time for.
//
//   atomic_oracle [--blocks N] [--writes N] [--base BASE] [--read-at-end] [--earlier-read] [--random N [--seed N]]
//
// The exit status is 0 when every difference has a rule that explains it, 1 when one has none, 4 when the agent did not
// do what a history says.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <map>
#include <random>
#include <string>

#include "tests/oracle/Histories.h"
#include "tests/oracle/Sweep.h"

namespace oracletest {
namespace {

struct Campaign {
  Bound bound;
  std::string base = "written";
  uint64_t random = 0;
  uint64_t seed = 1;

  Tally run() const {
    const Silence silence;
    Sweep sweep;
    if (random == 0) {
      forEachHistory(bound, [&sweep](const History& history) { return sweep.judge(history); });
      return sweep.tally();
    }
    std::mt19937_64 generator(seed);
    for (uint64_t i = 0; i < random && sweep.judgeOne(randomHistory(generator)); ++i) {
    }
    return sweep.tally();
  }
};

}  // namespace
}  // namespace oracletest

namespace {

int run(int argc, char** argv) {
  using oracletest::Base;
  oracletest::Campaign campaign;
  CLI::App app("Compares what the agent accepts with what drives can do, over all histories of a few commands");
  const std::map<std::string, Base> bases = {
      {"written", Base::written}, {"trimmed", Base::trimmed}, {"unknown", Base::unknown}};
  app.add_option("--blocks", campaign.bound.blocks, "Blocks of every history")->check(CLI::Range(1, 4));
  app.add_option("--writes", campaign.bound.writes, "Writes of every history")->check(CLI::Range(1, 4));
  app.add_option("--base", campaign.base, "What the blocks hold at the start")->check(CLI::IsMember(bases));
  app.add_flag("!--one-segment", campaign.bound.shorterBounds, "Atomic writes are one segment each");
  app.add_flag("--trims", campaign.bound.trims, "Trims instead of plain writes");
  app.add_flag("!--read-at-end", campaign.bound.readAmongWrites, "The last read comes when all writes have ended");
  app.add_flag("--partial-reads", campaign.bound.partialReads, "The last read covers any of the blocks");
  app.add_flag("--earlier-read", campaign.bound.earlierRead, "A read among the writes, and one at the end");
  app.add_flag("--read-backs", campaign.bound.readBacks, "The agent's own read-backs ahead of the last read");
  app.add_flag("--judge-read-backs", campaign.bound.readBackIsLast, "With these: the last read-back is judged");
  app.add_option("--random", campaign.random, "Instead: this many histories drawn at random");
  app.add_option("--seed", campaign.seed, "Of the random ones");
  CLI11_PARSE(app, argc, argv);
  campaign.bound.base = bases.at(campaign.base);
  const oracletest::Tally tally = campaign.run();
  std::fputs(describe(tally).c_str(), stdout);
  return tally.unexplained.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 4;
  }
}
