#include "host/run/OrderingFence.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <vector>

#include "host/base/Random.h"
#include "host/drive/DriveError.h"
#include "tests/run/FakeDrive.h"
#include "tests/run/ManualClock.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using testing::FakeDrive;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::ManualClock;
using testing::senseOfKey;

DriveCommand make(CommandKind kind, uint32_t tag, uint64_t lba, uint32_t blocks = 1) {
  DriveCommand command;
  command.kind = kind;
  command.tag = tag;
  command.lba = lba;
  command.blocks = blocks;
  return command;
}

class OrderingFenceTest : public ::testing::Test {
 protected:
  std::vector<uint32_t> atDrive() const {
    std::vector<uint32_t> tags;
    for (const DriveCommand& command : drive.waiting) {
      tags.push_back(command.tag);
    }
    return tags;
  }
  std::vector<uint32_t> pollAll() { return testing::tagsOfAll(fence); }

  FakeDrive drive;
  DriveCounters counters;
  ManualClock clock;
  OrderingFence fence{drive, 16, counters, clock};
};

TEST_F(OrderingFenceTest, ReadsOfTheSameBlocksGoTogether) {
  fence.submit(make(CommandKind::read, 0, 100, 8));
  fence.submit(make(CommandKind::read, 1, 104, 8));
  fence.submit(make(CommandKind::verify, 2, 100, 8));
  EXPECT_THAT(atDrive(), ElementsAre(0, 1, 2));
  EXPECT_EQ(fence.held(), 0U);
}

TEST_F(OrderingFenceTest, NeighboursDoNotOverlap) {
  fence.submit(make(CommandKind::write, 0, 100, 8));
  fence.submit(make(CommandKind::write, 1, 108, 8));
  fence.submit(make(CommandKind::read, 2, 99, 1));
  EXPECT_THAT(atDrive(), ElementsAre(0, 1, 2));
}

TEST_F(OrderingFenceTest, EveryPairWithAChangeOfTheMediumWaits) {
  for (const CommandKind writer :
       {CommandKind::write, CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim}) {
    for (const CommandKind other : {CommandKind::read, CommandKind::verify, CommandKind::write}) {
      for (const bool writerFirst : {true, false}) {
        fence.submit(make(writerFirst ? writer : other, 0, 100, 8));
        fence.submit(make(writerFirst ? other : writer, 1, 107, 8));
        EXPECT_THAT(atDrive(), ElementsAre(0));
        drive.completeTag(0);
        EXPECT_THAT(pollAll(), ElementsAre(0));
        EXPECT_THAT(atDrive(), ElementsAre(1));
        drive.completeTag(1);
        EXPECT_THAT(pollAll(), ElementsAre(1));
      }
    }
  }
  EXPECT_EQ(counters.heldBack.get(), 24U);
}

TEST_F(OrderingFenceTest, ACommandWaitsForDeliveryNotForTheDrive) {
  fence.submit(make(CommandKind::write, 0, 100));
  fence.submit(make(CommandKind::write, 1, 200));
  fence.submit(make(CommandKind::read, 2, 100));
  drive.completeTag(1);
  drive.completeTag(0);
  DriveCompletion completion;
  ASSERT_TRUE(fence.poll(completion));
  EXPECT_EQ(completion.tag, 1U);
  EXPECT_THAT(atDrive(), IsEmpty());
  ASSERT_TRUE(fence.poll(completion));
  EXPECT_EQ(completion.tag, 0U);
  EXPECT_THAT(atDrive(), ElementsAre(2));
}

TEST_F(OrderingFenceTest, ACacheFlushIsABarrierInBothDirections) {
  fence.submit(make(CommandKind::write, 0, 100));
  fence.submit(make(CommandKind::read, 1, 200));
  fence.submit(make(CommandKind::syncCache, 2, 0, 0));
  fence.submit(make(CommandKind::read, 3, 300));
  EXPECT_THAT(atDrive(), ElementsAre(0, 1));
  drive.completeTag(1);
  EXPECT_THAT(pollAll(), ElementsAre(1));
  EXPECT_THAT(atDrive(), ElementsAre(0));
  drive.completeTag(0);
  EXPECT_THAT(pollAll(), ElementsAre(0));
  EXPECT_THAT(atDrive(), ElementsAre(2));
  drive.completeTag(2);
  EXPECT_THAT(pollAll(), ElementsAre(2));
  EXPECT_THAT(atDrive(), ElementsAre(3));
}

