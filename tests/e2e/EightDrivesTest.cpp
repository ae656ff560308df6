// Eight drives in one process, each on a thread of its own, under one agent. Of most use under the thread sanitizer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "tests/e2e/Combinations.h"
#include "tests/e2e/EndToEnd.h"

namespace corvane::host::e2e {
namespace {

constexpr size_t drives = 8;
constexpr CommandMix everyKind{.write = 2, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 2, .verify = 1};

/// Simulated drives of several formats with their accidents, and files by every engine.
std::vector<std::string> eightKindsOfDrive(const Workspace& workspace) {
  return {"sim:8m",
          "sim:8m,block=4096,abort=0.01",
          "sim:8m,exponent=3,recovered=0.02,write-error=0.01",
          "sim:8m,block=4096,cache=volatile",
          "file:" + (workspace / "sync.img") + ",size=8m,engine=sync",
          "file:" + (workspace / "auto.img") + ",size=8m",
          "file:" + (workspace / "threads.img") + ",size=8m,engine=threads",
          "file:" + (workspace / "block.img") + ",size=8m,block=4096"};
}

TestDefinition testOfEightDrives(const Workspace& workspace) {
  TestDefinition test = prepared({}, workspace);
  test.mix = everyKind;
  test.driveAddresses = eightKindsOfDrive(workspace);
  test.commandLimit = 700;
  test.resetEveryCommands = 250;
  test.agentOptions = {{"Write Splice Detection", "true"},
                       {"Slide Reads", "true"},
                       {"Bucket Count", "2048"},
                       {"Min Queue Size", "100"},
                       {"Max Queue Size", "200"}};
  return test;
}

void expectCleanToTheEnd(const DriveResult& drive, uint64_t commands) {
  EXPECT_EQ(drive.status, RunStatus::clean) << drive.name << ": " << drive.error;
  EXPECT_EQ(drive.messages.warnings + drive.messages.errors, 0U) << drive.name;
  EXPECT_GE(drive.totals.commandsIssued(), commands) << drive.name;
  EXPECT_EQ(drive.totals.outstanding, 0U) << drive.name;
  EXPECT_GT(drive.totals.blocksCompared, commands / 4) << drive.name;
  EXPECT_GT(drive.totals.checked.oneOutcome, commands / 8) << drive.name;
}

class EightDrives : public ::testing::TestWithParam<uint32_t> {};

TEST_P(EightDrives, OfEveryKindAreTestedSideBySide) {
  const Workspace workspace;
  TestDefinition test = testOfEightDrives(workspace);
  test.queueDepth = GetParam();
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  ASSERT_EQ(result.drives.size(), drives);
  for (const DriveResult& drive : result.drives) {
    expectCleanToTheEnd(drive, test.commandLimit);
    EXPECT_GT(drive.totals.resets, 0U) << drive.name;
    EXPECT_LE(drive.totals.maxOutstanding, test.queueDepth) << drive.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Depth, EightDrives, ::testing::Values(1, 8, 64));

/// Whatever turns the threads take, nothing of one drive may reach another: the same seed gives each the same sequence.
TEST(EightDrivesTogether, DoTheSameWhateverTurnsTheirThreadsTake) {
  const Workspace workspace;
  TestDefinition test = prepared({}, workspace);
  test.mix = everyKind;
  test.commandLimit = 1000;
  test.resetEveryCommands = 300;
  test.agentOptions = {{"Write Splice Detection", "true"}, {"Bucket Count", "2048"}, {"Always Dump Sequence", "true"}};
  test.driveAddresses.assign(drives, "sim:8m,abort=0.01");
  const RunResult first = runTest(test);
  const RunResult second = runTest(test);
  ASSERT_EQ(first.drives.size(), drives);
  std::set<std::string> sequences;
  for (size_t drive = 0; drive < drives; ++drive) {
    ASSERT_EQ(first.drives[drive].messages.reports.size(), 1U);
    ASSERT_EQ(second.drives[drive].messages.reports.size(), 1U);
    const std::string sequence = contentOf(first.drives[drive].messages.reports[0]);
    EXPECT_EQ(sequence, contentOf(second.drives[drive].messages.reports[0]))
        << "drive " << drive << " did something else when the threads took other turns";
    sequences.insert(sequence);
  }
  EXPECT_EQ(sequences.size(), drives) << "each has random numbers of its own";
}

/// Lost writes on some drives; each drive counts as the test file does, from 1.
std::vector<FaultSpec> lostWritesOn(const std::vector<uint32_t>& faulty) {
  std::vector<FaultSpec> faults;
  faults.reserve(faulty.size());
  for (const uint32_t drive : faulty) {
    faults.push_back(parseFaultSpec("lost-write:at=command:" + std::to_string(100 + 20 * drive) +
                                    ",most=20,drive=" + std::to_string(drive)));
  }
  return faults;
}

TEST(EightDrivesTogether, AFindingOnOneEndsOnlyItsOwn) {
  const Workspace workspace;
  TestDefinition test = testOfEightDrives(workspace);
  test.mix = {.write = 1, .read = 1};
  test.resetEveryCommands = 0;
  const std::vector<uint32_t> faulty{1, 4, 5, 8};
  test.faults = lostWritesOn(faulty);
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::dataFailure);
  ASSERT_EQ(result.drives.size(), drives);
  EXPECT_EQ(result.findings.size(), faulty.size()) << agentLines(result);
  std::set<std::string> files;
  for (uint32_t number = 1; number <= drives; ++number) {
    const DriveResult& drive = result.drives[number - 1];
    if (std::find(faulty.begin(), faulty.end(), number) == faulty.end()) {
      expectCleanToTheEnd(drive, test.commandLimit);
      continue;
    }
    EXPECT_EQ(drive.status, RunStatus::dataFailure) << drive.name;
    EXPECT_THAT(drive.messages.incomplete, ::testing::IsEmpty()) << drive.name;
    ASSERT_EQ(drive.messages.reports.size(), 1U) << drive.name;
    files.insert(drive.messages.reports[0]);
    ASSERT_TRUE(drive.findingLba) << drive.name;
    char lba[64];
    std::snprintf(lba, sizeof(lba), "that include the miscompare LBA 0x%016lX:", *drive.findingLba);
    EXPECT_THAT(contentOf(drive.messages.reports[0]), ::testing::HasSubstr(lba)) << drive.name;
  }
  EXPECT_EQ(files.size(), faulty.size());
}

/// A test of its own for each drive, with its own options, depth and agent, as if several people had begun one.
TEST(EightTests, OfTheirOwnOptionsRunSideBySide) {
  const std::vector<std::string> names{"EveryKind", "SlideEveryKind", "UserDataEveryKind", "EmbedOffEveryKind",
                                       "SkipSlide", "ZoneResets",     "InvalidatedRanges", "ResetsAtomic"};
  const std::vector<uint32_t> depths{1, 2, 4, 8, 16, 32, 48, 64};
  const Workspace workspace;
  std::vector<RunResult> results(names.size());
  {
    const std::vector<Combination> all = combinations();
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < names.size(); ++i) {
      threads.emplace_back([&, i] {
        const auto found = std::find_if(all.begin(), all.end(), [&](const auto& one) { return one.name == names[i]; });
        ASSERT_NE(found, all.end()) << names[i];
        TestDefinition test = prepared(found->test, workspace);
        test.driveAddresses = {"sim:16m" + found->sim};
        test.commandLimit = 1500;
        test.queueDepth = depths[i];
        test.agentOptions.emplace_back("Bucket Count", "2048");
        test.agentOptions.emplace_back("Min Queue Size", "100");
        test.agentOptions.emplace_back("Max Queue Size", "200");
        results[i] = TestRun(test).run();
      });
    }
  }
  for (size_t i = 0; i < names.size(); ++i) {
    SCOPED_TRACE(names[i] + "\n" + agentLines(results[i]));
    ASSERT_EQ(results[i].drives.size(), 1U);
    expectCleanToTheEnd(results[i].drives[0], 1500);
  }
}

}  // namespace
}  // namespace corvane::host::e2e
