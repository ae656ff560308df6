#include <gtest/gtest.h>

#include "host/fault/FaultSpec.h"
#include "tests/e2e/Combinations.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

/// The report of a test that ends with a miscompare: the whole ring trace, which is the whole sequence of commands.
std::string reportOf(uint64_t seed, const CommandMix& mix) {
  const Workspace workspace;
  TestDefinition test;
  test.mix = mix;
  test.driveAddresses = {"sim:1m"};
  test.commandLimit = 20'000;
  test.seed = seed;
  test.agentOptions = {{"Trace Depth", "8192"}};
  SpoilingDrive::Record record;
  const RunResult result = runTest(prepared(test, workspace), [&](std::unique_ptr<Drive> drive) {
    auto access = accessSim(*drive);
    return std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), Spoil::flippedByte, 1500, record);
  });
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(result.drives.at(0).messages.reports.size(), 1U);
  return contentOf(result.drives.at(0).messages.reports.at(0));
}

constexpr CommandMix everyKind{.write = 3, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};

TEST(Repeat, ASeedGivesTheSameReportByteForByte) {
  const std::string first = reportOf(7, everyKind);
  EXPECT_GT(first.size(), 100'000U);
  EXPECT_EQ(first, reportOf(7, everyKind));
}

TEST(Repeat, AnotherSeedGivesAnotherReport) { EXPECT_NE(reportOf(7, everyKind), reportOf(8, everyKind)); }

TEST(Repeat, AnotherMixGivesAnotherReport) { EXPECT_NE(reportOf(7, everyKind), reportOf(7, {})); }

/// What a test with faults did and what came of it: each injection, and the report.
std::string faultyRunOf(uint64_t seed) {
  const Workspace workspace;
  TestDefinition test;
  test.mix = everyKind;
  test.driveAddresses = {"sim:1m"};
  test.commandLimit = 20'000;
  test.seed = seed;
  test.agentOptions = {{"Trace Depth", "8192"}, {"Min Queue Size", "64"}, {"Max Queue Size", "256"}};
  test.faults = {parseFaultSpec("stale-read:rate=1e-3"), parseFaultSpec("torn-write:at=command:900")};
  const RunResult result = runTest(prepared(test, workspace));
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  const DriveResult& drive = result.drives.at(0);
  EXPECT_FALSE(drive.injections.empty());
  std::string text;
  for (const Injection& injection : drive.injections) {
    text += injectionText(injection) + ", handed out " + std::to_string(injection.delivered) + "\n";
  }
  return text + drive.error + "\n" + contentOf(drive.messages.reports.at(0));
}

TEST(Repeat, ASeedGivesTheSameInjectionsAndTheSameReport) {
  EXPECT_EQ(faultyRunOf(11), faultyRunOf(11));
  EXPECT_NE(faultyRunOf(11), faultyRunOf(12));
}

}  // namespace
}  // namespace corvane::host::e2e
