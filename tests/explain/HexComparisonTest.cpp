#include "host/explain/HexComparison.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

const std::string heading = "offset   drive                                             reference\n";

TEST(HexComparisonTest, MarksDifferingBytes) {
  std::vector<uint8_t> drive(16, 0x11);
  std::vector<uint8_t> reference(16, 0x11);
  drive[4] = 0x9A;
  drive[5] = 0x9C;
  drive[15] = 0x00;
  EXPECT_EQ(hexComparison(drive, reference), heading +
                                                 "0x0000   11 11 11 11[9A 9C]11 11 11 11 11 11 11 11 11[00] "
                                                 " 11 11 11 11[11 11]11 11 11 11 11 11 11 11 11[11]\n");
}

TEST(HexComparisonTest, ShortensEqualLines) {
  std::vector<uint8_t> drive(96, 0x11);
  std::vector<uint8_t> reference = drive;
  reference[80] = 0x12;
  const std::string text = hexComparison(drive, reference);
  EXPECT_NE(text.find("         ... 5 equal lines\n0x0050  [11]11"), std::string::npos) << text;
}

TEST(HexComparisonTest, ShowsAFewEqualLinesAsTheyAre) {
  std::vector<uint8_t> drive(64, 0x11);
  std::vector<uint8_t> reference = drive;
  reference[48] = 0x12;
  EXPECT_EQ(hexComparison(drive, reference).find("..."), std::string::npos);
}

TEST(HexComparisonTest, EndsAfterTheMostDifferingLines) {
  const std::vector<uint8_t> drive(64, 0x11);
  const std::vector<uint8_t> reference(64, 0x22);
  const std::string text = hexComparison(drive, reference, 1);
  EXPECT_NE(text.find("0x0000"), std::string::npos);
  EXPECT_EQ(text.find("0x0010"), std::string::npos);
  EXPECT_NE(text.find("         ... 3 more lines\n"), std::string::npos) << text;
}

TEST(HexComparisonTest, ShowsMissingBytes) {
  const std::vector<uint8_t> drive(2, 0x11);
  EXPECT_NE(hexComparison(drive, {}).find("0x0000   11 11 -- -- "), std::string::npos);
}

}  // namespace
}  // namespace corvane::host
