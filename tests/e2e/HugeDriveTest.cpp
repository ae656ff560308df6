// Drives at the end of what LBAs can say: nothing may wrap around.

#include <gtest/gtest.h>

#include <limits>

#include "host/drive/sim/SimDrive.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

constexpr uint64_t mostBlocks = std::numeric_limits<uint64_t>::max();

struct Huge {
  const char* name;
  const char* lbaAgent;
  CommandMix mix;
  std::vector<std::pair<std::string, std::string>> options;
  uint64_t invalidateEvery = 0;
  uint64_t resetEvery = 0;
};
void PrintTo(const Huge& huge, std::ostream* out) { *out << huge.name; }

class HugeDrive : public testing::TestWithParam<Huge> {
 protected:
  /// Tests the LBAs from the first one to 2^64 - 2, the last one that a drive can have.
  RunResult runFrom(uint64_t firstLba, uint64_t endLba) {
    const Huge& huge = GetParam();
    TestDefinition test = prepared({}, workspace_);
    test.driveAddresses = {"sim:1m"};
    test.firstLba = firstLba;
    test.endLba = endLba;
    test.lbaAgent = huge.lbaAgent;
    test.mix = huge.mix;
    test.maxBlocks = 16;
    test.commandLimit = 3000;
    test.invalidateEveryCommands = huge.invalidateEvery;
    test.resetEveryCommands = huge.resetEvery;
    test.agentOptions = {{"Min Queue Size", "32"}, {"Max Queue Size", "64"}, {"Write Splice Detection", "true"}};
    test.agentOptions.insert(test.agentOptions.end(), huge.options.begin(), huge.options.end());
    return runTest(test, [](std::unique_ptr<Drive>) {
      SimSettings settings;
      settings.geometry = {.blocks = mostBlocks};
      return std::make_unique<SimDrive>(settings);
    });
  }

  Workspace workspace_;
};

TEST_P(HugeDrive, IsTestedUpToItsLastBlock) {
  // Sliding reads and blocks that are left out need some behind the range.
  for (const uint64_t blocks : {mostBlocks - 64, uint64_t{4000}, uint64_t{200}}) {
    const uint64_t end = mostBlocks - 40;
    const RunResult result = runFrom(end - blocks + (blocks > end ? blocks - end : 0), end);
    EXPECT_EQ(result.status, RunStatus::clean) << blocks << "\n" << agentLines(result);
    EXPECT_GT(result.totals().blocksCompared, 0U);
  }
}

TEST_P(HugeDrive, IsTestedToTheVeryEnd) {
  const bool readsBehind = GetParam().options.size() != 0;
  if (readsBehind) {
    EXPECT_EQ(runFrom(mostBlocks - 500, mostBlocks - 40).status, RunStatus::clean);
  } else {
    const RunResult result = runFrom(mostBlocks - 500, mostBlocks);
    EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  }
}

constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
constexpr CommandMix readWrite{.write = 1, .read = 1};

INSTANTIATE_TEST_SUITE_P(
    Every, HugeDrive,
    testing::Values(
        Huge{.name = "Mixed", .lbaAgent = "mixed", .mix = everyKind, .options = {}, .resetEvery = 300},
        Huge{.name = "Sequential", .lbaAgent = "sequential", .mix = everyKind, .options = {}},
        Huge{.name = "CacheStress", .lbaAgent = "cachestress", .mix = everyKind, .options = {}},
        Huge{.name = "Slide", .lbaAgent = "cachestress", .mix = readWrite, .options = {{"Slide Reads", "true"}}},
        Huge{.name = "Skip",
             .lbaAgent = "cachestress",
             .mix = readWrite,
             .options = {{"Use Skip Commands", "true"}, {"Embed Data", "false"}, {"Slide Reads", "true"}}},
        Huge{.name = "Invalidate", .lbaAgent = "mixed", .mix = readWrite, .options = {}, .invalidateEvery = 10}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace corvane::host::e2e
