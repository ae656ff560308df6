// Runs tests that are drawn at random behind guards, and says which of them changed anything outside its range.
//
//   guarded_ranges [--tests N] [--first N]
//
// The exit status is 0 when none did.

#include <CLI/CLI.hpp>
#include <cstdio>

#include "host/drive/DriveError.h"
#include "host/run/ConfigurationError.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/RandomTests.h"

namespace corvane::host::e2e {
namespace {

struct Tally {
  uint64_t ran = 0;
  uint64_t refused = 0;
  uint64_t outside = 0;
  uint64_t internal = 0;
  uint64_t blocksWritten = 0;
};

void runOne(uint64_t number, Tally& tally) {
  const Workspace workspace;
  const TestDefinition test = prepared(randomTest(number), workspace);
  const auto complain = [&](const std::string& of) {
    std::printf("test %lu (%s): %s\n", number, describe(test).c_str(), of.c_str());
  };
  try {
    const RunResult result = runTest(test);
    ++tally.ran;
    tally.blocksWritten += result.totals().blocksWritten;
    if (result.status == RunStatus::internal && result.drives.at(0).agentStatus == 0) {
      ++tally.internal;
      complain(agentLines(result));
    }
  } catch (const ConfigurationError&) {
    ++tally.refused;
  } catch (const DriveError&) {
    ++tally.refused;
  } catch (const std::logic_error& error) {
    ++tally.outside;
    complain(error.what());
  }
}

}  // namespace
}  // namespace corvane::host::e2e

int main(int argc, char** argv) {
  uint64_t tests = 1000;
  uint64_t first = 1;
  CLI::App app("Runs tests that are drawn at random, and looks for changes outside their ranges");
  app.add_option("--tests", tests, "how many")->capture_default_str();
  app.add_option("--first", first, "number of the first")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  corvane::host::e2e::Tally tally;
  for (uint64_t number = first; number < first + tests; ++number) {
    corvane::host::e2e::runOne(number, tally);
  }
  std::printf(
      "%lu tests ran and wrote %lu blocks, %lu were refused, %lu changed something outside their ranges, %lu "
      "broke a rule of the host\n",
      tally.ran, tally.blocksWritten, tally.refused, tally.outside, tally.internal);
  return tally.outside + tally.internal == 0 ? 0 : 1;
}
