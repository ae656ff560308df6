#include "tests/e2e/RangeGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <limits>
#include <optional>

#include "host/drive/DriveError.h"
#include "host/drive/DriveFactory.h"
#include "host/run/ConfigurationError.h"
#include "host/selftest/Workload.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/RandomTests.h"

namespace corvane::host::e2e {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

/// What a guard of LBAs 100 to 199 says to one command.
std::string complaint(const DriveCommand& command) {
  Trespasses trespasses;
  RangeGuard guard(openDrive("sim:1m", 1, 1, Overwriting::ofEmptyDrives), {.firstLba = 100, .endLba = 200}, trespasses);
  guard.submit(command);
  return trespasses.text();
}

DriveCommand commandOf(CommandKind kind, uint64_t lba, uint32_t blocks, uint32_t lbaStep = 1) {
  DriveCommand command;
  command.kind = kind;
  command.lba = lba;
  command.blocks = blocks;
  command.lbaStep = lbaStep;
  return command;
}

class RangeGuardOf : public testing::TestWithParam<CommandKind> {};

TEST_P(RangeGuardOf, ComplainsOfTheFirstBlockOutsideAndOfNoneInside) {
  const CommandKind kind = GetParam();
  EXPECT_EQ(complaint(commandOf(kind, 100, 100)), "");
  EXPECT_EQ(complaint(commandOf(kind, 199, 1)), "");
  EXPECT_EQ(complaint(commandOf(kind, 101, 50, 2)), "") << "blocks 101, 103, … 199";
  EXPECT_EQ(complaint(commandOf(kind, 300, 0)), "") << "nothing";
  for (const DriveCommand& wrong :
       {commandOf(kind, 99, 1), commandOf(kind, 200, 1), commandOf(kind, 100, 101), commandOf(kind, 102, 50, 2),
        commandOf(kind, 0, 2000), commandOf(kind, std::numeric_limits<uint64_t>::max(), 200),
        commandOf(kind, std::numeric_limits<uint64_t>::max() - 1, 60, 2)}) {
    EXPECT_THAT(complaint(wrong), AllOf(HasSubstr(commandKindName(kind)), HasSubstr("given 100..200")))
        << wrong.lba << " " << wrong.blocks;
  }
}

INSTANTIATE_TEST_SUITE_P(EveryChange, RangeGuardOf,
                         testing::Values(CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame,
                                         CommandKind::trim, CommandKind::zoneReset, CommandKind::invalidate),
                         [](const auto& test) { return std::string(commandKindName(test.param)); });

TEST(RangeGuard, LetsReadsGoAnywhere) {
  for (const CommandKind kind : {CommandKind::read, CommandKind::verify, CommandKind::syncCache}) {
    EXPECT_EQ(complaint(commandOf(kind, 0, 2000)), "");
  }
}

TEST(RangeGuard, SaysHowManyMoreThereWere) {
  Trespasses trespasses;
  for (int i = 0; i < 11; ++i) {
    trespasses.add("no");
  }
  EXPECT_THAT(trespasses.text(), HasSubstr("and 3 more"));
}

TEST(RangeGuard, ReadsTheUsersWordsByItself) {
  const DriveGeometry drive{.blocks = 1000, .blockSize = 512, .protectionBytes = 8};
  TestDefinition test;
  const auto range = [&] {
    const GivenRange given = GivenRange::of(test, drive);
    return std::pair(given.firstLba, given.endLba);
  };
  EXPECT_EQ(range(), std::pair(0UL, 1000UL));
  test.firstLba = 7;
  EXPECT_EQ(range(), std::pair(7UL, 1000UL));
  test.size.bytes = 1024;
  EXPECT_EQ(range(), std::pair(7UL, 9UL));
  test.size = {.milliPercent = 1500};
  EXPECT_EQ(range(), std::pair(7UL, 22UL));
  test.size = {};
  test.endLba = 8;
  EXPECT_EQ(range(), std::pair(7UL, 8UL));
}

/// Keeps what the agent says to itself off the screen.
class Quiet {
 public:
  Quiet() { ::testing::internal::CaptureStderr(); }
  ~Quiet() { ::testing::internal::GetCapturedStderr(); }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;
};

/// Runs a test behind guards; nothing when it was refused.
std::optional<RunResult> runIfPossible(const TestDefinition& test) {
  const Quiet quiet;
  try {
    return runTest(test);
  } catch (const ConfigurationError&) {
    return std::nullopt;
  } catch (const DriveError&) {
    return std::nullopt;
  }
}

/// Whether the host stopped the test because somebody broke the rules of a step.
bool brokeRules(const RunResult& result) {
  return result.status == RunStatus::internal && result.drives.at(0).agentStatus == 0;
}

TEST(OutsideTheRange, NoWorkloadOfTheCampaignChangesAnything) {
  for (const Workload& workload : workloads()) {
    for (const uint64_t firstLba : {0U, 5U, 32U, 131U}) {
      const Workspace workspace;
      TestDefinition test = prepared(workload.test, workspace);
      test.firstLba = firstLba;
      test.commandLimit = 300;
      EXPECT_NO_THROW(EXPECT_FALSE(brokeRules(runTest(test))) << workload.name) << workload.name;
    }
  }
}

TEST(OutsideTheRange, NoTestThatIsDrawnAtRandomChangesAnything) {
  constexpr uint64_t tests = 150;
  uint64_t ran = 0;
  for (uint64_t number = 1; number <= tests; ++number) {
    const Workspace workspace;
    const TestDefinition test = prepared(randomTest(number), workspace);
    std::optional<RunResult> result;
    EXPECT_NO_THROW(result = runIfPossible(test)) << "test " << number << ": " << describe(test);
    if (result) {
      EXPECT_FALSE(brokeRules(*result)) << agentLines(*result) << number << ": " << describe(test);
      ran += result->totals().blocksWritten != 0 ? 1U : 0U;
    }
  }
  EXPECT_GT(ran, tests / 2) << "most are no test at all";
}

/// Bytes that no test writes.
std::string strangeBytes(uint64_t count) {
  std::string bytes(count, '\0');
  for (uint64_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<char>(i * 7 + i / 251);
  }
  return bytes;
}

TEST(OutsideTheRange, AFileKeepsItsBytes) {
  constexpr std::array<const char*, 3> engines{"uring", "threads", "sync"};
  constexpr uint64_t tests = 45;
  uint64_t ran = 0;
  for (uint64_t number = 1; number <= tests; ++number) {
    const Workspace workspace;
    const std::string path = workspace / "drive.img";
    const std::string before = strangeBytes(driveBytesOfRandomTest(number));
    std::ofstream(path, std::ios::binary) << before;
    TestDefinition test = prepared(randomTestOnFile(number, path), workspace);
    test.driveAddresses[0] += std::string(",engine=") + engines.at(number % engines.size());
    DriveGeometry geometry;
    {
      const std::unique_ptr<Drive> drive = openDrive(test.driveAddresses[0], 1, 1, Overwriting::ofEmptyDrives);
      geometry = drive->geometry();
    }
    const GivenRange range = GivenRange::of(test, geometry);
    std::optional<RunResult> result;
    ASSERT_NO_THROW(result = runIfPossible(test)) << number << ": " << describe(test);
    const std::string after = contentOf(path);
    const size_t begin = range.firstLba * geometry.sectorBytes();
    const size_t end = std::min<size_t>(range.endLba * geometry.sectorBytes(), before.size());
    ASSERT_EQ(after.size(), before.size());
    EXPECT_TRUE(after.substr(0, begin) == before.substr(0, begin)) << number << ": " << describe(test);
    EXPECT_TRUE(after.substr(end) == before.substr(end)) << number << ": " << describe(test);
    if (!result) {
      EXPECT_TRUE(after == before) << "refused, and yet it changed the file: " << describe(test);
    } else if (result->totals().blocksWritten != 0) {
      EXPECT_FALSE(after == before) << "wrote nothing: " << describe(test);
      ++ran;
    }
  }
  EXPECT_GT(ran, tests / 2) << "most are no test at all";
}

}  // namespace
}  // namespace corvane::host::e2e
