#include "host/base/TextFormat.h"

#include <gtest/gtest.h>

#include <limits>

namespace corvane::host {
namespace {

TEST(TextFormatTest, groupsDigitsByThree) {
  EXPECT_EQ(groupedNumber(0), "0");
  EXPECT_EQ(groupedNumber(999), "999");
  EXPECT_EQ(groupedNumber(1000), "1,000");
  EXPECT_EQ(groupedNumber(1'234'567), "1,234,567");
  EXPECT_EQ(groupedNumber(std::numeric_limits<uint64_t>::max()), "18,446,744,073,709,551,615");
}

TEST(TextFormatTest, countsBytesInDecimalUnits) {
  EXPECT_EQ(bytesText(0), "0 B");
  EXPECT_EQ(bytesText(999), "999 B");
  EXPECT_EQ(bytesText(1000), "1.00 kB");
  EXPECT_EQ(bytesText(1'234'567), "1.23 MB");
  EXPECT_EQ(bytesText(4'000'000'000), "4.00 GB");
}

TEST(TextFormatTest, neverShowsAThousandOfAUnit) { EXPECT_EQ(bytesText(999'999), "1.00 MB"); }

TEST(TextFormatTest, sizesDrivesInBinaryUnits) {
  EXPECT_EQ(capacityText(1023), "1023 B");
  EXPECT_EQ(capacityText(64 << 20), "64 MiB");
  EXPECT_EQ(capacityText(uint64_t{3} << 29), "1.5 GiB");
}

TEST(TextFormatTest, givesRatesInMegabytesASecond) {
  EXPECT_EQ(rateText(211'300'000, 1000), "211.3 MB/s");
  EXPECT_EQ(rateText(1'000'000, 2000), "0.5 MB/s");
}

TEST(TextFormatTest, tellsMomentsInUtc) {
  EXPECT_EQ(utcText(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(utcText(1'769'860'800'999'999), "2026-01-31T12:00:00Z");
}

TEST(TextFormatTest, hasNoRateInNoTime) { EXPECT_EQ(rateText(5, 0), "0.0 MB/s"); }

TEST(TextFormatTest, showsTimeAsAClock) {
  EXPECT_EQ(clockText(7'999), "0:07");
  EXPECT_EQ(clockText(754'000), "12:34");
  EXPECT_EQ(clockText(3'723'000), "1:02:03");
  EXPECT_EQ(elapsedText(250), "0.25 s");
  EXPECT_EQ(elapsedText(60'000), "1:00");
}

TEST(TextFormatTest, wrapsAtBlanksAndIndents) {
  EXPECT_EQ(wrapText("one two three", 9, 2), "  one two\n  three\n");
  EXPECT_EQ(wrapText("first\nsecond", 40, 0), "first\nsecond\n");
  EXPECT_EQ(wrapText("a verylongwordindeed b", 6, 0), "a\nverylongwordindeed\nb\n");
}

TEST(TextFormatTest, quotesWhatAShellWouldTakeApart) {
  EXPECT_EQ(shellQuoted("file:/tmp/a.img,size=64m"), "file:/tmp/a.img,size=64m");
  EXPECT_EQ(shellQuoted("Min Queue Size=1"), "'Min Queue Size=1'");
  EXPECT_EQ(shellQuoted("it's"), "'it'\\''s'");
  EXPECT_EQ(shellQuoted(""), "''");
  EXPECT_EQ(shellQuoted("$HOME"), "'$HOME'");
  EXPECT_EQ(shellLine({"corvane", "run", "a b"}), "corvane run 'a b'");
}

TEST(TextFormatTest, letsNoControlCharacterThrough) {
  EXPECT_EQ(printable("a\nb\x1b[31m\x7f"), "a?b?[31m?");
  EXPECT_EQ(printable("gr\xc3\xbc"
                      "n"),
            "gr\xc3\xbc"
            "n");
}

}  // namespace
}  // namespace corvane::host