TEST_F(OrderingFenceTest, ReleasedCommandsGoInIssueOrder) {
  fence.submit(make(CommandKind::write, 5, 100, 64));
  for (const uint32_t tag : {9U, 3U, 7U, 1U}) {
    fence.submit(make(CommandKind::read, tag, 100 + tag));
  }
  EXPECT_EQ(fence.held(), 4U);
  drive.completeTag(5);
  EXPECT_THAT(pollAll(), ElementsAre(5));
  EXPECT_THAT(atDrive(), ElementsAre(9, 3, 7, 1));
  EXPECT_EQ(fence.held(), 0U);
}

TEST_F(OrderingFenceTest, SkipCommandsCountFromFirstToLastBlock) {
  DriveCommand skip = make(CommandKind::write, 0, 100, 4);
  skip.lbaStep = 2;  // 100, 102, 104, 106
  fence.submit(skip);
  fence.submit(make(CommandKind::read, 1, 106));
  fence.submit(make(CommandKind::read, 2, 107));
  EXPECT_THAT(atDrive(), ElementsAre(0, 2));
}

TEST_F(OrderingFenceTest, ForgottenCommandsNeverReachTheDriveAndLateAnswersAreDropped) {
  fence.submit(make(CommandKind::write, 0, 100));
  fence.submit(make(CommandKind::read, 1, 100));
  drive.completeTag(0);
  fence.forgetAll();
  EXPECT_EQ(fence.outstanding(), 0U);
  EXPECT_THAT(pollAll(), IsEmpty());
  EXPECT_EQ(counters.stray.get(), 1U);
  EXPECT_EQ(drive.submitted.size(), 1U);
  fence.submit(make(CommandKind::read, 0, 100));
  EXPECT_THAT(atDrive(), ElementsAre(0));
}

TEST_F(OrderingFenceTest, ALateAnswerIsNotTakenForTheTagsNewCommand) {
  fence.submit(make(CommandKind::write, 0, 100));
  drive.completeTag(0);
  const DriveCompletion late = drive.answers.front();
  drive.answers.clear();
  fence.forgetAll();
  fence.submit(make(CommandKind::write, 0, 500));
  drive.answers.push_back(late);
  EXPECT_THAT(pollAll(), IsEmpty());
  EXPECT_EQ(fence.outstanding(), 1U);
  drive.completeTag(0);
  EXPECT_THAT(pollAll(), ElementsAre(0));
}

TEST_F(OrderingFenceTest, AnswersTwiceOrForUnknownTagsAreDropped) {
  fence.submit(make(CommandKind::write, 0, 100));
  drive.completeTag(0);
  drive.answers.push_back(drive.answers.front());
  DriveCompletion unknown;
  unknown.tag = 4000;
  drive.answers.push_back(unknown);
  EXPECT_THAT(pollAll(), ElementsAre(0));
  EXPECT_EQ(counters.stray.get(), 2U);
}

TEST_F(OrderingFenceTest, WhatTheDriveCouldNotTakeIsSentAgainAndNotShown) {
  const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> refusals = {
      {scsi_status::busy, {}},
      {scsi_status::taskSetFull, {}},
      {scsi_status::reservationConflict, {}},
      {scsi_status::checkCondition, senseOfKey(6)}};
  for (const auto& [status, sense] : refusals) {
    fence.submit(make(CommandKind::write, 0, 100));
    fence.submit(make(CommandKind::read, 1, 100));
    const uint64_t firstId = drive.submitted.back().id;
    drive.completeTag(0, status, sense);
    EXPECT_THAT(pollAll(), IsEmpty());
    EXPECT_THAT(pollAll(), IsEmpty());
    EXPECT_THAT(atDrive(), ElementsAre(0)) << "the read must still wait";
    EXPECT_NE(drive.submitted.back().id, firstId);
    drive.completeTag(0);
    EXPECT_THAT(pollAll(), ElementsAre(0));
    drive.completeTag(1);
    EXPECT_THAT(pollAll(), ElementsAre(1));
  }
  EXPECT_EQ(counters.retried.get(), 4U);
}

