// The model's own judgement of order, on examples worked out by hand: a misreading that model and agent shared would
// show in no comparison.

#include "tests/model/ReadContext.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace refmodel {
namespace {

constexpr uint64_t first = 100;
constexpr uint64_t readId = 1000;
constexpr uint32_t sector = 512;

Medium somePool() {
  Bytes pool(size_t{sector} * 64);
  for (size_t i = 0; i < pool.size(); ++i) {
    pool[i] = static_cast<uint8_t>(i % sector < 3 ? (i % sector == 2 ? i / sector : 0) : 11 * i + i / sector);
  }
  return {pool, sector};
}

/// What a block shows.
struct Shown {
  char what = 'N';  ///< W rite, A tomic write, H ash, N othing that was expected
  uint64_t id = 0;
  uint32_t offset = 0;
  uint32_t length = 0;
};
Shown write(uint64_t id) { return {'W', id}; }
Shown atomic(uint64_t id, uint32_t offset, uint32_t length) { return {'A', id, offset, length}; }
constexpr Shown hash{'H'};
constexpr Shown nothing{};

std::optional<uint64_t> brokenAt(const std::vector<Shown>& blocks) {
  const Medium medium = somePool();
  Model table;
  std::vector<Bytes> data;
  for (size_t i = 0; i < blocks.size(); ++i) {
    const uint64_t lba = first + i;
    const auto bucket = static_cast<uint32_t>(i + 1);
    const Shown& block = blocks[i];
    const vdl::EmbedData stamp{true, block.id, lba};
    data.push_back(block.what == 'W' || block.what == 'A' ? medium.written(bucket, stamp) : medium.before(lba));
    if (block.what == 'W') {
      table.write(block.id, lba, bucket, stamp);
    } else if (block.what == 'A') {
      table.atomicWrite(block.id, lba, bucket, stamp, {block.offset, block.length, 0});
    } else {
      table.saveHash(1, lba, block.what == 'H' ? hashOf(data.back()) : 1, true);
    }
    table.issueRead(readId, lba, false);
  }
  ReadContext context(table, first, first + blocks.size(), readId);
  for (size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_EQ(context.observe(first + i, data[i]), blocks[i].what == 'N' ? -1003 : 0);
  }
  return context.brokenAt();
}

TEST(ReadContext, NormalWritesMayStandInAnyOrder) { EXPECT_EQ(brokenAt({write(9), write(3), write(7)}), std::nullopt); }

TEST(ReadContext, AnOlderWriteInsideASegmentSeenAsNewBreaksIt) {
  EXPECT_EQ(brokenAt({atomic(20, 0, 4), atomic(20, 1, 4), write(10), atomic(20, 3, 4)}), first + 2);
  EXPECT_EQ(brokenAt({atomic(30, 0, 4), atomic(20, 0, 2), write(40), write(40)}), first + 1);
}

TEST(ReadContext, OnlyTheWalkDownwardsSeesASegmentOfWhichTheLastBlockIsNew) {
  EXPECT_EQ(brokenAt({write(30), write(10), write(10), atomic(20, 3, 4)}), first + 2);
}

TEST(ReadContext, ANewerWriteInsideASegmentIsLegal) {
  EXPECT_EQ(brokenAt({atomic(20, 0, 4), atomic(20, 1, 4), write(30), atomic(20, 3, 4)}), std::nullopt);
}

TEST(ReadContext, SegmentsOfOneCommandAreSeenEachByItself) {
  EXPECT_EQ(brokenAt({atomic(20, 0, 2), atomic(20, 1, 2), write(10), write(10)}), std::nullopt);
}

TEST(ReadContext, WhatIsNoWriteNeitherOpensNorBreaksASegment) {
  EXPECT_EQ(brokenAt({atomic(20, 0, 3), hash, atomic(20, 2, 3)}), std::nullopt);
  EXPECT_EQ(brokenAt({atomic(20, 0, 3), nothing, atomic(20, 2, 3)}), std::nullopt);
  EXPECT_EQ(brokenAt({atomic(20, 0, 3), nothing, write(10)}), first + 2);
}

TEST(ReadContext, ABlockIsExplainedDownToTheFirstEventThatIsNotTransparent) {
  const Medium medium = somePool();
  Model table;
  table.write(3, first, 3, {true, 3, first});
  table.write(5, first, 5, {true, 5, first});
  table.atomicWrite(10, first, 10, {true, 10, first}, {0, 1, 0});
  table.issueRead(readId, first, true);
  table.write(2000, first, 20, {true, 2000, first});
  ReadContext context(table, first, first, readId);
  ASSERT_EQ(context.size(), 1U);
  EXPECT_EQ(context.observe(first, medium.written(3, {true, 3, first})), -1003);
  EXPECT_EQ(context.observe(first, medium.written(20, {true, 2000, first})), -1003);
  EXPECT_EQ(context.peek(first).block, 5U);
  EXPECT_EQ(context.observe(first, medium.written(10, {true, 10, first})), 0);
  EXPECT_EQ(context.peek(first).block, 10U);
  EXPECT_EQ(context.observe(first, medium.written(5, {true, 5, first})), 0);
  EXPECT_EQ(context.peek(first).content, 'N');
  EXPECT_EQ(context.observe(first + 1, medium.before(first)), -1004);
}

TEST(ReadContext, TheHistoryIsATableOfFixedWidth) {
  const Medium medium = somePool();
  Model table;
  table.saveHash(4, 0x1000, 0x9E3779B9, true);
  table.write(5, 0x1000, 0xFF0000, {});
  table.atomicWrite(300, 0x1000, 0x12, {true, 300, 0x1000}, {0, 1, 0});
  table.invalidate(0x1000, 0x1000, false);
  table.issueRead(readId, 0x1000, true);
  const ReadContext context(table, 0x1000, 0x1000, readId);
  EXPECT_EQ(context.historyText(0x1000),
            "Context History for lba 0x1000:\n"
            "EventType   CmdID       BlockType  BlockNum  EmbedCmdID    EmbedLBA          HashValue       \n" +
                std::string(93, '-') +
                "\n"
                "?           0           unknown    INVALID   ---           ---               ---             \n"
                "atomic      300         atomic     12        12c           1000              ---             \n"
                "write       5           normal     ZERO      ---           ---               ---             \n"
                "hash        4           hash       INVALID   ---           ---               9e3779b9        \n");
  EXPECT_EQ(context.historyText(0x1001), "");
}

TEST(Medium, AStampedBlockSaysWhatItIs) {
  const vdl::ObserveData seen = observationOf(somePool().written(7, {true, 0x10203, 0x1122334455667788}));
  EXPECT_EQ(seen.block_num, 7U);
  EXPECT_EQ(seen.embed.cmd_id, 0x10203U);
  EXPECT_EQ(seen.embed.lba, 0x1122334455667788U);
}

TEST(Medium, TheHashIsTheOneOfTheFormat) {
  EXPECT_EQ(hashOf({}), 0U);
  EXPECT_EQ(hashOf({0xFF}), 0x9E377AB8U);
  EXPECT_EQ(hashOf({0, 1, 2, 3}), 0x00028253C84E33F5U);
  EXPECT_EQ(hashOf(Bytes(512, 0)), 0x653FCC6EE4F45DEBU);
}

}  // namespace
}  // namespace refmodel
