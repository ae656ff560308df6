#include "host/drive/scsi/ScsiTrim.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

/// Every small range, for one method: pieces follow each other without gap, none is longer than allowed, and UNMAP gets
/// nothing but whole granules.
void checkAllRanges(const TrimMethod& method) {
  constexpr uint64_t most = 40;
  for (uint64_t first = 0; first < most; ++first) {
    for (uint64_t end = first + 1; end <= most; ++end) {
      uint64_t unmapped = 0;
      for (uint64_t lba = first; lba < end;) {
        const TrimPiece piece = nextTrimPiece(method, lba, end);
        ASSERT_EQ(piece.lba, lba);
        ASSERT_GT(piece.blocks, 0U);
        ASSERT_LE(piece.lba + piece.blocks, end);
        if (piece.unmaps) {
          ASSERT_EQ((lba + method.granule - method.alignment % method.granule) % method.granule, 0U);
          ASSERT_EQ(piece.blocks % method.granule, 0U);
          ASSERT_LE(piece.blocks, method.mostBlocks);
          unmapped += piece.blocks;
        } else {
          ASSERT_LE(piece.blocks, method.by == TrimMethod::By::unmap ? method.mostZeros : method.mostBlocks);
        }
        lba += piece.blocks;
      }
      uint64_t granules = 0;
      for (uint64_t lba = first; lba + method.granule <= end; ++lba) {
        granules += lba % method.granule == method.alignment % method.granule ? 1U : 0U;
      }
      const bool unmaps = method.by == TrimMethod::By::unmap && method.mostBlocks >= method.granule;
      ASSERT_EQ(unmapped, unmaps ? granules * method.granule : 0) << first << " to " << end;
    }
  }
}

TEST(ScsiTrim, CoversEveryRangeAndUnmapsEveryWholeGranule) {
  for (const uint64_t granule : {1U, 3U, 8U}) {
    for (const uint64_t alignment : {0U, 1U, 5U}) {
      for (const uint64_t mostBlocks : {2U, 8U, 17U, 1000U}) {
        for (const uint64_t mostZeros : {1U, 4U, 1000U}) {
          checkAllRanges({TrimMethod::By::unmap, false, mostBlocks, mostZeros, granule, alignment});
        }
      }
    }
  }
}

TEST(ScsiTrim, AWriteSameIsCutByItsOwnLimitOnly) {
  checkAllRanges({TrimMethod::By::writeSame, true, 7, 1, 8, 3});
  checkAllRanges({TrimMethod::By::writeSame, false, 1000, 1, 1, 0});
}

}  // namespace
}  // namespace corvane::host