TEST_F(OrderingFenceTest, OtherCheckConditionsArePassedOn) {
  for (const uint8_t key : {uint8_t{1}, uint8_t{3}, uint8_t{4}, uint8_t{0xB}}) {
    fence.submit(make(CommandKind::write, 0, 100));
    drive.completeTag(0, scsi_status::checkCondition, senseOfKey(key));
    DriveCompletion completion;
    ASSERT_TRUE(fence.poll(completion));
    EXPECT_EQ(completion.status, scsi_status::checkCondition);
  }
  fence.submit(make(CommandKind::write, 0, 100));
  drive.completeTag(0, scsi_status::checkCondition);
  EXPECT_THAT(pollAll(), ElementsAre(0)) << "without sense data nothing says unit attention";
  EXPECT_EQ(counters.retried.get(), 0U);
}

TEST_F(OrderingFenceTest, RetriesHaveAnEnd) {
  drive.onPoll = [this] {
    if (!drive.waiting.empty()) {
      drive.complete(0, scsi_status::taskSetFull);
    }
  };
  fence.submit(make(CommandKind::write, 3, 100, 8));
  try {
    for (uint32_t i = 0; i <= OrderingFence::maxAttempts; ++i) {
      pollAll();
    }
    FAIL() << "no end";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("'task set full' to a write of 8 blocks at LBA 100 (tag 3) 1000 times"));
  }
  EXPECT_EQ(drive.submitted.size(), OrderingFence::maxAttempts);
}

TEST_F(OrderingFenceTest, ARefusedCommandThatIsForgottenIsNotSentAgain) {
  fence.submit(make(CommandKind::write, 0, 100));
  drive.completeTag(0, scsi_status::busy);
  EXPECT_THAT(pollAll(), IsEmpty());
  fence.forgetAll();
  EXPECT_THAT(pollAll(), IsEmpty());
  EXPECT_EQ(drive.submitted.size(), 1U);
}

TEST_F(OrderingFenceTest, ReusingAnOutstandingTagIsAnError) {
  fence.submit(make(CommandKind::write, 0, 100));
  EXPECT_THROW(fence.submit(make(CommandKind::write, 0, 300)), std::logic_error);
  EXPECT_THROW(fence.submit(make(CommandKind::write, 16, 300)), std::out_of_range);
}

TEST_F(OrderingFenceTest, DescribesTheOldestOutstandingCommands) {
  fence.submit(make(CommandKind::write, 4, 100, 8));
  fence.submit(make(CommandKind::syncCache, 2, 0, 0));
  fence.submit(make(CommandKind::read, 9, 7));
  EXPECT_EQ(fence.describeOutstanding(2), "write of 8 blocks at LBA 100 (tag 4), sync (tag 2) and 1 more");
}

/// The reference: every read sees, block by block, the number of the last write that was issued before it.
class BruteForceModel {
 public:
  void issue(const DriveCommand& command, uint64_t number) {
    std::vector<uint64_t>& seen = expected_[number];
    for (uint64_t lba = command.lba; lba < command.endLba(); ++lba) {
      if (changesMedium(command.kind)) {
        content_[lba] = number;
      } else {
        seen.push_back(content_[lba]);
      }
    }
  }
  const std::vector<uint64_t>& expected(uint64_t number) const { return expected_.at(number); }

 private:
  std::map<uint64_t, uint64_t> content_;
  std::map<uint64_t, std::vector<uint64_t>> expected_;
};

