// What becomes of the test of a drive that hangs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <regex>

#include "host/drive/ForwardingDrive.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/HangingDrive.h"
#include "tests/e2e/SpoilingDrive.h"

namespace corvane::host::e2e {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Clock = std::chrono::steady_clock;

constexpr uint64_t all = std::numeric_limits<uint64_t>::max();
constexpr uint64_t watchdogMs = 1000;

MATCHER(IsSentCommand, "is the command that was sent, and as old as the watchdog allows") {
  const auto& [told, sent] = arg;
  return told.kind == sent.kind && told.tag == sent.tag && told.lba == sent.lba && told.blocks == sent.blocks &&
         told.ageUs >= watchdogMs * 1000;
}

class HangOfDepth : public testing::TestWithParam<uint32_t> {
 protected:
  HangOfDepth() {
    test_ = prepared({}, workspace_);
    test_.driveAddresses = {"sim:64m"};
    test_.queueDepth = GetParam();
    test_.watchdogMs = watchdogMs;
    test_.agentOptions = {{"Min Queue Size", "1024"}, {"Max Queue Size", "2048"}, {"Write Splice Detection", "true"}};
  }

  /// Runs the test, which has no end of its own, on a drive that hangs.
  DriveResult run(const Hang& hang) {
    const Clock::time_point began = Clock::now();
    const RunResult result = runTest(test_, [&](std::unique_ptr<Drive> drive) {
      return std::make_unique<HangingDrive>(std::move(drive), hang, record_);
    });
    EXPECT_LT(Clock::now() - began, 20s);
    EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
    return result.drives.at(0);
  }

  static std::string wordsOf(const DriveCommand& command) {
    return std::string(commandKindName(command.kind)) + " of " + std::to_string(command.blocks) + " blocks at LBA " +
           std::to_string(command.lba) + " (tag " + std::to_string(command.tag) + ", ";
  }

  const std::shared_ptr<HangRecord> record_ = std::make_shared<HangRecord>();
  Workspace workspace_;
  TestDefinition test_;
};

TEST_P(HangOfDepth, OfEveryCommandIsToldWithCommandsAndAgesAndEndsInAReset) {
  const DriveResult drive = run({.after = 3000, .commands = all});
  const uint32_t depth = GetParam();
  ASSERT_GE(record_->unanswered.size(), 1U);
  EXPECT_LE(record_->unanswered.size(), depth);
  EXPECT_THAT(drive.error, AllOf(HasSubstr("the drive hangs: "), HasSubstr("unanswered for 1.0 s or longer"),
                                 HasSubstr("took them back"), HasSubstr("check the drive and its connection"),
                                 HasSubstr("watchdog above 1.0 s")));
  const auto named = [&](const DriveCommand& command) {
    return drive.error.find(wordsOf(command)) != std::string::npos;
  };
  EXPECT_EQ(std::ranges::count_if(record_->unanswered, named),
            std::min<std::ptrdiff_t>(8, std::ssize(record_->unanswered)))
      << drive.error;
  // Every command that is named says how long it has been waiting.
  const std::regex age(R"(\(tag \d+, (\d+) ms\)|\(tag \d+, (\d+\.\d) s\))");
  const auto count = std::distance(std::sregex_iterator(drive.error.begin(), drive.error.end(), age), {});
  EXPECT_EQ(count, std::min<std::ptrdiff_t>(8, std::ssize(record_->unanswered))) << drive.error;
  EXPECT_EQ(drive.error.find(" more") != std::string::npos, record_->unanswered.size() > 8) << drive.error;
  EXPECT_TRUE(std::ranges::is_sorted(drive.unanswered, std::greater(), &UnansweredCommand::ageUs));
  auto told = drive.unanswered;
  auto sent = record_->unanswered;
  std::ranges::sort(told, {}, &UnansweredCommand::tag);
  std::ranges::sort(sent, {}, &DriveCommand::tag);
  EXPECT_THAT(told, testing::Pointwise(IsSentCommand(), sent));
  EXPECT_EQ(record_->resets, 1U);
  EXPECT_EQ(drive.totals.resets, 1U);
  EXPECT_TRUE(record_->closed);
}

TEST_P(HangOfDepth, OfOneCommandIsNoticedWhileTheOthersGoOn) {
  const DriveResult drive = run({.after = 3000, .commands = 1});
  ASSERT_EQ(record_->unanswered.size(), 1U);
  EXPECT_THAT(drive.error, AllOf(HasSubstr("the drive hangs: 1 command is unanswered for 1.0 s or longer: " +
                                           wordsOf(record_->unanswered.front())),
                                 Not(HasSubstr(" more"))));
  EXPECT_EQ(record_->resets, 1U);
  if (GetParam() > 100) {
    EXPECT_GT(drive.totals.commandsCompleted(), 4000U) << "the others went on";
  }
}

TEST_P(HangOfDepth, WhoseResetFailsSaysSo) {
  const DriveResult drive = run({.after = 100, .commands = all, .reset = Hang::Reset::fails});
  EXPECT_THAT(drive.error, AllOf(HasSubstr("the drive hangs: "),
                                 HasSubstr("its reset failed (nobody is there), so they may still be carried out")));
  EXPECT_EQ(drive.totals.resets, 0U);
}

TEST_P(HangOfDepth, WhoseResetHangsTooEndsAllTheSame) {
  const DriveResult drive = run({.after = 100, .commands = all, .reset = Hang::Reset::hangs});
  EXPECT_THAT(drive.error, AllOf(HasSubstr("the drive hangs: "), HasSubstr(wordsOf(record_->unanswered.front())),
                                 HasSubstr("a reset of the drive has not ended for "),
                                 HasSubstr("may still be carried out"), HasSubstr("check the drive")));
  EXPECT_FALSE(record_->closed) << "it may use the memory of its commands for ever";
}

TEST_P(HangOfDepth, InAResetOfTheTestIsNoticed) {
  test_.resetEveryCommands = 50;
  const DriveResult drive = run({.reset = Hang::Reset::hangs, .everyReset = true});
  EXPECT_THAT(drive.error, AllOf(HasSubstr("the drive hangs: a reset of the drive has not ended for "),
                                 HasSubstr("check the drive and its connection")));
}

TEST_P(HangOfDepth, InAPowerCutIsNoticed) {
  test_.powerToggle = PowerToggle::withoutSync;
  test_.agentOptions.emplace_back("PowerToggle Freq", "1");
  const DriveResult drive = run({.powerCutHangs = true});
  EXPECT_THAT(drive.error, HasSubstr("the drive hangs: a power cut of the drive has not ended for "));
}

TEST_P(HangOfDepth, OfTheClosingOfADriveThatHangsIsNoticed) {
  const DriveResult drive = run({.after = 100, .commands = all, .closingHangs = true});
  EXPECT_THAT(drive.error, AllOf(HasSubstr("the drive hangs: "), HasSubstr("the closing of the drive has not ended")));
}

INSTANTIATE_TEST_SUITE_P(One, HangOfDepth, testing::Values(1U), [](const auto&) { return "Command"; });
INSTANTIATE_TEST_SUITE_P(Many, HangOfDepth, testing::Values(1024U), [](const auto&) { return "Commands"; });

TEST(Hang, OfOneDriveLetsTheOthersGoOn) {
  const Workspace workspace;
  const auto record = std::make_shared<HangRecord>();
  TestDefinition test = prepared({}, workspace);
  test.driveAddresses = {"sim:8m", "sim:8m"};
  test.commandLimit = 5000;
  test.watchdogMs = watchdogMs;
  int opened = 0;
  const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) -> std::unique_ptr<Drive> {
    if (opened++ != 0) {
      return drive;
    }
    const Hang hang{.after = 100, .commands = all, .reset = Hang::Reset::hangs};
    return std::make_unique<HangingDrive>(std::move(drive), hang, record);
  });
  ASSERT_EQ(result.drives.size(), 2U);
  EXPECT_EQ(result.drives[0].status, RunStatus::drive);
  EXPECT_EQ(result.drives[1].status, RunStatus::clean) << agentLines(result);
  EXPECT_GE(result.drives[1].totals.commandsIssued(), 5000U);
}

