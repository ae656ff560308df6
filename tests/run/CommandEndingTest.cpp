#include "host/run/CommandEnding.h"

#include <gtest/gtest.h>

#include "host/drive/SenseData.h"

namespace corvane::host {
namespace {

DriveCompletion failedWith(const Sense& sense, std::optional<uint64_t> lba = std::nullopt) {
  DriveCompletion completion;
  setSense(completion, sense, lba);
  return completion;
}

TEST(CommandEndingTest, goodAndRecoveredAreGood) {
  EXPECT_TRUE(endingOf({}, true).good());
  EXPECT_TRUE(endingOf(failedWith(sense::recoveredRead, 5), true).good());
  EXPECT_FALSE(endingOf(failedWith(sense::recoveredRead, 5), true).failingLba);
}

TEST(CommandEndingTest, anAbortIsNoFailure) {
  DriveCompletion completion;
  completion.status = scsi_status::aborted;
  const CommandEnding ending = endingOf(completion, true);
  EXPECT_TRUE(ending.aborted);
  EXPECT_FALSE(ending.failed);
  EXPECT_FALSE(ending.good());
}

TEST(CommandEndingTest, aMediumErrorNamesItsBlockWhenTheDriveDoes) {
  const CommandEnding named = endingOf(failedWith(sense::writeError, 0x123456789A), true);
  EXPECT_TRUE(named.failed);
  EXPECT_TRUE(named.mediumError);
  EXPECT_EQ(named.failingLba, 0x123456789AU);
  EXPECT_FALSE(endingOf(failedWith(sense::writeError), true).failingLba);
}

TEST(CommandEndingTest, onlyAMediumErrorsBlockCounts) {
  const CommandEnding ending = endingOf(failedWith(sense::internalFailure, 77), true);
  EXPECT_TRUE(ending.failed);
  EXPECT_FALSE(ending.mediumError);
  EXPECT_FALSE(ending.failingLba);
}

TEST(CommandEndingTest, knowsTheVerifyThatFoundADifference) {
  EXPECT_TRUE(endingOf(failedWith(sense::miscompareDuringVerify, 1), true).verifyMiscompare);
  EXPECT_FALSE(endingOf(failedWith(sense::unrecoveredRead, 1), true).verifyMiscompare);
}

TEST(CommandEndingTest, withoutSenseDataEveryOtherStatusIsAFailure) {
  EXPECT_FALSE(endingOf(failedWith(sense::recoveredRead), false).good());
  EXPECT_FALSE(endingOf(failedWith(sense::writeError, 5), false).failingLba);
  DriveCompletion shortSense = failedWith(sense::recoveredRead);
  shortSense.senseBytes = 7;
  EXPECT_FALSE(endingOf(shortSense, true).good());
  DriveCompletion unknownFormat = failedWith(sense::recoveredRead);
  unknownFormat.sense[0] = 0;
  EXPECT_FALSE(endingOf(unknownFormat, true).good());
}

}  // namespace
}  // namespace corvane::host
