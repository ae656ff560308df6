// The built agent on units of an iSCSI target that runs beside the test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>

#include "host/drive/ForwardingDrive.h"
#include "host/explain/Explainer.h"
#include "tests/drive/CommandMaker.h"
#include "tests/e2e/EndToEnd.h"
#include "tests/e2e/SpoilingDrive.h"
#include "tests/support/TgtTarget.h"

namespace corvane::host::e2e {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using tests::TgtTarget;
using Clock = std::chrono::steady_clock;

constexpr uint64_t fileBytes = uint64_t{64} << 20;

/// Acts on the target, from the thread of the drive, as commands are sent.
class WatchedDrive : public ForwardingDrive {
 public:
  /// Told of each command after it was sent, and of how many are outstanding then.
  using Watch = std::function<void(uint64_t sent, uint32_t outstanding)>;

  WatchedDrive(std::unique_ptr<Drive> drive, Watch watch)
      : ForwardingDrive(std::move(drive)), watch_(std::move(watch)) {}

  std::function<void(const DriveCommand&)> beforeSending = [](const DriveCommand&) {};
  std::function<void(const DriveCompletion&)> afterAnswer = [](const DriveCompletion&) {};

  void submit(const DriveCommand& command) override {
    beforeSending(command);
    inner().submit(command);
    watch_(++sent_, ++outstanding_);
  }
  bool poll(DriveCompletion& out, bool wait) override {
    const bool came = inner().poll(out, wait);
    outstanding_ -= came ? 1 : 0;
    if (came) {
      afterAnswer(out);
    }
    return came;
  }
  void reset() override {
    outstanding_ = 0;
    inner().reset();
  }

 private:
  Watch watch_;
  uint64_t sent_ = 0;
  uint32_t outstanding_ = 0;
};

class IscsiUnit : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = TgtTarget::missing(); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    std::ofstream(file()).close();
    std::filesystem::resize_file(file(), fileBytes);
  }

  std::string file() const { return workspace_ / "unit.img"; }

  void startTarget(tests::TgtUnit unit) {
    unit.file = file();
    target_.emplace(std::vector{unit});
  }

  TestDefinition test(const std::string& keys = "") const {
    TestDefinition test = prepared({}, workspace_);
    test.driveAddresses = {target_->address() + keys};
    test.mix = {.write = 2, .read = 1, .verify = 1};
    test.commandLimit = 4000;
    test.queueDepth = 16;
    test.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "256"}, {"Write Splice Detection", "true"}};
    test.seed = 7;
    return test;
  }

  RunResult runWatched(const TestDefinition& test, const WatchedDrive::Watch& watch) {
    return runTest(
        test, [&](std::unique_ptr<Drive> drive) { return std::make_unique<WatchedDrive>(std::move(drive), watch); });
  }

  static void expectSilence(const RunResult& result) {
    EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
    ASSERT_EQ(result.drives.size(), 1U);
    EXPECT_EQ(result.drives[0].messages.warnings + result.drives[0].messages.errors, 0U) << agentLines(result);
    EXPECT_GT(result.totals().blocksCompared, 1000U);
  }

  std::string complaintOf(const TestDefinition& test) {
    try {
      runTest(test);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "it ran";
  }

  Workspace workspace_;
  std::optional<TgtTarget> target_;
};

class IscsiUnitOf : public IscsiUnit, public testing::WithParamInterface<uint32_t> {};

TEST_P(IscsiUnitOf, RaisesNothingWhenItIsGood) {
  startTarget({.file = "", .blockSize = GetParam()});
  TestDefinition mixed = test();
  mixed.mix = {.write = 4, .writeSame = 1, .trim = 1, .read = 3, .verify = 1};
  mixed.resetEveryCommands = 1000;
  const RunResult result = runTest(mixed);
  expectSilence(result);
  const DriveTotals totals = result.totals();
  EXPECT_GE(totals.commandsIssued(), mixed.commandLimit);
  EXPECT_GE(totals.resets, 3U);
  EXPECT_EQ(totals.maxOutstanding, 16U);
  for (const CommandKind kind :
       {CommandKind::write, CommandKind::writeSame, CommandKind::trim, CommandKind::read, CommandKind::verify}) {
    EXPECT_GT(totals.completed[static_cast<size_t>(kind)], 0U) << commandKindName(kind);
  }
}

