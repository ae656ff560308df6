// Holds the agent against the naive model in many more sequences than a test can wait for.
//
//   model_campaign --every 6                    every sequence of up to so many operations
//   model_campaign --every 6 --count-only       only says how many there are
//   model_campaign --cases 10000000 --seed 1    so many random sequences, longer and wider ones
//
// The exit status is 0 when model and agent agreed in every sequence.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "tests/model/EverySequence.h"
#include "tests/model/RandomSequence.h"

namespace refmodel {
namespace {

/// Sequences from one seed of the generator, so that a long campaign says how far it is.
constexpr uint64_t batch = 100000;

unsigned long shown(uint64_t count) { return static_cast<unsigned long>(count); }

int conclude(const std::string& difference, bool compared) {
  if (!difference.empty()) {
    std::printf("DIFFERENT:\n%s", difference.c_str());
    return 1;
  }
  std::printf(compared ? "model and agent agree in all of them\n" : "nothing was compared\n");
  return 0;
}

int everySequence(size_t length, bool countOnly) {
  EverySequence all(length);
  countOnly ? all.count() : void(all.run());
  const EverySequence::Counts& counts = all.counts();
  uint64_t sum = 0;
  bool allOfThem = true;
  for (size_t i = 1; i <= length; ++i) {
    std::printf("%zu operations: %lu sequences\n", i, shown(counts.sequences.at(i)));
    sum += counts.sequences.at(i);
    allOfThem = allOfThem && (i > EverySequence::knownLength || counts.sequences.at(i) == EverySequence::howMany.at(i));
  }
  std::printf("%lu sequences, %lu judgements, %lu findings, %lu refusals\n", shown(sum), shown(counts.judgements),
              shown(counts.findings), shown(counts.refusals));
  if (all.difference().empty() && !allOfThem) {
    std::printf("THESE ARE NOT ALL: there were others before\n");
    return 1;
  }
  return conclude(all.difference(), !countOnly);
}

int randomSequences(uint64_t cases, uint64_t seed) {
  RandomCounts counts;
  std::string difference;
  for (uint64_t done = 0; done < cases && difference.empty(); ++seed) {
    const uint64_t count = std::min(batch, cases - done);
    {
      Comparison comparison;
      difference = playRandomSequences(comparison, seed, static_cast<uint32_t>(count), counts);
    }
    done += count;
    std::printf("%lu sequences of %lu operations, %lu judgements, %lu findings, %lu refusals; seed %lu\n",
                shown(counts.sequences), shown(counts.operations), shown(counts.judgements), shown(counts.findings),
                shown(counts.refusals), shown(seed));
    std::fflush(stdout);
  }
  return conclude(difference, true);
}

}  // namespace
}  // namespace refmodel

int main(int argc, char** argv) {
  CLI::App app("Holds the agent against the naive model");
  size_t length = 0;
  bool countOnly = false;
  uint64_t cases = 0;
  uint64_t seed = 1;
  auto* every = app.add_option("--every", length, "every sequence of up to so many operations")
                    ->check(CLI::Range(size_t{1}, refmodel::EverySequence::mostLength));
  app.add_flag("--count-only", countOnly, "only say how many there are")->needs(every);
  auto* random = app.add_option("--cases", cases, "so many random sequences")->excludes(every);
  app.add_option("--seed", seed, "of the first 100,000 of them; the next ones have the next seed")->needs(random);
  CLI11_PARSE(app, argc, argv);
  if (length == 0 && cases == 0) {
    std::fprintf(stderr, "model_campaign: one of --every and --cases is needed\n");
    return 2;
  }
  return length != 0 ? refmodel::everySequence(length, countOnly) : refmodel::randomSequences(cases, seed);
}
