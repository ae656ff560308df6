#include "host/report/TextTable.h"

#include <gtest/gtest.h>

namespace corvane::host::report {
namespace {

TEST(TextTableTest, linesUpItsColumns) {
  TextTable table({"kind", ">count", "note"});
  EXPECT_TRUE(table.empty());
  table.add({"write", "1,000", "x"});
  table.add({"µs", "5"});
  EXPECT_FALSE(table.empty());
  EXPECT_EQ(table.text(2),
            "  kind   count  note\n"
            "  write  1,000  x\n"
            "  µs         5\n");
}

TEST(TextTableTest, dropsCellsWithoutATitle) {
  TextTable table({"a"});
  table.add({"1", "2"});
  EXPECT_EQ(table.text(0), "a\n1\n");
}

TEST(CharactersInTest, countsLettersAndNotBytes) {
  EXPECT_EQ(charactersIn("▁µa"), 3U);
  EXPECT_EQ(charactersIn(""), 0U);
}

}  // namespace
}  // namespace corvane::host::report
