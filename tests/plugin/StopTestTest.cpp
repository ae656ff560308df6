#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/CompletionBench.h"
#include "support_model/TempDir.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

LogLine reportSaved(int level, const std::string& path) {
  return {level, "Bucket compare command sequence saved to '" + path + "'"};
}
LogLine dumpSaved(const std::string& path) { return {2, "Miscompare Data Written To '" + path + "'"}; }

/// A started test in an empty directory.
struct StopTest : ::testing::Test {
  StopTest() { begin(bench); }

  static void begin(CompletionBench& on) {
    on.start();
    on.takeLog();
  }
  /// Block 101 reads back with a flipped bit.
  static void miscompare(CompletionBench& on) {
    on.finishedWrite(100, 4, 1);
    on.block(101)[40] ^= 1;
    on.readBack(4);
    EXPECT_EQ(on.completeRead(4), -1046);
    on.takeLog();
  }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path())) {
      names.push_back(std::filesystem::relative(entry.path(), directory.path()).string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  modeltest::TempDir directory;
  CompletionBench bench;
};

TEST_F(StopTest, NothingSeenWritesAndLogsNothing) {
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(StopTest, WriteDataShowThePool) {
  EXPECT_EQ(bench.data().writeData->reserve(100), 0);
  EXPECT_EQ(bench.stopTest(), 0);
  const vdl::Buffer& shown = *bench.data().writeData;
  EXPECT_EQ(shown.data, bench.data().buckets);
  EXPECT_EQ(shown.size, 64U * 512);
  EXPECT_FALSE(shown.owned);
}

TEST_F(StopTest, MissingRecordsAreIgnored) {
  const uint8_t* before = bench.data().writeData->data;
  EXPECT_EQ(vdl::Corvane::stopTest(&bench.thread(), nullptr, &bench.data(), 0), 0);
  EXPECT_EQ(vdl::Corvane::stopTest(&bench.thread(), &bench.config(), nullptr, 0), 0);
  EXPECT_EQ(bench.data().writeData->data, before);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(StopTest, MiscompareWritesReportAndBothImages) {
  bench.config().miscompareOutputPath = "";
  miscompare(bench);
  const Bytes read = bench.block(101);
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(reportSaved(2, "./datacompare_trace_d0.txt"), dumpSaved("./datacompare_drive_d0.bin"),
                          dumpSaved("./datacompare_reference_d0.bin")));
  EXPECT_THAT(files(),
              ElementsAre("datacompare_drive_d0.bin", "datacompare_reference_d0.bin", "datacompare_trace_d0.txt"));
  EXPECT_EQ(modeltest::readFile("datacompare_drive_d0.bin"), std::string(read.begin(), read.end()));
  const std::string reference = modeltest::readFile("datacompare_reference_d0.bin");
  ASSERT_EQ(reference.size(), 512U);
  EXPECT_EQ(static_cast<uint8_t>(reference[40]), read[40] ^ 1);
  const std::string report = modeltest::readFile("datacompare_trace_d0.txt");
  EXPECT_THAT(report, HasSubstr("Dump of all commands that include the miscompare LBA 0x0000000000000065:\n"));
  EXPECT_THAT(report, HasSubstr("\nContext History for lba 0x65:\n"));
  EXPECT_THAT(report, HasSubstr("\nDump of the full command sequence:\n"));
}

TEST_F(StopTest, SecondStopNumbersItsFiles) {
  miscompare(bench);
  EXPECT_EQ(bench.stopTest(), 0);
  bench.takeLog();
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(reportSaved(2, "./datacompare_trace_d0.txt.000"), dumpSaved("./datacompare_drive_d0.bin.000"),
                          dumpSaved("./datacompare_reference_d0.bin.000")));
}

TEST_F(StopTest, MiscompareWritesOneReportAlsoWhenOneIsAlwaysWanted) {
  bench.config().alwaysDumpSequence = true;
  bench.data().failureSeen = true;
  miscompare(bench);
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_EQ(files().size(), 3U);
  EXPECT_EQ(bench.takeLog().size(), 3U);
}

TEST_F(StopTest, ReportIsWrittenWhenAlwaysWanted) {
  bench.config().alwaysDumpSequence = true;
  bench.finishedWrite(100, 4, 1);
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_THAT(bench.takeLog(), ElementsAre(reportSaved(0, "./datacompare_trace_d0.txt")));
  EXPECT_THAT(files(), ElementsAre("datacompare_trace_d0.txt"));
  const std::string report = modeltest::readFile("datacompare_trace_d0.txt");
  EXPECT_THAT(report, Not(HasSubstr("include the miscompare LBA")));
  EXPECT_THAT(report, HasSubstr("Write_Issued        0x0000000000000064  0x0004"));
}

TEST_F(StopTest, FailureWithoutMiscompareWritesTheReportAsInformation) {
  bench.data().failureSeen = true;
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_THAT(bench.takeLog(), ElementsAre(reportSaved(0, "./datacompare_trace_d0.txt")));
}

TEST_F(StopTest, VerifyMiscompareWritesEmptyImages) {
  bench.finishedWrite(100, 4, 1);
  bench.verifyBack(4);
  EXPECT_EQ(bench.completeWithSense(4, {.key = 0x0E, .asc = 0x1D, .information = {}}), -1046);
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_EQ(modeltest::readFile("datacompare_drive_d0.bin"), "");
  EXPECT_EQ(modeltest::readFile("datacompare_reference_d0.bin"), "");
}

TEST_F(StopTest, OutputPathIsTheStartOfEveryName) {
  bench.config().miscompareOutputPath = "out/run1";
  miscompare(bench);
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_THAT(files(),
              ElementsAre("out", "out/run1_drive_d0.bin", "out/run1_reference_d0.bin", "out/run1_trace_d0.txt"));
}

TEST_F(StopTest, DriveNameStandsInTheFileNameAsItIs) {
  CompletionBench own({.name = "/dev/sdb"});
  begin(own);
  own.config().alwaysDumpSequence = true;
  EXPECT_EQ(own.stopTest(), 0);
  EXPECT_THAT(own.takeLog(), ElementsAre(reportSaved(0, "./datacompare_trace_/dev/sdb.txt")));
  EXPECT_TRUE(std::filesystem::exists("datacompare_trace_/dev/sdb.txt"));
}

TEST_F(StopTest, FailedStartHasNoReportAndNoPool) {
  CompletionBench own;
  own.config().alwaysDumpSequence = true;
  own.config().minQueueSize = 1000;
  EXPECT_EQ(own.startTest(), -1009);
  own.takeLog();
  EXPECT_EQ(own.stopTest(), 0);
  EXPECT_THAT(own.takeLog(), IsEmpty());
  EXPECT_THAT(files(), IsEmpty());
  EXPECT_EQ(own.data().writeData->data, nullptr);
  EXPECT_EQ(own.data().writeData->size, 0U);
}

TEST_F(StopTest, FailedRestartAfterAMiscompareHasNoReport) {
  miscompare(bench);
  bench.config().minQueueSize = 1000;
  EXPECT_EQ(bench.startTest(), -1009);
  bench.takeLog();
  EXPECT_EQ(bench.stopTest(), 0);
  EXPECT_FALSE(std::filesystem::exists("datacompare_trace_d0.txt"));
}

/// Media blocks show in the report's marks: a command beside the failing LBA but in its media block has a star.
struct MediaMask {
  uint32_t blockSize;
  uint32_t exponent;
  bool protection;
  uint64_t mask;
};

class MediaBlocks : public StopTest, public ::testing::WithParamInterface<MediaMask> {};

TEST_P(MediaBlocks, MarkCommandsThatShareTheFailingOne) {
  const MediaMask& c = GetParam();
  CompletionBench own({.blockSize = c.blockSize == 0 ? 512 : c.blockSize,
                       .protectionEnabled = c.protection,
                       .protectionBytes = 8,
                       .physicalExponent = c.exponent});
  begin(own);
  own.thread().blockSize = c.blockSize;
  constexpr uint64_t failing = 0x1003;
  for (uint64_t lba = failing - 40; lba <= failing + 40; ++lba) {
    own.trace().traceWriteIssued(lba, 1, 1, 0, 0);
  }
  own.data().miscompareSeen = true;
  own.data().miscompareLBA = failing;
  // Without a block size there is no pool to show.
  own.config().bucketCount = c.blockSize == 0 ? 0 : own.config().bucketCount;
  EXPECT_EQ(own.stopTest(), 0);

  std::istringstream report(modeltest::readFile("datacompare_trace_d0.txt"));
  std::vector<uint64_t> marked;
  bool legend = false;
  for (std::string line; std::getline(report, line) && line.find("full command sequence") == std::string::npos;) {
    legend = legend || line == " * indicates media block overlap";
    if (line.find("Write_Issued") != std::string::npos && line.back() == '*') {
      marked.push_back(std::stoull(line.substr(line.find("0x0000"), 18), nullptr, 16));
    }
  }
  std::vector<uint64_t> expected;
  for (uint64_t lba = failing - 40; lba <= failing + 40 && c.mask != ~uint64_t{0}; ++lba) {
    if (lba != failing && (lba & c.mask) == (failing & c.mask)) {
      expected.push_back(lba);
    }
  }
  EXPECT_EQ(marked, expected);
  EXPECT_EQ(legend, c.mask != ~uint64_t{0});
}

INSTANTIATE_TEST_SUITE_P(OfDrives, MediaBlocks,
                         ::testing::Values(MediaMask{512, 0, false, ~uint64_t{0}},
                                           MediaMask{512, 3, false, 0xFFFFFFFFFFFFFFF8},
                                           MediaMask{512, 3, true, 0xFFFFFFFFFFFFFFF9}, MediaMask{512, 0, true, 0},
                                           MediaMask{4096, 0, false, ~uint64_t{0}}, MediaMask{4096, 0, true, 0},
                                           MediaMask{512, 5, false, 0xFFFFFFFFFFFFFFE0},
                                           MediaMask{0, 3, false, ~uint64_t{0}}));

}  // namespace
}  // namespace benchtest