TEST_P(IscsiUnitOf, WithAFlippedByteInItsFileFailsAtThatBlock) {
  startTarget({.file = "", .blockSize = GetParam()});
  SpoilingDrive::Record record;
  TestDefinition small = test();
  small.endLba = 2048;
  small.mix = {.write = 1, .read = 1};
  small.commandLimit = 20'000;
  const RunResult result = runTest(small, [&](std::unique_ptr<Drive> drive) {
    return std::make_unique<SpoilingDrive>(std::move(drive), accessFile(file(), GetParam()), Spoil::flippedByte, 500,
                                           record);
  });
  ASSERT_TRUE(record.done);
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_EQ(result.findings[0].lba, record.lba);
}

/// This target does not say in its sense data where a verify differs. The agent names the first LBA of the verify, as
/// of every drive; the drive's answer and the explanation name the block.
TEST_P(IscsiUnitOf, WithAFlippedByteInItsFileFailsAVerifyAtThatBlock) {
  startTarget({.file = "", .blockSize = GetParam()});
  TestDefinition verifies = test();
  verifies.endLba = 2048;
  verifies.mix = {.write = 1, .read = 0, .verify = 1};
  verifies.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "256"}};
  verifies.journalDepth = 64;
  const std::unique_ptr<MediumAccess> medium = accessFile(file(), GetParam());
  uint64_t verifiesSeen = 0;
  std::optional<DriveCommand> struck;
  DriveCompletion answer;
  const RunResult result = runTest(verifies, [&](std::unique_ptr<Drive> drive) {
    auto watched = std::make_unique<WatchedDrive>(std::move(drive), [](uint64_t, uint32_t) {});
    watched->beforeSending = [&](const DriveCommand& command) {
      constexpr uint64_t fromVerify = 200;
      constexpr uint32_t leastBlocks = 4;
      if (!struck && command.kind == CommandKind::verify && ++verifiesSeen >= fromVerify &&
          command.blocks >= leastBlocks) {
        struck = command;
        std::vector<uint8_t> block = medium->read(command.endLba() - 1);
        block.at(100) ^= 0x10;
        medium->write(command.endLba() - 1, block);
      }
    };
    watched->afterAnswer = [&](const DriveCompletion& completion) {
      if (struck && completion.id == struck->id) {
        answer = completion;
      }
    };
    return watched;
  });
  ASSERT_TRUE(struck);
  const uint64_t lba = struck->endLba() - 1;
  EXPECT_EQ(senseNumber(answer), 0x0E1D00U);
  EXPECT_EQ(senseInformation(answer), lba);
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
  ASSERT_EQ(result.findings.size(), 1U);
  EXPECT_THAT(result.findings[0].text, HasSubstr("Miscompare Detected with a Verify command"));
  EXPECT_EQ(result.findings[0].lba, struck->lba);
  const std::optional<Explanation> explanation = explainDrive(result, 0);
  ASSERT_TRUE(explanation);
  EXPECT_EQ(explanation->lba, lba);
}

INSTANTIATE_TEST_SUITE_P(BlockSize, IscsiUnitOf, testing::Values(512U, 4096U), testing::PrintToStringParamName());

/// This kind of store answers GOOD to every VERIFY. A verify that must find a difference shows it.
TEST_F(IscsiUnit, WhoseVerifiesLieIsCaught) {
  for (const char* store : {"rdwr", "aio"}) {
    startTarget({.file = "", .store = store, .thin = false});
    TestDefinition verifies = test();
    verifies.mix = {.write = 1, .read = 0, .verify = 1};
    verifies.agentOptions = {{"Min Queue Size", "64"}, {"Max Queue Size", "256"}};
    verifies.endLba = 2400;
    verifies.maxBlocks = 16;
    verifies.queueDepth = 8;
    verifies.resetEveryCommands = 100;
    const RunResult result = runTest(verifies);
    if (std::string(store) == "rdwr") {
      EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
    } else {
      EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
      EXPECT_THAT(agentLines(result), HasSubstr("Miscompare was expected from Verify command"));
    }
  }
}

