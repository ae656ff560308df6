#include "host/run/CheckAccount.h"

#include <gtest/gtest.h>

#include <map>

#include "host/drive/SenseData.h"
#include "tests/support/CommandOf.h"

namespace corvane::host {
namespace {

/// Plays an agent that keeps to its rules.
class CheckAccountTest : public ::testing::Test {
 protected:
  static constexpr uint32_t tags = 8;

  CheckAccountTest() {
    rules.minQueueSize = 1;
    rules.maxQueueSize = 100;
    rules.listener = [this](const DriveCommand& command, uint64_t /*lba*/, BlockWorth /*worth*/) {
      ++judged[command.kind];
    };
  }

  CheckAccount& account() {
    if (!account_) {
      account_.emplace(rules, tags, counters);
    }
    return *account_;
  }

  bool issue(uint32_t tag, CommandKind kind, uint64_t lba, uint32_t blocks, CheckAccount::Origin origin = {}) {
    DriveCommand command = commandOf(kind, lba, blocks, rules.skipCommands ? 2 : 1);
    command.tag = tag;
    commands[tag] = command;
    return account().issued(command, origin);
  }
  void end(uint32_t tag, const DriveCompletion& completion = {}) {
    account().completed(commands.at(tag), completion, true);
  }
  void fail(uint32_t tag, const Sense& sense, std::optional<uint64_t> lba = std::nullopt) {
    DriveCompletion completion;
    setSense(completion, sense, lba);
    end(tag, completion);
  }
  void abort(uint32_t tag) {
    DriveCompletion completion;
    completion.status = scsi_status::aborted;
    end(tag, completion);
  }
  void write(uint64_t lba, uint32_t blocks) {
    issue(0, CommandKind::write, lba, blocks);
    end(0);
  }
  void read(uint64_t lba, uint32_t blocks) {
    issue(0, CommandKind::read, lba, blocks);
    end(0);
  }
  bool preRead(uint32_t tag, uint64_t lba, uint32_t blocks) {
    return issue(tag, CommandKind::read, lba, blocks, {.chosenRange = true, .mayBePreRead = true});
  }
  uint64_t because(Uncheckable reason) const { return counters.get().notCheckable[static_cast<size_t>(reason)]; }
  uint64_t one() const { return counters.get().oneOutcome; }