TEST(Hang, BehindAFindingDoesNotTakeItAway) {
  for (const Hang::Reset reset : {Hang::Reset::works, Hang::Reset::fails, Hang::Reset::hangs}) {
    const Workspace workspace;
    const auto record = std::make_shared<HangRecord>();
    TestDefinition test = prepared({}, workspace);
    test.driveAddresses = {"sim:8m"};
    test.watchdogMs = watchdogMs;
    test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "128"}};
    SpoilingDrive::Record spoilt;
    const RunResult result = runTest(test, [&](std::unique_ptr<Drive> drive) {
      auto access = accessSim(*drive);
      auto spoiling =
          std::make_unique<SpoilingDrive>(std::move(drive), std::move(access), Spoil::flippedByte, 100, spoilt);
      // One command hangs from early on, and so is outstanding when the finding comes.
      return std::make_unique<HangingDrive>(std::move(spoiling), Hang{.after = 50, .commands = 1, .reset = reset},
                                            record);
    });
    EXPECT_TRUE(spoilt.done);
    EXPECT_EQ(record->unanswered.size(), 1U);
    EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
    ASSERT_EQ(result.findings.size(), 1U);
    EXPECT_THAT(result.drives.at(0).error, HasSubstr("Miscompare Detected"));
    EXPECT_THAT(result.drives.at(0).messages.reports, testing::SizeIs(1));
  }
}

/// Answers each command only after a while.
class SlowDrive : public ForwardingDrive {
 public:
  SlowDrive(std::unique_ptr<Drive> drive, std::chrono::milliseconds time)
      : ForwardingDrive(std::move(drive)), time_(time) {}

  void submit(const DriveCommand& command) override { waiting_.emplace_back(Clock::now() + time_, command); }
  bool poll(DriveCompletion& out, bool wait) override {
    while (!waiting_.empty() && waiting_.front().first <= Clock::now()) {
      inner().submit(waiting_.front().second);
      waiting_.erase(waiting_.begin());
    }
    return inner().poll(out, wait);
  }
  bool waitUpTo(uint64_t) override { return false; }  // the drive beneath has not got what is waited for
  void reset() override {
    waiting_.clear();
    inner().reset();
  }
  void powerCycle() override { reset(); }

 private:
  const std::chrono::milliseconds time_;
  std::vector<std::pair<Clock::time_point, DriveCommand>> waiting_;
};

TEST(Hang, IsNotWhatASlowDriveDoes) {
  for (const uint32_t depth : {1U, 64U}) {
    const Workspace workspace;
    TestDefinition test = prepared({}, workspace);
    test.driveAddresses = {"sim:1m"};
    test.queueDepth = depth;
    test.watchdogMs = watchdogMs;
    test.timeLimitMs = 4 * watchdogMs;
    test.lbaAgent = "cachestress";  // so that commands wait in the host, too, behind those that they overlap
    const RunResult result = runTest(test, [](std::unique_ptr<Drive> drive) {
      return std::make_unique<SlowDrive>(std::move(drive), std::chrono::milliseconds(watchdogMs / 2));
    });
    EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
    EXPECT_GE(result.totals().commandsCompleted(), 6U);
  }
}

}  // namespace
}  // namespace corvane::host::e2e
