#include "tests/oracle/DriveOracle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace oracletest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr Value old = baseValue;
constexpr Value A = 1;
constexpr Value B = 2;

Command write(uint8_t first, uint8_t blocks, Ending ending = Ending::good) {
  return {Kind::write, ending, first, blocks, 1};
}
Command atomic(uint8_t first, uint8_t blocks, Ending ending = Ending::good) {
  return {Kind::atomicWrite, ending, first, blocks, blocks};
}
Command inSegments(Command command, uint8_t bound) {
  command.bound = bound;
  return command;
}
Command look(uint8_t first, uint8_t blocks) { return {Kind::look, Ending::good, first, blocks, 1}; }

/// Events by letters: "A" issues command 0, "a" ends it.
History history(uint8_t blocks, std::vector<Command> commands, const std::string& events) {
  History made;
  made.blocks = blocks;
  made.commands = std::move(commands);
  for (const char letter : events) {
    const bool end = letter >= 'a';
    made.events.push_back({static_cast<uint8_t>(letter - (end ? 'a' : 'A')), end});
  }
  return made;
}

Image image(std::initializer_list<Value> values) {
  Image made = 0;
  uint32_t block = 0;
  for (const Value value : values) {
    made = withValue(made, block++, value);
  }
  return made;
}

/// What the last command may show.
std::vector<Image> possible(const History& made, Order order = Order::any) {
  return possibleImages(made, static_cast<uint8_t>(made.commands.size() - 1), order);
}

TEST(DriveOracle, AGoodWriteHasHappened) {
  EXPECT_THAT(possible(history(2, {write(0, 2), look(0, 2)}, "AaBb")), ElementsAre(image({A, A})));
  EXPECT_THAT(possible(history(2, {atomic(0, 2), look(0, 2)}, "AaBb")), ElementsAre(image({A, A})));
}

TEST(DriveOracle, AFailedPlainWriteMayBeTornBetweenBlocks) {
  EXPECT_THAT(possible(history(2, {write(0, 2, Ending::failed), look(0, 2)}, "AaBb")),
              UnorderedElementsAre(image({old, old}), image({old, A}), image({A, old}), image({A, A})));
}

TEST(DriveOracle, AFailedAtomicWriteHappenedWhollyOrNot) {
  EXPECT_THAT(possible(history(2, {atomic(0, 2, Ending::failed), look(0, 2)}, "AaBb")),
              UnorderedElementsAre(image({old, old}), image({A, A})));
}

TEST(DriveOracle, EachSegmentOfAFailedAtomicWriteStandsForItself) {
  EXPECT_THAT(possible(history(3, {inSegments(atomic(0, 3, Ending::failed), 2), look(0, 3)}, "AaBb")),
              UnorderedElementsAre(image({old, old, old}), image({A, A, old}), image({old, old, A}), image({A, A, A})));
}

TEST(DriveOracle, AWriteThatEndedBeforeAnotherWasIssuedComesBeforeIt) {
  EXPECT_THAT(possible(history(2, {write(0, 2), write(0, 2), look(0, 2)}, "AaBbCc")), ElementsAre(image({B, B})));
}

TEST(DriveOracle, WritesThatWereOutstandingTogetherComeInAnyOrder) {
  EXPECT_THAT(possible(history(2, {write(0, 2), write(0, 2), look(0, 2)}, "ABabCc")),
              UnorderedElementsAre(image({A, A}), image({A, B}), image({B, A}), image({B, B})));
  EXPECT_THAT(possible(history(2, {atomic(0, 2), atomic(0, 2), look(0, 2)}, "ABabCc")),
              UnorderedElementsAre(image({A, A}), image({B, B})));
}

TEST(DriveOracle, BehindAHostThatKeepsTheOrderTheyComeAsIssued) {
  EXPECT_THAT(possible(history(2, {write(0, 2), write(0, 2), look(0, 2)}, "ABabCc"), Order::asIssued),
              ElementsAre(image({B, B})));
  EXPECT_THAT(possible(history(2, {atomic(0, 2, Ending::failed), write(0, 1), look(0, 2)}, "ABabCc"), Order::asIssued),
              UnorderedElementsAre(image({B, old}), image({B, A})));
}

TEST(DriveOracle, AReadBesideAPlainWriteMayShowAnyMixture) {
  EXPECT_THAT(possible(history(2, {write(0, 2), look(0, 2)}, "ABab")),
              UnorderedElementsAre(image({old, old}), image({old, A}), image({A, old}), image({A, A})));
}

TEST(DriveOracle, AReadBesideAnAtomicWriteSeesItWhollyOrNot) {
  EXPECT_THAT(possible(history(2, {atomic(0, 2), look(0, 2)}, "ABba")),
              UnorderedElementsAre(image({old, old}), image({A, A})));
}

TEST(DriveOracle, AReadLooksAtItsBlocksAtDifferentMoments) {
  // B was issued only when A had ended, but the read had passed block 0 before.
  EXPECT_THAT(possible(history(2, {write(0, 1), write(1, 1), look(0, 2)}, "CAaBbc")),
              UnorderedElementsAre(image({old, old}), image({old, B}), image({A, old}), image({A, B})));
}

TEST(DriveOracle, AReadThatKeepsTheOrderSeesWhatWasIssuedBeforeIt) {
  EXPECT_THAT(possible(history(2, {write(0, 2), look(0, 2)}, "ABab"), Order::asIssued), ElementsAre(image({A, A})));
  EXPECT_THAT(possible(history(2, {write(0, 2), look(0, 2)}, "BAab"), Order::asIssued), ElementsAre(image({old, old})));
}

TEST(DriveOracle, WhatAReadShowedIsProved) {
  History made = history(2, {atomic(0, 2, Ending::failed), look(0, 1), look(0, 2)}, "AaBbCc");
  made.shown[1] = image({A});
  EXPECT_THAT(possible(made), ElementsAre(image({A, A})));
  made.shown[1] = image({old});
  EXPECT_THAT(possible(made), ElementsAre(image({old, old})));
}

TEST(DriveOracle, WhatAReadDidNotShowMayStillComeWhileTheWriteIsOutstanding) {
  History made = history(2, {atomic(0, 2, Ending::failed), look(0, 1), look(0, 2)}, "ABbCca");
  made.shown[1] = image({old});
  EXPECT_THAT(possible(made), UnorderedElementsAre(image({old, old}), image({A, A})));
}

TEST(DriveOracle, AReadThatEndsLaterProvesTheSame) {
  History made = history(1, {write(0, 1, Ending::failed), look(0, 1), look(0, 1)}, "AaBCcb");
  made.shown[1] = image({A});
  EXPECT_THAT(possible(made), ElementsAre(image({A})));
}

TEST(DriveOracle, NoDriveShowsWhatNobodyWrote) {
  History made = history(1, {write(0, 1), look(0, 1), look(0, 1)}, "AaBbCc");
  made.shown[1] = image({old});
  EXPECT_THAT(possible(made), IsEmpty());
}

TEST(DriveOracle, OneTrimLooksLikeAnother) {
  History made = history(1, {write(0, 1, Ending::failed), look(0, 1)}, "AaBb");
  made.commands[0].kind = Kind::trim;
  EXPECT_THAT(possible(made), UnorderedElementsAre(image({old}), image({zeroes})));
  made.base = Base::trimmed;
  EXPECT_THAT(possible(made), ElementsAre(image({zeroes})));
}

}  // namespace
}  // namespace oracletest
