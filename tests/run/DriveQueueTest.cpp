#include "host/run/DriveQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

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

constexpr uint32_t agentTags = 4;

class DriveQueueTest : public ::testing::Test {
 protected:
  void submit(uint32_t tag) {
    DriveCommand command;
    command.kind = CommandKind::write;
    command.tag = tag;
    command.lba = 10 * uint64_t{tag};
    command.blocks = 2;
    queue.submit(command);
  }

  static DriveCommand reset() {
    DriveCommand command;
    command.kind = CommandKind::zoneReset;
    command.lba = 1000;
    command.blocks = 100;
    return command;
  }

  /// When the host's own command comes, these complete before it and those behind it.
  void completeAround(std::vector<uint32_t> before, std::vector<uint32_t> behind) {
    drive.onSubmit = [this, before, behind](const DriveCommand& command) {
      if (command.kind != CommandKind::zoneReset) {
        return;
      }
      for (const uint32_t tag : before) {
        drive.completeTag(tag);
      }
      drive.completeTag(command.tag);
      for (const uint32_t tag : behind) {
        drive.completeTag(tag);
      }
    };
  }

  std::vector<uint32_t> pollAll() { return testing::tagsOfAll(queue); }

  FakeDrive drive;
  DriveCounters counters;
  ManualClock clock;
  DriveQueue queue{drive, agentTags, true, 5000, counters, clock};
};

TEST_F(DriveQueueTest, TheHostsOwnCommandHasATagBehindTheAgents) {
  completeAround({}, {});
  EXPECT_EQ(queue.runAlone(reset()).status, scsi_status::good);
  ASSERT_EQ(drive.submitted.size(), 1U);
  EXPECT_EQ(drive.submitted[0].tag, agentTags);
  EXPECT_EQ(queue.outstanding(), 0U);
  EXPECT_THAT(pollAll(), IsEmpty()) << "nobody else sees its completion";
}

TEST_F(DriveQueueTest, WhatCompletesMeanwhileComesOutInItsOrderBeforeAnythingNewer) {
  for (uint32_t tag = 0; tag < agentTags; ++tag) {
    submit(tag);
  }
  completeAround({3, 0, 2}, {1});
  queue.runAlone(reset());
  EXPECT_EQ(queue.outstanding(), 4U);
  EXPECT_THAT(pollAll(), ElementsAre(3, 0, 2, 1));
  EXPECT_EQ(queue.outstanding(), 0U);
}

TEST_F(DriveQueueTest, KeptCompletionsGoRoundTheirBuffer) {
  DriveCompletion completion;
  for (uint32_t round = 0; round < 3; ++round) {
    submit(0);
    submit(1);
    submit(2);
    completeAround({2, 1}, {0});
    queue.runAlone(reset());
    ASSERT_TRUE(queue.poll(completion));
    EXPECT_EQ(completion.tag, 2U);
    submit(2);
    completeAround({2}, {});
    queue.runAlone(reset());
    EXPECT_THAT(pollAll(), ElementsAre(1, 0, 2));
  }
}

TEST_F(DriveQueueTest, WaitingTakesKeptCompletionsFirst) {
  submit(0);
  submit(1);
  completeAround({1}, {0});
  queue.runAlone(reset());
  DriveCompletion completion;
  queue.wait(completion);
  EXPECT_EQ(completion.tag, 1U);
  queue.wait(completion);
  EXPECT_EQ(completion.tag, 0U);
}

TEST_F(DriveQueueTest, ForgettingDropsWhatWasKept) {
  submit(0);
  submit(1);
  completeAround({1}, {});
  queue.runAlone(reset());
  queue.forgetAll();
  EXPECT_EQ(queue.outstanding(), 0U);
  EXPECT_THAT(pollAll(), IsEmpty());
}

TEST_F(DriveQueueTest, AnOwnCommandThatNeverEndsIsGivenUp) {
  submit(0);
  try {
    queue.runAlone(reset());
    FAIL() << "waits for ever";
  } catch (const DriveError& error) {
    EXPECT_THAT(error.what(), HasSubstr("completed nothing for 5 s"));
    EXPECT_THAT(error.what(), HasSubstr("zonereset of 100 blocks at LBA 1000 (tag 4)"));
  }
}

TEST_F(DriveQueueTest, ADriveThatCanBeSleptOnIsNeitherPolledNorPausedForMeanwhile) {
  submit(2);
  int pollsBefore = 0;
  drive.onWait = [&](uint64_t) {
    pollsBefore = drive.polls;
    drive.completeTag(2);
  };
  DriveCompletion completion;
  queue.wait(completion);
  EXPECT_EQ(completion.tag, 2U);
  EXPECT_EQ(drive.polls, pollsBefore + 1);
  EXPECT_EQ(clock.pauses, 0);
}

TEST_F(DriveQueueTest, ADriveThatIsSleptOnForEverIsGivenUp) {
  submit(2);
  uint64_t longest = 0;
  drive.onWait = [&](uint64_t microseconds) {
    longest = std::max(longest, microseconds);
    clock.pause(microseconds);
  };
  DriveCompletion completion;
  EXPECT_THROW(queue.wait(completion), DriveError);
  EXPECT_LE(longest, 100'000U) << "the watchdog looks in between";
  EXPECT_EQ(clock.steadyUs(), 1U + 5'000'000U);
}

TEST_F(DriveQueueTest, ACommandThatIsToBeSentAgainIsNotSleptOn) {
  submit(2);
  drive.completeTag(2, scsi_status::busy);
  drive.onWait = [&](uint64_t) {
    ASSERT_EQ(drive.submitted.size(), 2U) << "nothing is at the drive that could end the sleep";
    drive.completeTag(2);
  };
  DriveCompletion completion;
  queue.wait(completion);
  EXPECT_EQ(completion.status, scsi_status::good);
}

TEST_F(DriveQueueTest, TheAnswerOfAnOwnCommandIsTheDrives) {
  drive.onSubmit = [this](const DriveCommand& command) {
    drive.completeTag(command.tag, scsi_status::checkCondition, testing::senseOfKey(5));
  };
  const DriveCompletion completion = queue.runAlone(reset());
  EXPECT_EQ(completion.status, scsi_status::checkCondition);
  EXPECT_EQ(completion.sense[2], 5);
}

}  // namespace
}  // namespace corvane::host
