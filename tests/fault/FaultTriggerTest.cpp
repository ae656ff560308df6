#include "host/fault/FaultTrigger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

/// The commands out of the first `count` at which the trigger fires.
std::vector<uint64_t> strikesOf(FaultTrigger& trigger, uint64_t count) {
  std::vector<uint64_t> strikes;
  for (uint64_t command = 1; command <= count; ++command) {
    if (trigger.fires(command)) {
      strikes.push_back(command);
    }
  }
  return strikes;
}

std::vector<uint64_t> strikesOf(const char* spec, uint64_t seed, uint64_t count) {
  FaultTrigger trigger(parseFaultSpec(spec), seed);
  return strikesOf(trigger, count);
}

TEST(FaultTrigger, AMomentFiresOnce) {
  EXPECT_THAT(strikesOf("lost-write:at=command:5", 1, 100), testing::ElementsAre(5));
  EXPECT_THAT(strikesOf("lost-write:at=command:1", 1, 100), testing::ElementsAre(1));
}

TEST(FaultTrigger, AMomentThatWasMissedFiresAtTheNextCommand) {
  FaultTrigger trigger(parseFaultSpec("lost-write:at=command:5"), 1);
  EXPECT_FALSE(trigger.fires(4));
  EXPECT_TRUE(trigger.fires(9));
  EXPECT_FALSE(trigger.fires(10));
}

TEST(FaultTrigger, AMomentMayFireSeveralTimes) {
  EXPECT_THAT(strikesOf("lost-write:at=command:5,most=3", 1, 100), testing::ElementsAre(5, 6, 7));
}

TEST(FaultTrigger, MostEndsARate) {
  EXPECT_THAT(strikesOf("lost-write:rate=1,most=2", 1, 100), testing::ElementsAre(1, 2));
  EXPECT_EQ(strikesOf("lost-write:rate=0.5,most=4", 1, 1000).size(), 4U);
}

TEST(FaultTrigger, TheBordersOfARateAreSure) {
  EXPECT_THAT(strikesOf("lost-write:rate=0", 1, 10'000), testing::IsEmpty());
  EXPECT_EQ(strikesOf("lost-write:rate=1", 1, 10'000).size(), 10'000U);
}

TEST(FaultTrigger, ARateFiresAboutThatOften) {
  const size_t strikes = strikesOf("lost-write:rate=0.25", 7, 100'000).size();
  EXPECT_GT(strikes, 24'000U);
  EXPECT_LT(strikes, 26'000U);
}

TEST(FaultTrigger, ASeedRepeatsTheStrikes) {
  EXPECT_EQ(strikesOf("lost-write:rate=0.1", 1, 1000), strikesOf("lost-write:rate=0.1", 1, 1000));
  EXPECT_NE(strikesOf("lost-write:rate=0.1", 1, 1000), strikesOf("lost-write:rate=0.1", 2, 1000));
}

TEST(FaultTrigger, AStrikeTakenBackGivesTheNextCommandItsTurn) {
  FaultTrigger trigger(parseFaultSpec("lost-write:at=command:5"), 1);
  EXPECT_TRUE(trigger.fires(5));
  trigger.takeBack();
  EXPECT_TRUE(trigger.fires(6));
  EXPECT_FALSE(trigger.fires(7));
}

TEST(FaultTrigger, AStrikeTakenBackDoesNotCountTowardsMost) {
  FaultTrigger trigger(parseFaultSpec("lost-write:rate=1,most=2"), 1);
  EXPECT_TRUE(trigger.fires(1));
  EXPECT_TRUE(trigger.fires(2));
  EXPECT_FALSE(trigger.fires(3));
  trigger.takeBack();
  EXPECT_THAT(strikesOf(trigger, 10), testing::ElementsAre(1));
}

}  // namespace
}  // namespace corvane::host
