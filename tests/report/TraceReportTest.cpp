#include "host/report/TraceReport.h"

#include <gtest/gtest.h>

#include "host/base/Random.h"
#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

using host::testing::sampleText;

constexpr const char* sample = "lost-write/datacompare_trace_sim0.txt";

/// One line of each kind of entry, as the agent prints them.
constexpr const char* everyKind =
    "Dump of the full command sequence:\n\n"
    "   Idx  CmdID       TAG   COMMAND             LBA                 TL      BUCKET    UEC     KCQ\n"
    "--------------------------------------------------------------------------------------------------\n"
    "     0  10          0x01  Write_Issued        0x00000000000001C0  0x0040  0x00571B                 *\n"
    "     1  11          0x02  WriteAtomic_Issued  0x00000000000001C0  0x0040  0x00571C                  \n"
    "     2  12          0x03  WriteSame_Issued    0x00000000000001C0  0x0040  0x00571D                  \n"
    "     3  13          0x04  Trim_Issued         0x00000000000001C0  0x0040                            \n"
    "     4  14          0x05  Pre-Read_Issued     0x00000000000001C0  0x0040                            \n"
    "     5  15          0x3FF  Read_Issued         0x00000000000001C0  0x0040 !0x080001                  \n"
    "     6  16          0x07  Verify_Issued       0x00000000000001C0  0x0040  0xFF0000                  \n"
    "     7  10          0x01  Write_Finished      0x00000000000001C0  0x0040            0x0102  0B4E00 *\n"
    "     8  15          0x06  Read_Finished       0x00000000000001C0  0x0040            0x0000  000000  \n"
    "     9  16          0x07  Verify_Finished     0x00000000000001C0  0x0040            0x0000  0E1D00  \n"
    "    10  11          0x02  Write_ABORTED       0x00000000000001C0  0x0040                            \n"
    "    11  15          0x06  Read_ABORTED        0x00000000000001C0  0x0040                            \n"
    "    12  16          0x07  Verify_ABORTED      0x00000000000001C0  0x0040                            \n"
    "    13  15                Miscompare          0x00000000000001F4   drive  0x00571B\n"
    "                                                               reference !0x00571C\n"
    "    14                    Write Splice        0x00000000000001F4                    0x0001  031100\n"
    "    15  17          0x08  Recv Out Of Order   CmdID 9         \n"
    "    16                    Power Toggle Off 1234567890 ms\n"
    "    17                    Power Toggle On        1234 ms\n"
    "    18              0x09  Sync Cache Issued\n"
    "    19              0x09  Sync Cache Finished                                       0x0000  000000\n"
    "    20                    Invalidate Range    0x0000000000000100 - 0x0000000000000200\n"
    "    21                    Zone Reset          0x0000000000000100 - 0xFFFFFFFFFFFFFFFF\n";

TEST(TraceReportTest, readsAReportOfARunWhole) {
  const TraceReport trace = readTrace(sampleText(sample));
  EXPECT_EQ(trace.unreadLines, 0U);
  EXPECT_EQ(trace.lba, 148U);
  ASSERT_EQ(trace.aboutBlock.size(), 6U);
  EXPECT_EQ(trace.all.size(), 542U);
  EXPECT_EQ(trace.all.front().commandId, 1U);
  EXPECT_EQ(trace.all.back().index, 541U);
  ASSERT_EQ(trace.history.size(), 2U);
  EXPECT_EQ(trace.history[0].commandId, "121");
}

TEST(TraceReportTest, readsEveryKindOfEntry) {
  const TraceReport trace = readTrace(everyKind);
  EXPECT_EQ(trace.unreadLines, 0U) << (trace.unread.empty() ? "" : trace.unread[0].text);
  ASSERT_EQ(trace.all.size(), 22U);
  for (size_t i = 0; i < trace.all.size(); ++i) {
    EXPECT_EQ(trace.all[i].index, i);
  }
  const std::vector<std::string> kinds{"write", "atomic", "writesame", "trim", "read", "read", "verify"};
  for (size_t i = 0; i < kinds.size(); ++i) {
    EXPECT_EQ(trace.all[i].event, TraceEvent::issued);
    EXPECT_EQ(trace.all[i].kind, kinds[i]);
    EXPECT_EQ(trace.all[i].lba, 0x1C0U);
    EXPECT_EQ(trace.all[i].blocks, 0x40U);
    EXPECT_EQ(trace.all[i].preRead, i == 4);
  }
  EXPECT_EQ(trace.all[0].bucket, 0x571BU);
  EXPECT_EQ(trace.all[5].tag, 0x3FFU);
  EXPECT_TRUE(trace.all[5].invalidated);
  EXPECT_FALSE(trace.all[6].invalidated);
  EXPECT_EQ(trace.all[7].event, TraceEvent::finished);
  EXPECT_EQ(trace.all[7].unitError, 0x0102U);
  EXPECT_EQ(trace.all[7].sense, 0x0B4E00U);
  EXPECT_EQ(trace.all[10].event, TraceEvent::aborted);
}

