#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "CommandTrace.h"
#include "support_model/FakeClock.h"
#include "support_model/ModelFramework.h"
#include "support_model/TempDir.h"

namespace vdl {
namespace {

using modeltest::LogLine;

constexpr uint64_t noMask = ~uint64_t{0};
constexpr uint64_t eightBlocks = ~uint64_t{7};

const std::string columns =
    "   Idx  CmdID       TAG   COMMAND             LBA                 TL      BUCKET    UEC     KCQ\n" +
    std::string(98, '-') + "\n";
const std::string fullHeading = "\nDump of the full command sequence:\n\n" + columns;

std::string dump(const CommandTrace& trace, bool filter, bool header, uint64_t lba, uint64_t mask) {
  char* text = nullptr;
  size_t size = 0;
  FILE* file = open_memstream(&text, &size);
  trace.dumpCmdData(file, filter, header, lba, mask);
  std::fclose(file);
  std::string result(text, size);
  std::free(text);
  return result;
}

std::string lineOf(const std::string& text, const std::string& index) {
  const size_t begin = text.find("\n" + index + " ");
  return begin == std::string::npos ? "" : text.substr(begin + 1, text.find('\n', begin + 1) - begin - 1);
}

/// One entry of every type.
void traceEverything(CommandTrace& trace) {
  modeltest::FakeClock clock(123, 456'000);
  trace.traceWriteIssued(0x1000, 8, 1, 0, 0x1A2B);
  trace.traceWriteFinished(0x1000, 8, 1, 0, 0, {});
  trace.traceWriteAtomicIssued(0x1008, 10, 2, 1, 0x12345);
  trace.traceWriteFinished(0x1008, 10, 2, 1, 0xF7C3, {3, 0x0C, 2});
  trace.traceWriteSameIssued(0x2000, 4, 3, 2, 7);
  trace.traceWriteAborted(0x2000, 4, 3, 2);
  trace.traceTrimIssued(0x3000, 16, 4, 3);
  trace.tracePreReadIssued(0x1008, 10, 5, 4);
  trace.traceReadFinished(0x1008, 10, 5, 4, 0, {});
  trace.traceReadIssued(0x1000, 8, 6, 0x3FF, 0x1A2B, false);
  trace.traceReadFinished(0x1000, 8, 6, 0x3FF, 0, {});
  trace.traceReadIssued(0xFFF, 2, 7, 6, 0x80001, true);
  trace.traceReadAborted(0xFFF, 2, 7, 6);
  trace.traceVerifyIssued(0x1000, 8, 8, 7, 0x1A2B, true);
  trace.traceVerifyFinished(0x1000, 8, 8, 7, 0x1234, {0xE, 0x1D, 0});
  trace.traceVerifyIssued(0x5000, 8, 9, 8, 0xFF0000, false);
  trace.traceVerifyAborted(0x5000, 8, 9, 8);
  trace.traceMiscompare(0x1003, 0x1A2B, 0x80001, 6, false);
  trace.traceWriteSplice(0x1000, 8, 10, 9, 0xF510, {4, 0x44, 0});
  trace.traceRecvOutOfOrder(10, 9, 11);
  trace.tracePowerOff();
  clock.set(4'294'967, 295'000);
  trace.tracePowerOn();
  trace.traceSyncIssued(5);
  trace.traceSyncFinished(5, 0xABCD, {2, 4, 1});
  trace.traceInvalidate(0x1000, 0x1003);
  trace.traceZoneReset(0x1000, 0x1100);
}

const std::vector<std::string>& everyLine() {
  static const std::vector<std::string> lines{
      "     0  1           0x00  Write_Issued        0x0000000000001000  0x0008  0x001A2B                  ",
      "     1  1           0x00  Write_Finished      0x0000000000001000  0x0008            0x0000  000000  ",
      "     2  2           0x01  WriteAtomic_Issued  0x0000000000001008  0x000A  0x012345                  ",
      "     3  2           0x01  Write_Finished      0x0000000000001008  0x000A            0xF7C3  030C02  ",
      "     4  3           0x02  WriteSame_Issued    0x0000000000002000  0x0004  0x000007                  ",
      "     5  3           0x02  Write_ABORTED       0x0000000000002000  0x0004                            ",
      "     6  4           0x03  Trim_Issued         0x0000000000003000  0x0010                            ",
      "     7  5           0x04  Pre-Read_Issued     0x0000000000001008  0x000A                            ",
      "     8  5           0x04  Read_Finished       0x0000000000001008  0x000A            0x0000  000000  ",
      "     9  6           0x3FF  Read_Issued         0x0000000000001000  0x0008  0x001A2B                  ",
      "    10  6           0x3FF  Read_Finished       0x0000000000001000  0x0008            0x0000  000000  ",
      "    11  7           0x06  Read_Issued         0x0000000000000FFF  0x0002 !0x080001                 *",
      "    12  7           0x06  Read_ABORTED        0x0000000000000FFF  0x0002                           *",
      "    13  8           0x07  Verify_Issued       0x0000000000001000  0x0008 !0x001A2B                  ",
      "    14  8           0x07  Verify_Finished     0x0000000000001000  0x0008            0x1234  0E1D00  ",
      "    15  9           0x08  Verify_Issued       0x0000000000005000  0x0008  0xFF0000                  ",
      "    16  9           0x08  Verify_ABORTED      0x0000000000005000  0x0008                            ",
      "    17  6                 Miscompare          0x0000000000001003   drive  0x080001",
      "                                                               reference  0x001A2B",
      "    18                    Write Splice        0x0000000000001000                    0xF510  044400",
      "    19  11          0x09  Recv Out Of Order   CmdID 10        ",
      "    20                    Power Toggle Off     123456 ms",
      "    21                    Power Toggle On  4294967295 ms",
      "    22              0x05  Sync Cache Issued",
      "    23              0x05  Sync Cache Finished                                       0xABCD  020401",
      "    24                    Invalidate Range    0x0000000000001000 - 0x0000000000001003",
      "    25                    Zone Reset          0x0000000000001000 - 0x0000000000001100"};
  return lines;
}

TEST(TraceReport, TheFullDumpHasALineForEveryType) {
  CommandTrace trace(100);
  traceEverything(trace);
  std::string expected = fullHeading;
  for (const std::string& line : everyLine()) {
    expected += line + "\n";
  }
  EXPECT_EQ(dump(trace, false, true, 0x1003, eightBlocks), expected);
}

TEST(TraceReport, AFilteredDumpMarksWhatSharesTheMediaBlock) {
  CommandTrace trace(100);
  traceEverything(trace);
  const std::string text = dump(trace, true, true, 0x1003, eightBlocks);
  EXPECT_EQ(text.rfind("Dump of all commands that include the miscompare LBA 0x0000000000001003:\n"
                       " * indicates media block overlap\n\n" +
                           columns,
                       0),
            0U);
  for (const char* shown : {"     0", "     9", "    11", "    12", "    13", "    20", "    24"}) {
    EXPECT_NE(lineOf(text, shown), "") << shown;
  }
  for (const char* hidden : {"     2", "     4", "     6", "    15"}) {
    EXPECT_EQ(lineOf(text, hidden), "") << hidden;
  }
  EXPECT_EQ(lineOf(text, "    11").back(), '*');
  EXPECT_EQ(lineOf(text, "     9").back(), ' ');
}

TEST(TraceReport, WithoutAMediaMaskOnlyHitsAreShownAndNothingIsMarked) {
  CommandTrace trace(100);
  traceEverything(trace);
  const std::string text = dump(trace, true, true, 0x1003, noMask);
  std::string expected = "Dump of all commands that include the miscompare LBA 0x0000000000001003:\n\n" + columns;
  // The miscompare and the zone reset have no length, so they do not touch the block.
  for (const size_t line : {0U, 1U, 9U, 10U, 13U, 14U, 19U, 21U, 22U, 23U, 24U, 25U}) {
    expected += everyLine()[line] + "\n";
  }
  EXPECT_EQ(text, expected);
}

TEST(TraceReport, AFilteredDumpOfAnUntouchedBlockIsOnlyHeadings) {
  CommandTrace trace(100);
  traceEverything(trace);
  EXPECT_EQ(dump(trace, true, true, 0x999999, noMask),
            "Dump of all commands that include the miscompare LBA 0x0000000000999999:\n\n" + columns);
}

TEST(TraceReport, AnEmptyRingIsOnlyHeadings) {
  EXPECT_EQ(dump(CommandTrace(10), false, false, 0, noMask), fullHeading);
  EXPECT_EQ(dump(CommandTrace(0), false, false, 0, noMask), fullHeading);
}

TEST(TraceReport, AFilterWithoutTheMiscompareHeaderHasTheFullHeading) {
  EXPECT_EQ(dump(CommandTrace(10), true, false, 5, noMask), fullHeading);
}

TEST(TraceReport, DriveWideEntriesShowInAFilteredDumpOnlyBehindAnotherOne) {
  CommandTrace trace(10);
  trace.traceSyncIssued(1);
  trace.traceWriteIssued(5, 1, 1, 2, 3);
  trace.traceSyncIssued(2);
  const std::string text = dump(trace, true, true, 5, noMask);
  EXPECT_EQ(lineOf(text, "     0"), "");
  EXPECT_NE(lineOf(text, "     1"), "");
  EXPECT_NE(lineOf(text, "     2"), "");
}

TEST(TraceReport, AnInvalidatedRangeIncludesItsEnd) {
  CommandTrace trace(10);
  trace.traceInvalidate(10, 20);
  EXPECT_NE(lineOf(dump(trace, true, true, 10, noMask), "     0"), "");
  EXPECT_NE(lineOf(dump(trace, true, true, 20, noMask), "     0"), "");
  EXPECT_EQ(lineOf(dump(trace, true, true, 9, noMask), "     0"), "");
  EXPECT_EQ(lineOf(dump(trace, true, true, 21, noMask), "     0"), "");
}

TEST(TraceReport, ACommandEndsBeforeItsEnd) {
  CommandTrace trace(10);
  trace.traceWriteIssued(10, 5, 1, 2, 3);
  EXPECT_NE(lineOf(dump(trace, true, true, 10, noMask), "     0"), "");
  EXPECT_NE(lineOf(dump(trace, true, true, 14, noMask), "     0"), "");
  EXPECT_EQ(lineOf(dump(trace, true, true, 9, noMask), "     0"), "");
  EXPECT_EQ(lineOf(dump(trace, true, true, 15, noMask), "     0"), "");
}

TEST(TraceReport, BeforeTheRingWrapsTheWalkBeginsAtEntryZero) {
  CommandTrace trace(4);
  for (uint32_t id = 1; id <= 4; ++id) {
    trace.traceWriteIssued(id, 1, id, id, id);
  }
  const std::string text = dump(trace, false, false, 0, noMask);
  EXPECT_NE(lineOf(text, "     0").find("  1     "), std::string::npos);
  EXPECT_NE(lineOf(text, "     3").find("  4     "), std::string::npos);
}

TEST(TraceReport, AfterItWrappedTheWalkBeginsAtTheOldestEntry) {
  CommandTrace trace(4);
  for (uint32_t id = 1; id <= 5; ++id) {
    trace.traceWriteIssued(id, 1, id, id, id);
  }
  const std::string text = dump(trace, false, false, 0, noMask);
  EXPECT_EQ(lineOf(text, "     0"),
            "     0  2           0x02  Write_Issued        0x0000000000000002  0x0001  0x000002                  ");
  EXPECT_EQ(lineOf(text, "     3"),
            "     3  5           0x05  Write_Issued        0x0000000000000005  0x0001  0x000005                  ");
  EXPECT_EQ(lineOf(text, "     4"), "");

  trace.traceWriteIssued(6, 1, 6, 6, 6);
  EXPECT_EQ(
      dump(trace, true, true, 5, noMask),
      "Dump of all commands that include the miscompare LBA 0x0000000000000005:\n\n" + columns +
          "     2  5           0x05  Write_Issued        0x0000000000000005  0x0001  0x000005                  \n");
}

// ---- the report file ----

class CreateReport : public testing::Test {
 protected:
  CreateReport() : trace(10) { trace.traceWriteIssued(5, 1, 1, 2, 3); }

  modeltest::TempDir folder;
  modeltest::Drive drive;
  CommandTrace trace;
};

TEST_F(CreateReport, AfterAMiscompareHasBothSectionsWithTheHistoryBetween) {
  trace.setHistory("the history\n");
  EXPECT_EQ(trace.createReport(&drive.thread, "r.txt", true, 5, noMask), 0);
  EXPECT_EQ(modeltest::readFile("r.txt"),
            dump(trace, true, true, 5, noMask) + "\nthe history\n" + dump(trace, false, true, 5, noMask));
  EXPECT_EQ(drive.lines(), (std::vector<LogLine>{{2, "Bucket compare command sequence saved to 'r.txt'"}}));
}

TEST_F(CreateReport, WithoutAMiscompareHasTheFullSectionOnly) {
  EXPECT_EQ(trace.createReport(&drive.thread, "r.txt", false, 0, noMask), 0);
  EXPECT_EQ(modeltest::readFile("r.txt"), dump(trace, false, false, 0, noMask));
  EXPECT_EQ(drive.lines(), (std::vector<LogLine>{{0, "Bucket compare command sequence saved to 'r.txt'"}}));
}

TEST_F(CreateReport, NeverOverwritesAReport) {
  modeltest::writeFile("r.txt", "an older one");
  EXPECT_EQ(trace.createReport(&drive.thread, "r.txt", false, 0, noMask), 0);
  EXPECT_EQ(modeltest::readFile("r.txt"), "an older one");
  EXPECT_EQ(modeltest::readFile("r.txt.000"), dump(trace, false, false, 0, noMask));
  EXPECT_EQ(drive.lines().at(0).text, "Bucket compare command sequence saved to 'r.txt.000'");
}

TEST_F(CreateReport, FallsBackToTheCurrentFolderAndSaysSo) {
  modeltest::writeFile("blocked", "no folder");
  EXPECT_EQ(trace.createReport(&drive.thread, "blocked/r.txt", true, 5, noMask), 6);
  const std::string used = folder / "r.txt";
  EXPECT_EQ(modeltest::readFile(used), dump(trace, true, true, 5, noMask) + dump(trace, false, true, 5, noMask));
  EXPECT_EQ(drive.lines(), (std::vector<LogLine>{{2, "Could not use specifed file path, using temp file instead"},
                                                 {2, "Bucket compare command sequence saved to '" + used + "'"}}));
}

TEST_F(CreateReport, SaysThatNoFileCouldBeOpened) {
  modeltest::writeFile("blocked", "no folder");
  // Without a current folder there is nothing to fall back to.
  std::filesystem::create_directory(folder / "gone");
  std::filesystem::current_path(folder / "gone");
  std::filesystem::remove(folder / "gone");
  const std::string path = folder / "blocked/r.txt";
  EXPECT_EQ(trace.createReport(&drive.thread, path, false, 0, noMask), -1052);
  EXPECT_EQ(drive.lines(), (std::vector<LogLine>{{2, "Could not open the file '" + path +
                                                         "' to dump the bucket compare command sequence"}}));
}

}  // namespace
}  // namespace vdl