/// Random overlapping commands against a drive that executes whatever it likes of what it was given.
///
/// @param burst after so many commands everything is waited for; 0: only in the end
void runAgainstModel(uint32_t depth, uint64_t lbas, uint64_t seed, int commands, int burst = 0) {
  FakeDrive drive;
  DriveCounters counters;
  ManualClock clock;
  OrderingFence fence(drive, depth, counters, clock);
  BruteForceModel model;
  Random random(seed);
  std::map<uint64_t, uint64_t> medium;
  std::vector<uint64_t> numberOfTag(depth);
  std::vector<std::vector<uint64_t>> readByTag(depth);
  std::vector<bool> busy(depth, false);
  uint64_t number = 0;
  int retries = 0;

  drive.onPoll = [&] {
    if (drive.waiting.empty() || random.below(3) == 0) {
      return;
    }
    const size_t pick = random.below(drive.waiting.size());
    const DriveCommand command = drive.waiting[pick];
    if (random.below(20) == 0) {
      ++retries;
      drive.complete(pick, scsi_status::busy);
      return;
    }
    for (uint64_t lba = command.lba; lba < command.endLba(); ++lba) {
      if (changesMedium(command.kind)) {
        medium[lba] = numberOfTag[command.tag];
      } else {
        readByTag[command.tag].push_back(medium[lba]);
      }
    }
    drive.complete(pick);
  };
  const auto deliver = [&] {
    DriveCompletion completion;
    if (!fence.poll(completion)) {
      return;
    }
    busy[completion.tag] = false;
    if (fence.command(completion.tag).kind == CommandKind::read) {
      ASSERT_EQ(readByTag[completion.tag], model.expected(numberOfTag[completion.tag]));
    }
  };
  for (int issued = 0; issued < commands;) {
    const auto tag = static_cast<uint32_t>(random.below(depth));
    if (!busy[tag]) {
      const uint64_t kind = random.below(20);
      DriveCommand command = make(kind < 9 ? CommandKind::write : CommandKind::read, tag, random.below(lbas),
                                  static_cast<uint32_t>(random.between(1, 6)));
      if (kind == 19) {
        command = make(CommandKind::syncCache, tag, 0, 0);
      }
      numberOfTag[tag] = ++number;
      readByTag[tag].clear();
      busy[tag] = true;
      model.issue(command, number);
      fence.submit(command);
      ++issued;
      while (burst != 0 && issued % burst == 0 && fence.outstanding() != 0) {
        deliver();
      }
    }
    deliver();
  }
  while (fence.outstanding() != 0) {
    deliver();
  }
  EXPECT_EQ(fence.held(), 0U);
  EXPECT_GT(retries, 0);
  EXPECT_GT(counters.heldBack.get(), 0U);
}

TEST(OrderingFenceModel, ReadsSeeEveryEarlierAndNoLaterWrite) {
  for (uint64_t seed = 1; seed <= 12; ++seed) {
    runAgainstModel(2, 6, seed, 1000);
    runAgainstModel(8, 12, seed, 2000);
    runAgainstModel(64, 40, seed, 3000);
    runAgainstModel(1024, 3000, seed, 4000);
  }
}

TEST(OrderingFenceModel, OrderHoldsWhileFewBecomeManyAndFewAgain) {
  for (uint64_t seed = 1; seed <= 12; ++seed) {
    runAgainstModel(64, 40, seed, 2000, 7);
    runAgainstModel(64, 40, seed, 2000, 30);
    runAgainstModel(64, 1000, seed, 2000, 60);
  }
}

class BrokenDriveTest : public OrderingFenceTest {
 protected:
  void breakAt(uint32_t tag) {
    drive.onSubmit = [tag](const DriveCommand& command) {
      if (command.tag == tag) {
        throw DriveConnectionLost("gone");
      }
    };
  }
};

TEST_F(BrokenDriveTest, ACommandWhoseSubmissionLostTheConnectionIsOutstanding) {
  breakAt(0);
  EXPECT_THROW(fence.submit(make(CommandKind::write, 0, 100, 4)), DriveConnectionLost);
  EXPECT_TRUE(fence.isOutstanding(0));
  EXPECT_FALSE(fence.isUnsent(0)) << "nobody knows how far it came";
  fence.forgetAll();
  EXPECT_EQ(fence.outstanding(), 0U);
}

