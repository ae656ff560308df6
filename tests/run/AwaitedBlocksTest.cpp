#include "host/run/AwaitedBlocks.h"

#include <gtest/gtest.h>

#include <map>

#include "host/base/Random.h"

namespace corvane::host {
namespace {

TEST(AwaitedBlocksTest, aNewBlockIsAwaitedByNobody) {
  AwaitedBlocks blocks;
  EXPECT_EQ(blocks.find(100), nullptr);
  const AwaitedBlock& block = blocks.make(100, 5);
  EXPECT_EQ(block.since, 5U);
  EXPECT_EQ(block.claims, 0U);
  EXPECT_EQ(block.readers, 0U);
  EXPECT_EQ(block.content, AwaitedBlock::Content::unknown);
  EXPECT_EQ(&blocks.make(100, 6), &block);
  EXPECT_EQ(block.since, 5U);
  EXPECT_EQ(blocks.find(99), nullptr);
  EXPECT_EQ(blocks.find(101), nullptr);
}

TEST(AwaitedBlocksTest, aBlockThatWasErasedIsNewAgain) {
  AwaitedBlocks blocks;
  blocks.make(64, 1).claims = 3;
  blocks.make(65, 1);
  blocks.erase(64);
  EXPECT_EQ(blocks.find(64), nullptr);
  EXPECT_EQ(blocks.make(64, 9).claims, 0U);
  EXPECT_EQ(blocks.find(64)->since, 9U);
}

TEST(AwaitedBlocksTest, remembersWhatAMapRemembers) {
  Random random(3);
  AwaitedBlocks blocks;
  std::map<uint64_t, uint32_t> model;
  // Few and far between, so that pages come and go and collide in the table.
  const auto draw = [&random] { return random.below(300) * 40 + random.below(3) * (uint64_t{1} << 60); };
  for (uint32_t i = 1; i < 60'000; ++i) {
    const uint64_t lba = draw();
    if (random.below(100) < 45 + (i / 10'000 % 2) * 10) {
      blocks.make(lba, i).claims = i;
      model[lba] = i;
    } else if (model.erase(lba) != 0) {
      blocks.erase(lba);
    }
    const uint64_t looked = draw();
    const AwaitedBlock* block = blocks.find(looked);
    const auto expected = model.find(looked);
    ASSERT_EQ(block != nullptr, expected != model.end()) << looked;
    if (block != nullptr) {
      ASSERT_EQ(block->claims, expected->second);
    }
  }
  for (const auto& [lba, claims] : model) {
    ASSERT_NE(blocks.find(lba), nullptr);
    blocks.erase(lba);
  }
  EXPECT_EQ(blocks.pages(), 0U);
}

TEST(AwaitedBlocksTest, needsMemoryOnlyForWhatIsAwaitedAtOnce) {
  AwaitedBlocks blocks;
  constexpr uint64_t awaited = 100;
  for (uint64_t i = 0; i < 100'000; ++i) {
    blocks.make(i * 1000, 1);
    if (i >= awaited) {
      blocks.erase((i - awaited) * 1000);
    }
  }
  EXPECT_EQ(blocks.pages(), awaited);
  EXPECT_LE(blocks.capacity(), 2 * awaited);
}

TEST(AwaitedBlocksTest, walksARangeWithBothItsEnds) {
  AwaitedBlocks blocks;
  for (const uint64_t lba : {9U, 10U, 63U, 64U, 200U, 201U}) {
    blocks.make(lba, 0);
  }
  blocks.ofRange(10, 200, [](AwaitedBlock& block) { block.claims = 1; });
  std::vector<uint64_t> touched;
  for (uint64_t lba = 0; lba < 300; ++lba) {
    if (blocks.find(lba) != nullptr && blocks.find(lba)->claims != 0) {
      touched.push_back(lba);
    }
  }
  EXPECT_EQ(touched, (std::vector<uint64_t>{10, 63, 64, 200}));
}

TEST(AwaitedBlocksTest, forgetsAllAtOnce) {
  AwaitedBlocks blocks;
  blocks.make(5, 1).claims = 1;
  blocks.make(500, 1).claims = 1;
  blocks.clear();
  EXPECT_EQ(blocks.pages(), 0U);
  EXPECT_EQ(blocks.find(5), nullptr);
  EXPECT_EQ(blocks.make(500, 2).claims, 0U);
}

}  // namespace
}  // namespace corvane::host
