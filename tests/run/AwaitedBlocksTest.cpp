#include "host/run/AwaitedBlocks.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "host/base/Random.h"

namespace corvane::host {
namespace {

constexpr BlockSpan one(uint64_t lba) { return {.first = lba, .end = lba + 1}; }

/// Sets the claims of each block of a span, which is awaited since `now` if it was not before.
void claim(AwaitedBlocks& blocks, const BlockSpan& span, uint64_t now, uint32_t claims) {
  blocks.makeSpan(span, now, [claims](AwaitedPiece& piece) { piece.block.claims = claims; });
}

uint64_t forget(AwaitedBlocks& blocks, const BlockSpan& span) {
  return blocks.ofSpan(span, [](AwaitedPiece&) { return true; });
}

TEST(AwaitedBlocksTest, aNewBlockIsAwaitedByNobody) {
  AwaitedBlocks blocks;
  EXPECT_EQ(blocks.find(100), nullptr);
  blocks.makeSpan(one(100), 5, [](AwaitedPiece&) {});
  const AwaitedBlock* block = blocks.find(100);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->since, 5U);
  EXPECT_EQ(block->claims, 0U);
  EXPECT_EQ(block->readers, 0U);
  EXPECT_EQ(block->content, AwaitedBlock::Content::unknown);
  blocks.makeSpan(one(100), 6, [](AwaitedPiece&) {});
  EXPECT_EQ(blocks.find(100)->since, 5U);
  EXPECT_EQ(blocks.pieces(), 1U);
  EXPECT_EQ(blocks.find(99), nullptr);
  EXPECT_EQ(blocks.find(101), nullptr);
}

TEST(AwaitedBlocksTest, aBlockThatWasForgottenIsNewAgain) {
  AwaitedBlocks blocks;
  claim(blocks, {.first = 64, .end = 66}, 1, 3);
  EXPECT_EQ(forget(blocks, one(64)), 0U);
  EXPECT_EQ(blocks.find(64), nullptr);
  EXPECT_EQ(blocks.find(65)->claims, 3U);
  blocks.makeSpan(one(64), 9, [](AwaitedPiece&) {});
  EXPECT_EQ(blocks.find(64)->claims, 0U);
  EXPECT_EQ(blocks.find(64)->since, 9U);
}

/// Plays random spans on a table for spans of some length and on a map of blocks.
void playOnTableAndMap(uint64_t longestSpan) {
  SCOPED_TRACE(longestSpan);
  struct Known {
    uint64_t since = 0;
    uint32_t claims = 0;
  };
  Random random(3);
  AwaitedBlocks blocks(longestSpan);
  std::map<uint64_t, Known> model;
  for (uint32_t i = 1; i < 30'000; ++i) {
    BlockSpan span;
    span.step = random.below(4) == 0 ? 2 : 1;
    span.first = random.below(400) + random.below(3) * (uint64_t{1} << 60);
    span.end = span.first + random.between(1, 40) * span.step;
    const uint64_t action = random.below(100);
    uint64_t missing = 0;
    uint64_t expectedMissing = 0;
    if (action < 40 + (i / 5'000 % 2) * 20) {
      claim(blocks, span, i, i);
    } else if (action < 70) {
      missing = forget(blocks, span);
    } else {
      missing = blocks.ofSpan(span, [](AwaitedPiece& piece) {
        ++piece.block.claims;
        return false;
      });
    }
    for (uint64_t lba = span.first; lba < span.end; lba += span.step) {
      const auto found = model.find(lba);
      if (action < 40 + (i / 5'000 % 2) * 20) {
        model.try_emplace(lba, Known{.since = i}).first->second.claims = i;
      } else if (found == model.end()) {
        ++expectedMissing;
      } else if (action < 70) {
        model.erase(found);
      } else {
        ++found->second.claims;
      }
    }
    ASSERT_EQ(missing, expectedMissing);
    for (uint64_t lba = span.first - span.first % 64; lba < span.end + 20; ++lba) {
      const AwaitedBlock* block = blocks.find(lba);
      const auto expected = model.find(lba);
      ASSERT_EQ(block != nullptr, expected != model.end()) << lba;
      if (block != nullptr) {
        ASSERT_EQ(block->claims, expected->second.claims);
        ASSERT_EQ(block->since, expected->second.since);
      }
    }
  }
  for (const auto& [lba, known] : model) {
    ASSERT_EQ(forget(blocks, one(lba)), 0U);
  }
  EXPECT_TRUE(blocks.empty());
}

TEST(AwaitedBlocksTest, remembersOfEverySpanWhatAMapOfBlocksRemembers) { playOnTableAndMap(0); }

TEST(AwaitedBlocksTest, remembersTheSameInGroupsOfAnyLength) {
  for (const uint64_t longestSpan : {1U, 2U, 3U, 8U, 16U, 1000U}) {
    playOnTableAndMap(longestSpan);
  }
}

TEST(AwaitedBlocksTest, makesGroupsNoLongerThanTheSpans) {
  const std::vector<std::pair<uint64_t, uint64_t>> piecesOf256ByLongestSpan{
      {0, 16}, {1, 256}, {2, 128}, {3, 64}, {8, 32}, {16, 16}, {17, 16}, {UINT64_MAX, 16}};
  for (const auto& [longestSpan, pieces] : piecesOf256ByLongestSpan) {
    AwaitedBlocks blocks(longestSpan);
    claim(blocks, {.first = 512, .end = 768}, 1, 1);
    EXPECT_EQ(blocks.pieces(), pieces) << longestSpan;
  }
}

TEST(AwaitedBlocksTest, needsMemoryOnlyForWhatIsAwaitedAtOnce) {
  AwaitedBlocks blocks;
  constexpr uint64_t awaited = 100;
  for (uint64_t i = 0; i < 100'000; ++i) {
    claim(blocks, one(i * 1000), 1, 1);
    if (i == 1000) {
      EXPECT_EQ(blocks.pieces(), awaited);
    }
    if (i >= awaited - 1) {
      forget(blocks, one((i + 1 - awaited) * 1000));
    }
  }
  EXPECT_EQ(blocks.pieces(), awaited - 1);
  AwaitedBlocks few;
  claim(few, one(1), 1, 1);
  EXPECT_LE(blocks.memoryBytes(), 2 * few.memoryBytes());
}

TEST(AwaitedBlocksTest, takesAtMostFortyBytesOfABlockWhereverItIs) {
  constexpr uint64_t most = 400'000;
  Random random(5);
  AwaitedBlocks scattered;
  AwaitedBlocks inRuns;
  uint64_t singles = 0;
  for (uint64_t blocks = 8; blocks <= most; blocks += 8) {
    for (uint64_t i = 0; i < 8; ++i) {
      claim(scattered, one(random.next() / 2), 1, 1);
      ++singles;
    }
    claim(inRuns, {.first = blocks * 1000 + blocks / 8 % 16, .end = blocks * 1000 + blocks / 8 % 16 + 8}, 1, 1);
    if (blocks % 10'000 == 0) {
      ASSERT_LE(scattered.memoryBytes(), 40 * singles) << singles;
      ASSERT_LE(inRuns.memoryBytes(), 40 * blocks) << blocks;
    }
  }
}

TEST(AwaitedBlocksTest, aRunOfBlocksThatAreAlikeIsTheFewPiecesOfItsGroups) {
  AwaitedBlocks blocks;
  claim(blocks, {.first = 1000, .end = 1256}, 1, 1);
  EXPECT_EQ(blocks.pieces(), 17U);
  uint64_t told = 0;
  blocks.ofSpan({.first = 1000, .end = 1256}, [&told](AwaitedPiece& piece) {
    told += piece.blocks();
    return true;
  });
  EXPECT_EQ(told, 256U);
  EXPECT_TRUE(blocks.empty());
}

TEST(AwaitedBlocksTest, walksASpanWithoutItsEnd) {
  AwaitedBlocks blocks;
  for (const uint64_t lba : {9U, 10U, 63U, 64U, 200U, 201U}) {
    claim(blocks, one(lba), 0, 1);
  }
  blocks.ofSpan({.first = 10, .end = 201}, [](AwaitedPiece& piece) {
    piece.block.claims = 2;
    return false;
  });
  std::vector<uint64_t> touched;
  for (uint64_t lba = 0; lba < 300; ++lba) {
    if (blocks.find(lba) != nullptr && blocks.find(lba)->claims == 2) {
      touched.push_back(lba);
    }
  }
  EXPECT_EQ(touched, (std::vector<uint64_t>{10, 63, 64, 200}));
}

TEST(AwaitedBlocksTest, forgetsAllAtOnce) {
  AwaitedBlocks blocks;
  claim(blocks, one(5), 1, 1);
  claim(blocks, one(500), 1, 1);
  blocks.clear();
  EXPECT_TRUE(blocks.empty());
  EXPECT_EQ(blocks.find(5), nullptr);
  blocks.makeSpan(one(500), 2, [](AwaitedPiece&) {});
  EXPECT_EQ(blocks.find(500)->claims, 0U);
}

}  // namespace
}  // namespace corvane::host
