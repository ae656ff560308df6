#include "host/drive/sim/SimMedium.h"

#include <gtest/gtest.h>

#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

Bytes contentOf(SimMedium& medium, uint64_t lba, uint64_t blocks) {
  Bytes bytes(blocks * medium.sectorBytes());
  medium.read(lba, blocks, bytes.data());
  return bytes;
}

TEST(SimMedium, UnwrittenSectorsDifferFromEachOtherAndLookLikeNobodysData) {
  SimMedium medium(512);
  EXPECT_EQ(medium.sector(5)[0], 0x9A);
  EXPECT_NE(contentOf(medium, 5, 1), contentOf(medium, 6, 1));
  EXPECT_EQ(contentOf(medium, 5, 1), Bytes(medium.sector(5), medium.sector(5) + 512));
  EXPECT_EQ(medium.allocatedBytes(), 0U);
}

TEST(SimMedium, AWriteLeavesItsUnwrittenNeighboursAsTheyWere) {
  SimMedium medium(520);
  const Bytes before = contentOf(medium, 60, 10);
  const Bytes data = randomBytes(1, 4 * 520);
  medium.write(62, 4, data.data());  // over the border of two pages
  Bytes expected = before;
  std::copy(data.begin(), data.end(), expected.begin() + 2 * 520);
  EXPECT_EQ(contentOf(medium, 60, 10), expected);
  EXPECT_GT(medium.allocatedBytes(), 0U);
}

TEST(SimMedium, MemoryGrowsWithWhatIsWrittenOnly) {
  SimMedium medium(512);
  const Bytes data(512);
  medium.write(uint64_t{1} << 50, 1, data.data());
  const uint64_t one = medium.allocatedBytes();
  EXPECT_LT(one, 1U << 20);
  medium.write((uint64_t{1} << 50) + 1, 1, data.data());
  EXPECT_EQ(medium.allocatedBytes(), one);
}

TEST(SimMedium, ZeroedSectorsAreZero) {
  SimMedium medium(512);
  medium.zero(100, 70);
  EXPECT_EQ(contentOf(medium, 100, 70), Bytes(70 * 512, 0));
  EXPECT_EQ(medium.sector(99)[0], 0x9A);
  EXPECT_EQ(medium.sector(170)[0], 0x9A);
}

TEST(SimMedium, AMediumThatBeginsWithZerosTakesNoMemoryForThem) {
  SimMedium medium(512, SimMedium::Unwritten::zeros);
  medium.zero(0, 1000);
  EXPECT_EQ(contentOf(medium, 10, 100), Bytes(100 * 512, 0));
  EXPECT_EQ(medium.allocatedBytes(), 0U);
  const Bytes data = randomBytes(1, 512);
  medium.write(5, 1, data.data());
  EXPECT_EQ(contentOf(medium, 4, 1), Bytes(512, 0));
  EXPECT_EQ(contentOf(medium, 5, 1), data);
  medium.zero(5, 1);
  EXPECT_EQ(contentOf(medium, 5, 1), Bytes(512, 0));
}

}  // namespace
}  // namespace corvane::host