TEST(TraceReportTest, readsEntriesThatAreNoCommands) {
  const TraceReport trace = readTrace(everyKind);
  ASSERT_EQ(trace.all.size(), 22U);
  EXPECT_EQ(trace.all[13].event, TraceEvent::miscompare);
  EXPECT_EQ(trace.all[13].found, 0x571BU);
  EXPECT_EQ(trace.all[13].bucket, 0x571CU);
  EXPECT_TRUE(trace.all[13].invalidated);
  EXPECT_EQ(trace.all[14].event, TraceEvent::writeSplice);
  EXPECT_EQ(trace.all[14].sense, 0x031100U);
  EXPECT_EQ(trace.all[15].event, TraceEvent::outOfOrder);
  EXPECT_EQ(trace.all[15].overtaken, 9U);
  EXPECT_EQ(trace.all[16].event, TraceEvent::powerOff);
  EXPECT_EQ(trace.all[17].event, TraceEvent::powerOn);
  EXPECT_EQ(trace.all[18].kind, "sync");
  EXPECT_EQ(trace.all[19].event, TraceEvent::finished);
  EXPECT_EQ(trace.all[20].event, TraceEvent::rangeInvalidated);
  EXPECT_EQ(trace.all[20].endLba, 0x200U);
  EXPECT_EQ(trace.all[21].endLba, 0xFFFFFFFFFFFFFFFFU);
}

TEST(TraceReportTest, saysWhichLinesItCouldNotRead) {
  std::string text = everyKind;
  text.insert(0, "before any section\n");
  text += "    22  18          0x01  Write_Issued        0x00000000000001C0  0x0040\n";
  text += "    23  18          0x01  0x63 Unknown        0x00000000000001C0  0x0040  0x000000  0x0000  000000\n";
  const TraceReport trace = readTrace(text);
  EXPECT_EQ(trace.all.size(), 22U);
  ASSERT_EQ(trace.unreadLines, 3U);
  EXPECT_EQ(trace.unread[0].number, 1U);
  EXPECT_EQ(trace.unread[1].number, 29U);
  EXPECT_EQ(trace.unread[2].number, 30U);
}

TEST(TraceReportTest, listsOnlyTheFirstOfManyBadLines) {
  std::string text;
  for (int i = 0; i < 1000; ++i) {
    text += std::string(500, 'x') + '\n';
  }
  const TraceReport trace = readTrace(text);
  EXPECT_EQ(trace.unreadLines, 1000U);
  EXPECT_EQ(trace.unread.size(), 20U);
  EXPECT_LE(trace.unread[0].text.size(), 60U);
}

TEST(TraceReportTest, everyBeginningOfAReportIsTaken) {
  const std::string text = everyKind;
  for (size_t length = 0; length <= text.size(); ++length) {
    EXPECT_LE(readTrace(text.substr(0, length)).unreadLines, 1U) << length;
  }
}

TEST(TraceReportTest, anyBytesAreTaken) {
  const std::string good = everyKind;
  Random random(7);
  size_t unread = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string text = good;
    for (uint64_t changes = random.between(1, 40); changes > 0; --changes) {
      text[random.below(text.size())] = static_cast<char>(random.next());
    }
    const TraceReport trace = readTrace(text);
    EXPECT_LE(trace.all.size(), 22U + 40U);
    unread += trace.unreadLines;
  }
  EXPECT_GT(unread, 3000U);
  std::string noise;
  for (int i = 0; i < 200'000; ++i) {
    noise += static_cast<char>(random.next());
  }
  EXPECT_GT(readTrace(noise).unreadLines, 0U);
}

}  // namespace
}  // namespace corvane::host::report
