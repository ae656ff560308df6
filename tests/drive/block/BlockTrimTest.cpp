#include "host/drive/block/BlockTrim.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using Operation = EngineRequest::Operation;

BlockTraits able(uint64_t zeros, uint64_t discard) {
  BlockTraits traits;
  traits.mostWriteZerosBytes = zeros;
  traits.mostDiscardBytes = discard;
  return traits;
}

TEST(BlockTrim, PunchesByItselfWhereTheDeviceMakesZeros) {
  for (const TrimChoice choice : {TrimChoice::wherePossible, TrimChoice::punch}) {
    const BlockTrim trim = settleTrim(choice, able(4096, 0));
    EXPECT_TRUE(trim.offered);
    EXPECT_EQ(trim.operation, Operation::punchHole);
    EXPECT_THAT(trim.refusal, IsEmpty());
  }
}

TEST(BlockTrim, IsNotOfferedWhereTheDeviceMakesNoZeros) {
  const BlockTrim trim = settleTrim(TrimChoice::wherePossible, able(0, 4096));
  EXPECT_FALSE(trim.offered);
  EXPECT_THAT(trim.refusal, IsEmpty());
  EXPECT_THAT(trim.text,
              AllOf(HasSubstr("no trim (the device has no command that makes zeros"), HasSubstr("trim=zero")));
}

TEST(BlockTrim, ThatTheDeviceLacksIsRefusedWhenItIsAskedFor) {
  EXPECT_THAT(settleTrim(TrimChoice::punch, able(0, 4096)).refusal,
              AllOf(HasSubstr("no command that makes zeros"), HasSubstr("choose trim=zero")));
  EXPECT_THAT(settleTrim(TrimChoice::discard, able(4096, 0)).refusal,
              AllOf(HasSubstr("cannot discard"), HasSubstr("choose trim=zero")));
}

TEST(BlockTrim, ByZerosIsPossibleEverywhere) {
  const BlockTrim trim = settleTrim(TrimChoice::zero, able(0, 0));
  EXPECT_TRUE(trim.offered);
  EXPECT_EQ(trim.operation, Operation::writeZeros);
}

TEST(BlockTrim, ByDiscardIsTheUsersChoiceAlone) {
  const BlockTrim trim = settleTrim(TrimChoice::discard, able(4096, 4096));
  EXPECT_TRUE(trim.offered);
  EXPECT_EQ(trim.operation, Operation::discard);
  EXPECT_EQ(settleTrim(TrimChoice::wherePossible, able(4096, 4096)).operation, Operation::punchHole);
}

TEST(BlockTrim, MayBeSwitchedOff) {
  const BlockTrim trim = settleTrim(TrimChoice::off, able(4096, 4096));
  EXPECT_FALSE(trim.offered);
  EXPECT_EQ(trim.text, "no trim (switched off)");
}

}  // namespace
}  // namespace corvane::host
