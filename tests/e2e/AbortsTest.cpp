#include <gtest/gtest.h>

#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

/// A legal test on a drive whose writes get aborted.
struct Profile {
  std::string name;
  CommandMix mix;
  std::vector<std::pair<std::string, std::string>> options;
  uint64_t resetEveryCommands = 0;
  uint32_t queueDepth = 32;
};

void PrintTo(const Profile& profile, std::ostream* out) { *out << profile.name; }

constexpr CommandMix readWrite{.write = 1, .read = 1};
constexpr CommandMix readVerify{.write = 1, .read = 1, .verify = 1};
constexpr CommandMix everyKind{.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
constexpr CommandMix atomicOnly{.write = 0, .writeAtomic = 1, .read = 1};
constexpr CommandMix atomicAndWrite{.write = 1, .writeAtomic = 1, .read = 1};

std::vector<Profile> profiles() {
  return {
      {"Plain", readWrite, {}},
      {"Splice", readWrite, {{"Write Splice Detection", "true"}}},
      {"SpliceVerify", readVerify, {{"Write Splice Detection", "true"}}},
      {"SlideEveryKind", everyKind, {{"Slide Reads", "true"}}},
      {"SpliceEveryKindResets", everyKind, {{"Write Splice Detection", "true"}}, 400},
      {"AtomicOnly", atomicOnly, {}},
      {"AtomicAndWrite", atomicAndWrite, {}},
      {"AtomicResets", atomicOnly, {}, 300},
      {"AtomicDepth1", atomicAndWrite, {}, 0, 1},
      {"Skip", readWrite, {{"Use Skip Commands", "true"}, {"Embed Data", "false"}}},
      {"Alternation", readWrite, {{"Random Selection", "false"}}},
      {"UserData", readWrite, {{"User Defined Data", "true"}, {"Data Buffer", "user data"}}},
  };
}

class AbortedWrites : public testing::TestWithParam<std::tuple<Profile, uint64_t>> {};

TEST_P(AbortedWrites, RaiseNothing) {
  const auto& [profile, seed] = GetParam();
  const Workspace workspace;
  TestDefinition test;
  test.mix = profile.mix;
  test.agentOptions = profile.options;
  test.resetEveryCommands = profile.resetEveryCommands;
  test.queueDepth = profile.queueDepth;
  test.driveAddresses = {"sim:32m,abort=0.05"};
  test.commandLimit = 8000;
  test.seed = seed;
  const RunResult result = runTest(prepared(test, workspace));
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_EQ(result.drives.at(0).messages.warnings + result.drives.at(0).messages.errors, 0U) << agentLines(result);
  EXPECT_GT(result.totals().failed, 50U);
  EXPECT_GT(result.totals().blocksCompared, 0U);
}

INSTANTIATE_TEST_SUITE_P(Every, AbortedWrites,
                         testing::Combine(testing::ValuesIn(profiles()), testing::Values(1, 2, 3)),
                         [](const auto& test) {
                           return std::get<0>(test.param).name + "Seed" + std::to_string(std::get<1>(test.param));
                         });

}  // namespace
}  // namespace corvane::host::e2e
