// So many writes that await their read-back that the agent's table outgrows the caches, and is asked for ahead.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <unordered_set>
#include <utility>

#include "host/drive/ForwardingDrive.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

constexpr uint64_t leastOutstanding = 12'000;

/// Counts the pages of the agent's table, 64 blocks each, of the writes that come before the first read-back.
class PageCount : public ForwardingDrive {
 public:
  PageCount(std::unique_ptr<Drive> drive, uint64_t& pages) : ForwardingDrive(std::move(drive)), pages_(pages) {}

  void submit(const DriveCommand& command) override {
    const bool reads = command.kind == CommandKind::read || command.kind == CommandKind::verify;
    if (!reads && writes_ < leastOutstanding) {
      ++writes_;
      written_.insert(command.lba / 64);
      pages_ = written_.size();
    }
    inner().submit(command);
  }

 private:
  uint64_t& pages_;
  uint64_t writes_ = 0;
  std::unordered_set<uint64_t> written_;
};

class ManyOutstanding : public testing::Test {
 protected:
  ManyOutstanding() {
    test_.driveAddresses = {"sim:4g"};
    test_.commandLimit = 50'000;
    test_.maxBlocks = 8;
    test_.mix = {.write = 1, .read = 1};
    test_.agentOptions = {{"Min Queue Size", std::to_string(leastOutstanding)}, {"Max Queue Size", "14000"}};
  }

  RunResult run(const Wrap& wrap) {
    const RunResult result = runTest(prepared(test_, workspace_), [&](std::unique_ptr<Drive> drive) {
      return std::make_unique<PageCount>(wrap ? wrap(std::move(drive)) : std::move(drive), pages_);
    });
    EXPECT_GT(pages_, 8192U) << "the table was not as large as it should be";
    return result;
  }

  Workspace workspace_;
  TestDefinition test_;
  uint64_t pages_ = 0;
};

TEST_F(ManyOutstanding, AGoodDriveIsClean) {
  const RunResult result = run({});
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().blocksCompared, 50'000U);
}

TEST_F(ManyOutstanding, EveryKindOfCommandFindsItsBlocks) {
  test_.mix = {.write = 1, .writeAtomic = 1, .writeSame = 1, .trim = 1, .read = 1, .verify = 1};
  test_.resetEveryCommands = 7000;
  const RunResult result = run({});
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_GT(result.totals().blocksCompared, 10'000U);
}

TEST_F(ManyOutstanding, ASpoiltBlockIsFound) {
  SpoilingDrive::Record record;
  const RunResult result = run([&](std::unique_ptr<Drive> drive) {
    auto access = accessSim(*drive);
    return std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), Spoil::flippedByte, 1500, record);
  });
  ASSERT_TRUE(record.done);
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  EXPECT_EQ(result.drives.at(0).agentStatus, -1046);
}

}  // namespace
}  // namespace corvane::host::e2e
