#include "host/base/NearestName.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

TEST(NearestNameTest, findsTheNameWithTheFewestChanges) {
  EXPECT_EQ(nearestName("--tme", {"--range", "--time", "--rate"}), "--time");
  EXPECT_EQ(nearestName("sequentail", {"mixed", "sequential", "cachestress"}), "sequential");
}

TEST(NearestNameTest, countsChangedAddedAndMissingLetters) {
  EXPECT_EQ(nearestName("vorify", {"verify"}), "verify");
  EXPECT_EQ(nearestName("verifyy", {"verify"}), "verify");
  EXPECT_EQ(nearestName("vrify", {"verify"}), "verify");
}

TEST(NearestNameTest, doesNotMindTheCaseOfLetters) { EXPECT_EQ(nearestName("VERIFY", {"read", "verify"}), "verify"); }

TEST(NearestNameTest, isEmptyWhenNothingIsNear) {
  EXPECT_EQ(nearestName("bananas", {"read", "write", "verify"}), "");
  EXPECT_EQ(nearestName("read", {}), "");
}

TEST(NearestNameTest, doesNotOfferANameOfWhichNothingIsLeft) { EXPECT_EQ(nearestName("xy", {"ab"}), ""); }

TEST(NearestNameTest, takesTheFirstOfEquallyNearNames) { EXPECT_EQ(nearestName("abcx", {"abcd", "abce"}), "abcd"); }

TEST(NearestNameTest, allowsAThirdOfALongName) {
  EXPECT_EQ(nearestName("Wrote Splyce Detektion", {"Write Splice Detection"}), "Write Splice Detection");
  EXPECT_EQ(nearestName("123456789", {"1234xxxx9"}), "");
}

TEST(NearestNameTest, asksOnlyWhenThereIsSomethingToAsk) {
  EXPECT_EQ(didYouMean("raed", {"read"}), "; did you mean 'read'?");
  EXPECT_EQ(didYouMean("bananas", {"read"}), "");
}

}  // namespace
}  // namespace corvane::host
