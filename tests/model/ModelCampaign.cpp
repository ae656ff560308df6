// Holds the agent against the naive model in many more sequences than a test can wait for.
//
//   model_campaign --every 6                 every sequence of up to so many operations
//   model_campaign --every 6 --count-only    only says how many there are
//
// The exit status is 0 when model and agent agreed in every sequence.

#include <CLI/CLI.hpp>
#include <cstdio>

#include "tests/model/EverySequence.h"

namespace refmodel {
namespace {

int everySequence(size_t length, bool countOnly) {
  EverySequence all(length);
  countOnly ? all.count() : void(all.run());
  const EverySequence::Counts& counts = all.counts();
  uint64_t sum = 0;
  for (size_t i = 1; i <= length; ++i) {
    std::printf("%zu operations: %lu sequences\n", i, static_cast<unsigned long>(counts.sequences.at(i)));
    sum += counts.sequences.at(i);
  }
  std::printf("%lu sequences, %lu judgements, %lu findings, %lu refusals\n", static_cast<unsigned long>(sum),
              static_cast<unsigned long>(counts.judgements), static_cast<unsigned long>(counts.findings),
              static_cast<unsigned long>(counts.refusals));
  if (!all.difference().empty()) {
    std::printf("DIFFERENT:\n%s", all.difference().c_str());
    return 1;
  }
  std::printf(countOnly ? "nothing was compared\n" : "model and agent agree in all of them\n");
  return 0;
}

}  // namespace
}  // namespace refmodel

int main(int argc, char** argv) {
  CLI::App app("Holds the agent against the naive model");
  size_t length = 0;
  bool countOnly = false;
  app.add_option("--every", length, "every sequence of up to so many operations")
      ->check(CLI::Range(size_t{1}, refmodel::EverySequence::mostLength))
      ->required();
  app.add_flag("--count-only", countOnly, "only say how many there are");
  CLI11_PARSE(app, argc, argv);
  return refmodel::everySequence(length, countOnly);
}