  CheckRules rules;
  CheckCounters counters;
  std::map<uint32_t, DriveCommand> commands;
  std::map<CommandKind, uint64_t> judged;
  std::optional<CheckAccount> account_;
};

TEST_F(CheckAccountTest, readsBackInTheOrderOfTheEnds) {
  issue(1, CommandKind::write, 100, 4);
  issue(2, CommandKind::trim, 200, 3);
  end(2);
  end(1);
  read(200, 3);
  read(100, 4);
  EXPECT_EQ(one(), 7U);
  EXPECT_EQ(counters.get().total(), 7U);
}

TEST_F(CheckAccountTest, readsTheOldestOutstandingWriteWhenNoneHasEnded) {
  issue(3, CommandKind::write, 100, 4);
  issue(1, CommandKind::write, 200, 2);
  issue(2, CommandKind::read, 100, 4);
  end(3);
  end(2);
  end(1);
  read(200, 2);
  EXPECT_EQ(one(), 6U);
}

TEST_F(CheckAccountTest, commandsThatDoNotFollowTheRulesAreNotJudged) {
  write(100, 4);
  read(300, 2);
  EXPECT_EQ(because(Uncheckable::untold), 2U);
  read(100, 4);
  EXPECT_EQ(because(Uncheckable::untold), 6U);
  EXPECT_EQ(one(), 0U);
}

TEST_F(CheckAccountTest, aFailedReadOrVerifyChecksNothing) {
  write(100, 4);
  issue(1, CommandKind::read, 100, 4);
  fail(1, sense::unrecoveredRead, 102);
  write(100, 2);
  issue(1, CommandKind::verify, 100, 2);
  abort(1);
  EXPECT_EQ(because(Uncheckable::commandFailed), 6U);
}

TEST_F(CheckAccountTest, aRecoveredReadIsCompared) {
  write(100, 4);
  issue(1, CommandKind::read, 100, 4);
  fail(1, sense::recoveredRead, 101);
  EXPECT_EQ(one(), 4U);
}

TEST_F(CheckAccountTest, aReadWithoutDataChecksNothing) {
  write(100, 4);
  issue(1, CommandKind::read, 100, 4);
  account().completed(commands.at(1), {}, false);
  EXPECT_EQ(because(Uncheckable::noData), 4U);
}

TEST_F(CheckAccountTest, aVerifyLeavesTheJudgementToTheDrive) {
  write(100, 4);
  write(200, 4);
  issue(1, CommandKind::verify, 100, 4);
  end(1);
  issue(1, CommandKind::verify, 200, 4);
  fail(1, sense::miscompareDuringVerify, 201);
  EXPECT_EQ(one(), 8U);
  EXPECT_EQ(judged[CommandKind::verify], 8U);
}

TEST_F(CheckAccountTest, aVerifyOverAnUnfinishedAtomicWriteMayDiffer) {
  write(100, 5);
  issue(1, CommandKind::writeAtomic, 100, 4, {.chosenRange = true});
  abort(1);
  read(100, 5);
  issue(1, CommandKind::verify, 100, 4);
  end(1);
  EXPECT_EQ(counters.get().severalOutcomes[2], 4U);
  EXPECT_EQ(one(), 1U);
  EXPECT_EQ(because(Uncheckable::verifyMayDiffer), 4U);
}

TEST_F(CheckAccountTest, withoutSpliceDetectionAFailedWriteIsNotReadBack) {
  issue(1, CommandKind::write, 100, 4);
  abort(1);
  write(200, 1);
  read(200, 1);
  EXPECT_EQ(counters.get().total(), 1U);
  EXPECT_EQ(one(), 1U);
}

TEST_F(CheckAccountTest, withSpliceDetectionAFailedWriteIsProbedAndAnAbortedProbeRepeatedOnce) {
  rules.spliceDetection = true;
  issue(1, CommandKind::write, 100, 4);
  abort(1);
  write(100, 4);
  issue(1, CommandKind::read, 100, 4);
  abort(1);
  read(100, 4);
  read(100, 4);
  EXPECT_EQ(because(Uncheckable::commandFailed), 4U);
  EXPECT_EQ(because(Uncheckable::probe), 4U);
  // The repeated probe took the claim of the good write, whose own read then goes where nobody waits.
  EXPECT_EQ(because(Uncheckable::untold), 4U);
}

TEST_F(CheckAccountTest, aReadLearnsWhileItIsOutstandingThatItOnlyProbes) {
  rules.spliceDetection = true;
  issue(1, CommandKind::write, 100, 4);
  issue(2, CommandKind::read, 100, 4);
  fail(1, sense::internalFailure);
  end(2);
  EXPECT_EQ(because(Uncheckable::probe), 4U);
}

TEST_F(CheckAccountTest, aMediumErrorKeepsTheBlocksBeforeIt) {
  rules.spliceDetection = true;
  issue(1, CommandKind::write, 100, 4);
  issue(2, CommandKind::read, 100, 4);
  fail(1, sense::writeError, 102);
  end(2);
  EXPECT_EQ(one(), 2U);
  EXPECT_EQ(because(Uncheckable::writeFailed), 2U);
}

TEST_F(CheckAccountTest, knowsAReadAheadOfAnAtomicWriteByTheQueue) {
  EXPECT_TRUE(preRead(1, 100, 4));  // nothing waits, so this is no read-back
  end(1);
  EXPECT_FALSE(issue(2, CommandKind::writeAtomic, 100, 4, {.chosenRange = true}));
  abort(2);
  EXPECT_EQ(counters.get().total(), 0U);
  read(100, 4);
  EXPECT_EQ(counters.get().severalOutcomes[2], 4U);
}

TEST_F(CheckAccountTest, aFullQueueMakesEveryReadAReadBack) {
  rules.maxQueueSize = 1;
  write(100, 4);
  EXPECT_FALSE(preRead(1, 100, 4));
  end(1);
  EXPECT_EQ(one(), 4U);
}

TEST_F(CheckAccountTest, takesTurnsAsTheAgentDoes) {
  rules.randomSelection = false;
  rules.maxQueueSize = 2;
  write(100, 4);
  EXPECT_TRUE(preRead(1, 100, 4));
  issue(2, CommandKind::writeAtomic, 100, 4, {.chosenRange = true});
  EXPECT_FALSE(preRead(3, 100, 4));  // two wait, so the agent reads until fewer than one does
}

TEST_F(CheckAccountTest, anAtomicWriteThatClaimsAnOutstandingPreReadStandsOnItsHash) {
  EXPECT_TRUE(preRead(1, 100, 4));
  issue(2, CommandKind::writeAtomic, 100, 4);
  issue(3, CommandKind::read, 100, 4);
  end(1);
  abort(2);
  end(3);
  EXPECT_EQ(counters.get().severalOutcomes[2], 4U);
}

TEST_F(CheckAccountTest, aReadThatCouldBeEitherIsTakenBackWhenTheCommandsTell) {
  write(100, 4);
  write(200, 2);
  // The block behind is not awaited, so it may be a pre-read of the very range that stands next.
  EXPECT_TRUE(preRead(1, 100, 4));
  read(200, 2);  // it was not: then 100 would stand next
  EXPECT_EQ(one(), 2U);
  end(1);
  EXPECT_EQ(one(), 6U);
}

TEST_F(CheckAccountTest, aReadThatWasTakenBackAfterItsEndLeavesItsBlocksUntold) {
  write(100, 4);
  write(200, 2);
  write(100, 2);
  EXPECT_TRUE(preRead(1, 100, 4));
  end(1);
  read(200, 2);
  read(100, 2);
  EXPECT_EQ(one(), 2U);
  EXPECT_EQ(because(Uncheckable::untold), 2U);
}

TEST_F(CheckAccountTest, whatAResetTookAwayIsReadAgainFirst) {
  write(100, 4);
  write(200, 4);
  write(300, 4);
  issue(1, CommandKind::read, 100, 4);
  issue(2, CommandKind::read, 200, 4);
  issue(3, CommandKind::write, 400, 4);
  account().allLost();
  read(200, 4);
  read(100, 4);
  read(300, 4);
  EXPECT_EQ(one(), 12U);
  EXPECT_EQ(counters.get().total(), 12U);
}

TEST_F(CheckAccountTest, aResetLeavesALostAtomicWriteWithTwoOutcomes) {
  write(100, 5);
  issue(1, CommandKind::writeAtomic, 100, 4, {.chosenRange = true});
  account().allLost();
  read(100, 5);
  read(100, 4);
  EXPECT_EQ(counters.get().severalOutcomes[2], 8U);
  EXPECT_EQ(one(), 1U);
}

TEST_F(CheckAccountTest, aLostWriteIsProbedWithSpliceDetection) {
  rules.spliceDetection = true;
  issue(1, CommandKind::write, 100, 4);
  account().allLost();
  read(100, 4);
  EXPECT_EQ(because(Uncheckable::probe), 4U);
}

TEST_F(CheckAccountTest, aZoneResetDropsTheReadBacksThatItConcerns) {
  write(98, 4);
  write(200, 1);
  write(110, 1);
  account().zonesReset(100, 110);
  read(200, 1);
  read(110, 1);
  EXPECT_EQ(one(), 1U);
  EXPECT_EQ(because(Uncheckable::zoneReset), 1U);
}

TEST_F(CheckAccountTest, withSkipCommandsAZoneResetConcernsItsOwnParity) {
  rules.skipCommands = true;
  write(101, 4);
  write(100, 4);
  account().zonesReset(100, 200);
  read(101, 4);
  EXPECT_EQ(because(Uncheckable::zoneReset), 4U);
}

TEST_F(CheckAccountTest, anInvalidatedBlockIsKnownByItsOldContentOnly) {
  write(100, 4);
  account().invalidated(102, 110);
  read(100, 4);
  EXPECT_EQ(one(), 2U);
  EXPECT_EQ(because(Uncheckable::invalidated), 2U);
}

TEST_F(CheckAccountTest, theCountsAreTheBlocksOfAllReadsAndVerifiesButPreReads) {
  rules.spliceDetection = true;
  write(100, 4);
  EXPECT_TRUE(preRead(1, 300, 7));
  end(1);
  read(100, 4);
  write(100, 4);
  issue(1, CommandKind::verify, 100, 4);
  end(1);
  issue(2, CommandKind::write, 500, 3);
  abort(2);
  read(500, 3);
  write(600, 6);
  issue(2, CommandKind::read, 600, 6);
  fail(2, sense::unrecoveredRead);
  EXPECT_EQ(counters.get().total(), 4U + 4U + 3U + 6U);
  EXPECT_EQ(judged[CommandKind::read] + judged[CommandKind::verify], counters.get().total());
}

}  // namespace
}  // namespace corvane::host
