#include "host/report/HistoryTable.h"

#include <gtest/gtest.h>

namespace corvane::host::report {
namespace {

constexpr const char* table =
    "Context History for lba 0x6f96:\n"
    "EventType   CmdID       BlockType  BlockNum  EmbedCmdID    EmbedLBA          HashValue       \n"
    "---------------------------------------------------------------------------------------------\n"
    "invalidate  0           unknown    INVALID   ---           ---               ---             \n"
    "hash        1001        hash       ZERO      ---           ---               1234abcd        \n"
    "write       846         normal     4e4d      34e           6f96              ---               *observed*\n";

TEST(HistoryTableTest, readsRowsInTheirOrder) {
  const std::vector<HistoryRow> rows = historyRows(table);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].event, "invalidate");
  EXPECT_EQ(rows[0].bucket, "INVALID");
  EXPECT_EQ(rows[1].commandId, "1001");
  EXPECT_EQ(rows[1].hash, "1234abcd");
  EXPECT_FALSE(rows[1].observed);
  EXPECT_EQ(rows[2].blockType, "normal");
  EXPECT_EQ(rows[2].embeddedId, "34e");
  EXPECT_EQ(rows[2].embeddedLba, "6f96");
  EXPECT_TRUE(rows[2].observed);
}

TEST(HistoryTableTest, leavesOutWhatIsNoRow) {
  EXPECT_TRUE(historyRows("").empty());
  EXPECT_TRUE(historyRows("write 846 normal 4e4d 34e 6f96\n").empty());
  EXPECT_TRUE(historyRows("wrote 846 normal 4e4d 34e 6f96 ---\n").empty());
  EXPECT_TRUE(historyRows("write 8x6 normal 4e4d 34e 6f96 ---\n").empty());
  EXPECT_TRUE(historyRows("write 846 normal 4e4d 34e 6f96 --- observed\n").empty());
}

TEST(HistoryTableTest, takesForeignLineEnds) {
  EXPECT_EQ(historyRows("write 846 normal 4e4d 34e 6f96 ---\r\n").size(), 1U);
}

}  // namespace
}  // namespace corvane::host::report