TEST_F(BrokenDriveTest, WhatEndedBeforeTheLossIsPassedOnBeforeIt) {
  fence.submit(make(CommandKind::write, 0, 100, 4));
  fence.submit(make(CommandKind::read, 1, 100, 1));
  fence.submit(make(CommandKind::read, 2, 101, 1));
  drive.completeTag(0);
  breakAt(1);
  DriveCompletion completion;
  ASSERT_TRUE(fence.poll(completion));
  EXPECT_EQ(completion.tag, 0U);
  EXPECT_FALSE(fence.isUnsent(1));
  EXPECT_TRUE(fence.isUnsent(2)) << "the drive never saw it";
  EXPECT_THROW(fence.poll(completion), DriveConnectionLost);
  EXPECT_THROW(fence.submit(make(CommandKind::read, 3, 500, 1)), DriveConnectionLost);
  EXPECT_TRUE(fence.isUnsent(3));
  EXPECT_EQ(drive.submitted.size(), 2U);
  fence.forgetAll();
  drive.onSubmit = nullptr;
  drive.reset();
  fence.submit(make(CommandKind::read, 3, 500, 1));
  drive.completeTag(3);
  EXPECT_TRUE(fence.poll(completion));
}

class ZoneOrderTest : public ::testing::Test {
 protected:
  ZoneOrderTest() {
    drive.shape.zoneBlocks = 100;
    drive.offers.hostManaged = true;
  }

  std::vector<uint64_t> submittedLbas() const {
    std::vector<uint64_t> lbas;
    for (const DriveCommand& command : drive.submitted) {
      lbas.push_back(command.lba);
    }
    return lbas;
  }

  FakeDrive drive;
  DriveCounters counters;
  ManualClock clock;
};

TEST_F(ZoneOrderTest, AWriteDoesNotOvertakeOneOfItsZoneThatIsHeldBack) {
  OrderingFence fence(drive, 8, counters, clock);
  fence.submit(make(CommandKind::read, 0, 100, 4));
  fence.submit(make(CommandKind::write, 1, 102, 4));
  fence.submit(make(CommandKind::write, 2, 106, 4));
  fence.submit(make(CommandKind::write, 3, 200, 4));
  EXPECT_THAT(submittedLbas(), ElementsAre(100, 200));
  EXPECT_TRUE(fence.isUnsent(1));
  EXPECT_TRUE(fence.isUnsent(2));
  EXPECT_FALSE(fence.isUnsent(3));
  DriveCompletion completion;
  drive.completeTag(0);
  EXPECT_TRUE(fence.poll(completion));
  EXPECT_THAT(submittedLbas(), ElementsAre(100, 200, 102));
  drive.completeTag(1);
  EXPECT_TRUE(fence.poll(completion));
  EXPECT_THAT(submittedLbas(), ElementsAre(100, 200, 102, 106));
  EXPECT_FALSE(fence.isUnsent(1));
}

TEST_F(ZoneOrderTest, AWriteDoesNotOvertakeOneOfItsZoneThatIsSentAgain) {
  OrderingFence fence(drive, 8, counters, clock);
  fence.submit(make(CommandKind::write, 0, 100, 4));
  drive.completeTag(0, scsi_status::busy);
  DriveCompletion completion;
  EXPECT_FALSE(fence.poll(completion));
  EXPECT_TRUE(fence.isUnsent(0));
  fence.submit(make(CommandKind::write, 1, 104, 4));
  EXPECT_THAT(submittedLbas(), ElementsAre(100));
  EXPECT_FALSE(fence.poll(completion));
  EXPECT_THAT(submittedLbas(), ElementsAre(100, 100));
  EXPECT_FALSE(fence.isUnsent(0));
}

TEST_F(ZoneOrderTest, OtherWritesAndOtherDrivesAreNotHeldBack) {
  drive.offers.hostManaged = false;
  OrderingFence fence(drive, 8, counters, clock);
  fence.submit(make(CommandKind::read, 0, 100, 4));
  fence.submit(make(CommandKind::write, 1, 102, 4));
  fence.submit(make(CommandKind::write, 2, 106, 4));
  EXPECT_THAT(submittedLbas(), ElementsAre(100, 106));
}

}  // namespace
}  // namespace corvane::host
