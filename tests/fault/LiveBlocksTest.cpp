#include "host/fault/LiveBlocks.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/CommandOf.h"

namespace corvane::host {
namespace {

std::vector<uint64_t> liveOf(const LiveBlocks& live, uint64_t end) {
  std::vector<uint64_t> found;
  for (uint64_t lba = 0; lba < end; ++lba) {
    if (live.contains(lba)) {
      found.push_back(lba);
    }
  }
  return found;
}

using Lbas = std::vector<uint64_t>;

TEST(LiveBlocks, WrittenBlocksAreLiveUntilSomebodyLooked) {
  LiveBlocks live;
  EXPECT_EQ(liveOf(live, 20), Lbas{});
  live.wrote(commandOf(CommandKind::write, 3, 4));
  EXPECT_EQ(liveOf(live, 20), (Lbas{3, 4, 5, 6}));
  live.looked(commandOf(CommandKind::read, 4, 2));
  EXPECT_EQ(liveOf(live, 20), (Lbas{3, 6}));
  live.looked(commandOf(CommandKind::verify, 0, 20));
  EXPECT_EQ(liveOf(live, 20), Lbas{});
}

TEST(LiveBlocks, AStepLeavesTheBlocksBetweenAlone) {
  LiveBlocks live;
  live.wrote(commandOf(CommandKind::write, 2, 3, 2));
  EXPECT_EQ(liveOf(live, 20), (Lbas{2, 4, 6}));
  live.wrote(commandOf(CommandKind::write, 3, 2));
  live.looked(commandOf(CommandKind::read, 3, 2, 2));
  EXPECT_EQ(liveOf(live, 20), (Lbas{2, 4, 6}));
}

TEST(LiveBlocks, AFailedCommandEndsTheLife) {
  LiveBlocks live;
  live.wrote(commandOf(CommandKind::write, 3, 4));
  live.failed(commandOf(CommandKind::trim, 5, 4));
  EXPECT_EQ(liveOf(live, 20), (Lbas{3, 4}));
}

TEST(LiveBlocks, AReadOfTheVeryRangeOfAFailedCommandMayOnlyProbe) {
  LiveBlocks live;
  live.failed(commandOf(CommandKind::write, 5, 4));
  EXPECT_TRUE(live.mayOnlyProbe(commandOf(CommandKind::read, 5, 4)));
  EXPECT_FALSE(live.mayOnlyProbe(commandOf(CommandKind::read, 5, 3)));
  EXPECT_FALSE(live.mayOnlyProbe(commandOf(CommandKind::read, 4, 4)));
}

TEST(LiveBlocks, AProbeIsNoLook) {
  LiveBlocks live;
  live.failed(commandOf(CommandKind::write, 5, 4));
  live.wrote(commandOf(CommandKind::write, 5, 2));
  live.looked(commandOf(CommandKind::read, 5, 4));
  EXPECT_EQ(liveOf(live, 20), (Lbas{5, 6}));
  live.looked(commandOf(CommandKind::read, 5, 2));
  EXPECT_EQ(liveOf(live, 20), Lbas{});
}

TEST(LiveBlocks, AGoodWriteOfTheVeryRangeLeavesTheDoubtForOneRead) {
  LiveBlocks live;
  live.failed(commandOf(CommandKind::write, 5, 4));
  live.wrote(commandOf(CommandKind::write, 5, 4));
  EXPECT_TRUE(live.mayOnlyProbe(commandOf(CommandKind::read, 5, 4)));
  live.looked(commandOf(CommandKind::read, 5, 4));
  EXPECT_EQ(liveOf(live, 20), Lbas{}) << "it may have been the write's own read as well";
  EXPECT_FALSE(live.mayOnlyProbe(commandOf(CommandKind::read, 5, 4)));
}

TEST(LiveBlocks, EachFailureIsProbedOnItsOwn) {
  LiveBlocks live;
  live.failed(commandOf(CommandKind::write, 5, 4));
  live.failed(commandOf(CommandKind::write, 5, 4));
  live.looked(commandOf(CommandKind::read, 5, 4));
  EXPECT_TRUE(live.mayOnlyProbe(commandOf(CommandKind::read, 5, 4)));
  live.looked(commandOf(CommandKind::read, 5, 4));
  EXPECT_FALSE(live.mayOnlyProbe(commandOf(CommandKind::read, 5, 4)));
}

TEST(LiveBlocks, AReadThatMeetsAPartOfAWriteMayHaveBeenItsOnlyOne) {
  LiveBlocks live;
  live.wrote(commandOf(CommandKind::write, 5, 4));
  live.wrote(commandOf(CommandKind::write, 20, 4));
  EXPECT_FALSE(live.mayBeGivenUp(5));
  live.willLook(commandOf(CommandKind::read, 7, 4));
  EXPECT_EQ(liveOf(live, 12), (Lbas{5, 6, 7, 8}));
  EXPECT_FALSE(live.mayBeGivenUp(7));
  EXPECT_TRUE(live.mayBeGivenUp(5));
  EXPECT_TRUE(live.mayBeGivenUp(6));
  EXPECT_FALSE(live.mayBeGivenUp(20));
  live.wrote(commandOf(CommandKind::write, 6, 1));
  EXPECT_FALSE(live.mayBeGivenUp(6));
  EXPECT_TRUE(live.mayBeGivenUp(5));
}

TEST(LiveBlocks, AZoneResetEndsTheWaitForEveryWriteThatItTouchesAndForTheBlockBehind) {
  LiveBlocks live;
  live.wrote(commandOf(CommandKind::write, 6, 4));
  live.wrote(commandOf(CommandKind::write, 14, 4));
  live.wrote(commandOf(CommandKind::write, 24, 2));
  live.wrote(commandOf(CommandKind::write, 26, 2));
  live.zonesReset(commandOf(CommandKind::zoneReset, 8, 16));
  EXPECT_EQ(liveOf(live, 40), (Lbas{26, 27}));
}

TEST(LiveBlocks, InvalidatedBlocksAreWaitedForOtherwise) {
  LiveBlocks live;
  live.wrote(commandOf(CommandKind::write, 5, 4));
  live.looked(commandOf(CommandKind::read, 8, 1));
  live.invalidated(commandOf(CommandKind::invalidate, 6, 4));
  EXPECT_EQ(liveOf(live, 20), Lbas{5});
  EXPECT_TRUE(live.containsInvalidated(6));
  EXPECT_TRUE(live.containsInvalidated(7));
  EXPECT_FALSE(live.containsInvalidated(8));
  live.looked(commandOf(CommandKind::read, 6, 1));
  EXPECT_FALSE(live.containsInvalidated(6));
  live.wrote(commandOf(CommandKind::write, 7, 1));
  EXPECT_EQ(liveOf(live, 20), (Lbas{5, 7}));
}

}  // namespace
}  // namespace corvane::host
