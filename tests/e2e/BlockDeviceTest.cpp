// Runs on block devices of the kernel, kept in files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "host/drive/DriveError.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/SpoilingDrive.h"
#include "tests/support/LoopDevice.h"

namespace corvane::host::e2e {
namespace {

#ifdef NDEBUG
constexpr uint64_t commands = 4000;
#else
constexpr uint64_t commands = 1500;
#endif

struct Case {
  std::string name;
  uint32_t blockSize;
  std::string keys;
};

void PrintTo(const Case& device, std::ostream* out) { *out << device.name; }

class BlockDeviceRun : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    if (const std::string missing = tests::LoopDevice::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    loop_.emplace(workspace_ / "drive.img", uint64_t{32768} * GetParam().blockSize, GetParam().blockSize);
  }

  TestDefinition definition() const {
    TestDefinition test = prepared({}, workspace_);
    test.driveAddresses = {loop_->path() + GetParam().keys};
    test.commandLimit = commands;
    test.seed = 20;
    // So that read-backs begin early in a short test, yet never while their write is outstanding.
    test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "512"}, {"Write Splice Detection", "true"}};
    return test;
  }

  Workspace workspace_;
  std::optional<tests::LoopDevice> loop_;
};

TEST_P(BlockDeviceRun, OfEveryKindOfCommandWithResetsRaisesNothing) {
  TestDefinition test = definition();
  test.mix = {.write = 4, .writeSame = 1, .trim = 1, .read = 3, .verify = 1};
  test.resetEveryCommands = 500;
  const RunResult result = runTest(test);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  ASSERT_EQ(result.drives.size(), 1U);
  EXPECT_EQ(result.drives[0].messages.warnings, 0U) << agentLines(result);
  EXPECT_EQ(result.drives[0].messages.errors, 0U) << agentLines(result);
  const DriveTotals totals = result.totals();
  EXPECT_GE(totals.commandsIssued(), commands);
  EXPECT_GT(totals.blocksCompared, 0U);
  EXPECT_GT(totals.resets, 0U);
  EXPECT_GT(totals.maxOutstanding, 1U);
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeSame, CommandKind::trim, CommandKind::read, CommandKind::verify}) {
    EXPECT_GT(totals.completed[static_cast<size_t>(kind)], 0U) << commandKindName(kind);
  }
}

TEST_P(BlockDeviceRun, FindsAByteThatFlippedBehindTheDevice) {
  SpoilingDrive::Record record;
  const RunResult result = runTest(definition(), [&](std::unique_ptr<Drive> drive) {
    auto access = accessFile(loop_->file(), drive->geometry().sectorBytes());
    return std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), Spoil::flippedByte, 500, record);
  });
  ASSERT_TRUE(record.done);
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_LT(result.totals().commandsIssued(), commands);
}

TEST_P(BlockDeviceRun, OfAtomicWritesIsRefusedWithTheReasonThatThereAreNone) {
  TestDefinition test = definition();
  test.mix.writeAtomic = 1;
  try {
    runTest(test);
    FAIL() << "it ran";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), testing::AllOf(testing::HasSubstr("no atomic writes ("),
                                             testing::HasSubstr("does not offer atomic writes")));
  }
}

INSTANTIATE_TEST_SUITE_P(Every, BlockDeviceRun,
                         testing::Values(Case{"Blocks512", 512, ""}, Case{"Blocks4096", 4096, ""},
                                         Case{"Threads", 512, ",engine=threads"},
                                         Case{"Discard", 4096, ",trim=discard"}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace corvane::host::e2e
