#include "host/explain/LegalOutcomes.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

constexpr const char* heading =
    "EventType   CmdID       BlockType  BlockNum  EmbedCmdID    EmbedLBA          HashValue       \n"
    "---------------------------------------------------------------------------------------------\n";

std::string table(const std::string& lba, const std::string& lines) {
  return "Context History for lba 0x" + lba + ":\n" + heading + lines;
}

TEST(LegalOutcomesTest, TakesTheNewestCertainContentOnly) {
  const auto outcomes = legalOutcomesIn(table("24c",
                                              "write       129         normal     a8        81            24c   ---\n"
                                              "write       87          normal     be        57            24c   ---\n"),
                                        0x24c);
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(outcomes[0].text, "the data of the write with command id 129");
  EXPECT_EQ(outcomes[0].commandId, 129U);
  EXPECT_EQ(outcomes[0].bucket, 0xA8U);
}

TEST(LegalOutcomesTest, LooksThroughAtomicWritesWithAnOpenEnd) {
  const auto outcomes = legalOutcomesIn(table("a",
                                              "atomic      9           atomic     1         9   a   ---\n"
                                              "atomic      8           atomic     2         8   a   ---\n"
                                              "write       3           normal     ZERO      --- --- ---\n"
                                              "write       2           normal     5         2   a   ---\n"),
                                        10);
  ASSERT_EQ(outcomes.size(), 3U);
  EXPECT_EQ(outcomes[0].text, "the data of the atomic write with command id 9");
  EXPECT_EQ(outcomes[2].text, "zeros, by the trim with command id 3");
}

TEST(LegalOutcomesTest, KnowsHashesUnknownContentAndInvalidations) {
  EXPECT_EQ(legalOutcomesIn(table("a", "hash  4  hash  INVALID  ---  ---  abcd\n"), 10)[0].text,
            "what the read with command id 4 had returned");
  EXPECT_EQ(legalOutcomesIn(table("a", "none  0  unknown  INVALID  ---  ---  ---\n"), 10)[0].text,
            "anything: the content is not known");
  EXPECT_EQ(legalOutcomesIn(table("a",
                                  "?  0  unknown  INVALID  ---  ---  ---\n"
                                  "write  7  normal  5  7  a  ---\n"),
                            10)[0]
                .text,
            "anything but the data of the write with command id 7");
}

TEST(LegalOutcomesTest, TakesTheTableOfTheBlock) {
  const std::string two =
      table("9", "write  1  normal  5  1  9  ---\n") + "\n" + table("a", "write  2  normal  5  2  a  ---\n");
  EXPECT_EQ(legalOutcomesIn(two, 10)[0].commandId, 2U);
  EXPECT_EQ(legalOutcomesIn(two, 9)[0].commandId, 1U);
  EXPECT_EQ(legalOutcomesIn(two, 11)[0].commandId, 1U) << "without a table of its own, the first";
}

TEST(LegalOutcomesTest, FindsNothingInOtherText) {
  EXPECT_TRUE(legalOutcomesIn("", 1).empty());
  EXPECT_TRUE(legalOutcomesIn("nothing of the kind\nwrite 1 normal 5\n", 1).empty());
}

}  // namespace
}  // namespace corvane::host
