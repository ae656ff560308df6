#include "host/explain/BlockStamp.h"

#include <gtest/gtest.h>

#include <vector>

namespace corvane::host {
namespace {

TEST(BlockStampTest, ReadsBucketAddressAndCommandId) {
  std::vector<uint8_t> block(64, 0xAA);
  block[0] = 0x01;
  block[1] = 0x02;
  block[2] = 0x03;
  stamp(block, 0x1122334455667788, 0x0A0B0C);
  const BlockStamp found = stampOf(block).value();
  EXPECT_EQ(found.bucket, 0x010203U);
  EXPECT_EQ(found.lba, 0x1122334455667788U);
  EXPECT_EQ(found.commandId, 0x0A0B0CU);
  EXPECT_FALSE(found.zeros);
  EXPECT_EQ(block[16], 3);
  EXPECT_EQ(block[20], 0xAA) << "behind the id the block keeps its data";
}

TEST(BlockStampTest, KeepsIdsOfEveryLength) {
  for (const uint64_t id : {uint64_t{0}, uint64_t{1}, uint64_t{255}, uint64_t{256}, UINT64_MAX}) {
    std::vector<uint8_t> block(64, 0x55);
    stamp(block, 5, id);
    EXPECT_EQ(stampOf(block)->commandId, id);
  }
}

TEST(BlockStampTest, SaysOfZerosThatTheySayNothing) { EXPECT_TRUE(stampOf(std::vector<uint8_t>(512))->zeros); }

TEST(BlockStampTest, FindsNoneInABlockThatIsTooShort) {
  EXPECT_FALSE(stampOf(std::vector<uint8_t>(stampBytes - 1)));
  EXPECT_TRUE(stampOf(std::vector<uint8_t>(stampBytes)));
}

TEST(BlockStampTest, ReadsAnOverlongIdWithinTheStamp) {
  std::vector<uint8_t> block(stampBytes, 0xFF);
  EXPECT_EQ(stampOf(block)->commandId, UINT64_MAX);
}

TEST(BlockStampTest, ReadsTheEndOfAnOverlongIdAsTheAgentDoes) {
  std::vector<uint8_t> block(512, 0);
  block[16] = 10;
  for (size_t i = 0; i < 10; ++i) {
    block[17 + i] = static_cast<uint8_t>(i + 1);
  }
  EXPECT_EQ(stampOf(block)->commandId, 0x030405060708090AU);
}

}  // namespace
}  // namespace corvane::host