/// What is behind the file's end reads as a medium error, or as zeros once somebody has written behind it.
TEST_F(IscsiUnit, WhoseFileIsCutShortFails) {
  startTarget({});
  const RunResult result = runWatched(test(), [&](uint64_t sent, uint32_t) {
    if (sent == 2000) {
      std::filesystem::resize_file(file(), 0);
    }
  });
  EXPECT_EQ(result.status, RunStatus::dataFailure) << agentLines(result);
}

TEST_F(IscsiUnit, ThatIsReadOnlyIsRefused) {
  startTarget({.file = "", .thin = false, .readOnly = true});
  EXPECT_THAT(complaintOf(test()), AllOf(HasSubstr("LUN 1"), HasSubstr("write")));
}

TEST_F(IscsiUnit, ThatHangsEndsTheTestInTime) {
  startTarget({});
  TestDefinition hanging = test();
  hanging.watchdogMs = 2000;
  const Clock::time_point began = Clock::now();
  const RunResult result = runWatched(hanging, [&](uint64_t sent, uint32_t) {
    if (sent == 1000) {
      target_->stop();
    }
  });
  EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
  EXPECT_THAT(result.drives.at(0).error,
              AllOf(HasSubstr("the drive hangs: "), HasSubstr("unanswered for 2.0 s or longer")));
  EXPECT_LT(Clock::now() - began, 30s);
}

TEST_F(IscsiUnit, ThatIsKilledWithCommandsInFlightAndStartedAgainGoesOn) {
  startTarget({});
  uint32_t inFlight = 0;
  uint32_t kills = 0;
  bool stopped = false;
  const RunResult result = runWatched(test(), [&](uint64_t sent, uint32_t outstanding) {
    if (!stopped && kills < 2 && sent > 1000 * (kills + 1)) {
      target_->stop();
      stopped = true;
    }
    if (stopped && outstanding == 16) {
      inFlight += outstanding;
      target_->restart();
      stopped = false;
      ++kills;
    }
  });
  expectSilence(result);
  EXPECT_EQ(kills, 2U);
  EXPECT_EQ(inFlight, 32U);
}

TEST_F(IscsiUnit, ThatIsKilledForGoodEndsTheTestWithADriveError) {
  startTarget({});
  const RunResult result = runWatched(test(",reconnect=1"), [&](uint64_t sent, uint32_t) {
    if (sent == 1000) {
      target_->kill();
    }
  });
  EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
  EXPECT_THAT(result.drives.at(0).error,
              AllOf(HasSubstr("could not be made again within 1 s"), HasSubstr("reconnect=")));
}

TEST_F(IscsiUnit, ThatComesBackAsAnotherOneIsNotWrittenTo) {
  startTarget({});
  std::string before;
  const RunResult result = runWatched(test(), [&](uint64_t sent, uint32_t) {
    if (sent == 1000) {
      target_->kill();
      std::filesystem::resize_file(file(), fileBytes / 2);
      before = contentOf(file());
      target_->start();
    }
  });
  EXPECT_EQ(result.status, RunStatus::drive) << agentLines(result);
  EXPECT_THAT(result.drives.at(0).error, HasSubstr("it is another unit now (blocks '65536', before '131072')"));
  EXPECT_EQ(before.size(), fileBytes / 2);
  EXPECT_TRUE(contentOf(file()) == before) << "it was written to";
}

/// Whoever reads what a run leaves must not learn how to log in.
TEST_F(IscsiUnit, LeavesNoPasswordBehind) {
  target_.emplace(std::vector{tests::TgtUnit{.file = file()}}, "somebody", "longsecret12");
  TestDefinition secret = test();
  secret.commandLimit = 300;
  std::string& address = secret.driveAddresses.front();
  address.insert(std::string("iscsi://").size(), "somebody%longsecret12@");
  const RunResult result = runTest(secret);
  EXPECT_EQ(result.status, RunStatus::clean) << agentLines(result);
  EXPECT_THAT(result.drives.at(0).address, AllOf(HasSubstr("somebody%***@"), testing::Not(HasSubstr("longsecret"))));
  EXPECT_THAT(result.drives.at(0).description, testing::Not(HasSubstr("longsecret")));
  for (const std::string& name : workspace_.content()) {
    if (const std::string path = workspace_ / name; name != "unit.img" && std::filesystem::is_regular_file(path)) {
      EXPECT_THAT(contentOf(path), testing::Not(HasSubstr("longsecret"))) << name;
    }
  }
}

}  // namespace
}  // namespace corvane::host::e2e
