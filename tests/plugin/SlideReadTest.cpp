#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

struct Range {
  uint64_t lba;
  uint32_t xferLength;
};

/// Reads of a write at LBA 100; the drive has blocks 0 to 1000.
struct SlideRead : ::testing::Test {
  SlideRead() {
    same.init(9, 0, std::numeric_limits<unsigned long>::max());
    bench.data().rng.init(9, 0, std::numeric_limits<unsigned long>::max());
  }

  Range slide(uint64_t lba, uint32_t writeLength, uint32_t readLength, bool skip = false) {
    *bench.data().xferLength = readLength;
    Range read{lba, writeLength};
    vdl::agent::slideRead(bench.data(), read.lba, read.xferLength, skip);
    return read;
  }
  /// Many draws: those with bit 62 clear change nothing, the others start at `from` + step * (draw modulo `starts`).
  void expectStarts(uint64_t lba, uint32_t writeLength, uint32_t readLength, uint64_t from, uint64_t starts,
                    bool skip = false) {
    std::set<uint64_t> seen;
    uint64_t moved = 0;
    for (int i = 0; i < 2000; ++i) {
      const Range read = slide(lba, writeLength, readLength, skip);
      const uint64_t draw = same();
      if ((draw & uint64_t{1} << 62) == 0) {
        ASSERT_EQ(read.lba, lba);
        ASSERT_EQ(read.xferLength, writeLength);
        continue;
      }
      ++moved;
      ASSERT_EQ(read.lba, from + (skip ? 2 : 1) * (draw % starts));
      ASSERT_EQ(read.xferLength, readLength);
      seen.insert(read.lba);
    }
    EXPECT_GT(moved, 900U);
    EXPECT_LT(moved, 1100U);
    EXPECT_EQ(seen.size(), starts) << "every start is reached";
  }

  SchedulingBench bench;
  vdl::RandomNumberGenerator<unsigned long> same;
};

TEST_F(SlideRead, EqualLengthsStartAnywhereThatOverlaps) { expectStarts(100, 8, 8, 93, 15); }

TEST_F(SlideRead, ShorterReadStartsInsideTheWrite) { expectStarts(100, 8, 3, 100, 8); }

TEST_F(SlideRead, LongerReadStartsAtTheWriteOrBefore) { expectStarts(100, 4, 8, 93, 8); }

TEST_F(SlideRead, OneBlockHasNowhereToGo) {
  expectStarts(100, 1, 1, 100, 1);
  expectStarts(100, 1, 1, 100, 1, true);
}

TEST_F(SlideRead, SkipCommandsStayWhereOnlyOneStartOfTheirParityIsLeft) {
  // From 100 + 2 - 16 = 86 up to 101 + 2 - 16 = 87, of which 86 alone has the write's parity.
  *bench.data().maxLBA = 101;
  expectStarts(100, 8, 8, 100, 1, true);
}

TEST_F(SlideRead, NoStartBelowTheFirstLba) {
  *bench.data().minLBA = 97;
  expectStarts(100, 8, 8, 97, 11);
}

TEST_F(SlideRead, ReadLongerThanTheWayToZeroStartsAtTheFirstLba) { expectStarts(3, 8, 8, 0, 11); }

TEST_F(SlideRead, NoReadBeyondTheLastLba) {
  *bench.data().maxLBA = 106;
  expectStarts(100, 8, 8, 93, 7);
}

TEST_F(SlideRead, LastStartOnTheLastLbaIsLeftAsItIs) {
  *bench.data().maxLBA = 107;
  expectStarts(100, 8, 8, 93, 15);
}

TEST_F(SlideRead, SkipCommandsKeepTheParity) { expectStarts(100, 8, 8, 86, 15, true); }

TEST_F(SlideRead, SkipCommandsKeepTheParityAlsoAtTheLimits) {
  *bench.data().minLBA = 91;
  *bench.data().maxLBA = 113;
  // From 91 up to 92; from 113 + 2 - 16 = 99 down to 98.
  expectStarts(100, 8, 8, 92, 4, true);
}

TEST_F(SlideRead, SkipCommandsWithALongerRead) { expectStarts(101, 2, 4, 95, 4, true); }

TEST_F(SlideRead, WithoutRoomTheReadStaysButTakesTheNewLength) {
  *bench.data().maxLBA = 104;
  int moved = 0;
  for (int i = 0; i < 100; ++i) {
    const Range read = slide(100, 9, 8);
    EXPECT_EQ(read.lba, 100U);
    if ((same() >> 62 & 1) != 0) {
      EXPECT_EQ(read.xferLength, 8U);
      ++moved;
    } else {
      EXPECT_EQ(read.xferLength, 9U);
    }
  }
  EXPECT_GT(moved, 0);
}

TEST_F(SlideRead, TheSharedVariablesAreOnlyRead) {
  *bench.data().lba = 77;
  for (int i = 0; i < 10; ++i) {
    slide(100, 8, 5);
  }
  EXPECT_EQ(*bench.data().lba, 77U);
  EXPECT_EQ(*bench.data().xferLength, 5U);
}

}  // namespace
}  // namespace benchtest
