#include "host/drive/sim/SimTear.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "tests/drive/CommandMaker.h"

namespace corvane::host {
namespace {

/// The bytes of a sector that came new, as lengths: old, new, old, new, …
std::vector<size_t> runsOf(const Bytes& sector) {
  std::vector<size_t> runs;
  uint8_t expected = 0;
  for (size_t i = 0; i < sector.size();) {
    const auto end = std::find_if(sector.begin() + static_cast<std::ptrdiff_t>(i), sector.end(),
                                  [expected](uint8_t byte) { return byte != expected; });
    const auto next = static_cast<size_t>(end - sector.begin());
    runs.push_back(next - i);
    expected ^= 1;
    i = next;
  }
  return runs;
}

class SimTearTest : public testing::Test {
 protected:
  Bytes mixed(SimTear& tear, uint64_t lba) const {
    const Bytes fresh(geometry.sectorBytes(), 1);
    Bytes sector(geometry.sectorBytes(), 0);
    const bool any = tear.mix(lba, fresh.data(), sector.data());
    EXPECT_EQ(any, std::find(sector.begin(), sector.end(), 1) != sector.end());
    return sector;
  }

  DriveGeometry geometry{.blocks = 1000, .blockSize = 4096};
  Random random{1};
};

TEST_F(SimTearTest, BlocksAreWholeAndIndependent) {
  geometry.blockSize = 512;
  SimTear tear(TearUnit::block, geometry, random);
  int fresh = 0;
  int changes = 0;
  uint8_t last = 0;
  for (uint64_t lba = 0; lba < 200; ++lba) {
    const Bytes sector = mixed(tear, lba);
    ASSERT_EQ(sector, Bytes(512, sector[0]));
    fresh += sector[0];
    changes += sector[0] != last ? 1 : 0;
    last = sector[0];
  }
  EXPECT_GT(fresh, 60);
  EXPECT_LT(fresh, 140);
  EXPECT_GT(changes, 60);
}

TEST_F(SimTearTest, ABlockIsTornInsideAtMultiplesOf512Bytes) {
  geometry.protectionBytes = 8;
  SimTear tear(TearUnit::sector, geometry, random);
  std::array<bool, 9> borders{};
  for (uint64_t lba = 0; lba < 100; ++lba) {
    const Bytes sector = mixed(tear, lba);
    // Protection bytes belong to the end of the block.
    ASSERT_TRUE(std::all_of(sector.end() - 9, sector.end(), [&](uint8_t byte) { return byte == sector.back(); }));
    size_t place = 0;
    for (const size_t run : runsOf(sector)) {
      place += run;
      ASSERT_TRUE(place % 512 == 0 || place == 4104) << place;
      borders[place / 512] = true;
    }
  }
  EXPECT_TRUE(std::all_of(borders.begin(), borders.end(), [](bool seen) { return seen; }));
}

TEST_F(SimTearTest, SmallBlocksOfA4KibGroupShareTheirFate) {
  geometry.blockSize = 1024;
  SimTear tear(TearUnit::fourKiB, geometry, random);
  int fresh = 0;
  for (uint64_t group = 0; group < 100; ++group) {
    const Bytes first = mixed(tear, 4 * group + 1);
    EXPECT_EQ(mixed(tear, 4 * group + 2), first);
    EXPECT_EQ(mixed(tear, 4 * group + 3), first);
    fresh += first[0];
  }
  EXPECT_GT(fresh, 25);
  EXPECT_LT(fresh, 75);
}

TEST_F(SimTearTest, UnitsHaveOneBlockUnlessBlocksAreSmall) {
  EXPECT_EQ(blocksPerUnit(TearUnit::fourKiB, geometry), 1U);
  geometry.blockSize = 512;
  geometry.protectionBytes = 8;
  EXPECT_EQ(blocksPerUnit(TearUnit::fourKiB, geometry), 8U);
  EXPECT_EQ(blocksPerUnit(TearUnit::block, geometry), 1U);
  EXPECT_EQ(blocksPerUnit(TearUnit::sector, geometry), 1U);
}

}  // namespace
}  // namespace corvane::host
