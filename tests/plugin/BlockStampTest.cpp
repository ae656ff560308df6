#include "BlockStamp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace vdl::agent {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes slice(const Bytes& block, std::size_t from, std::size_t count) {
  const auto first = block.begin() + static_cast<std::ptrdiff_t>(from);
  return {first, first + static_cast<std::ptrdiff_t>(count)};
}

Bytes stamped(uint64_t lba, uint64_t cmdId) {
  Bytes block(512, 0xAA);
  stampBlock(block.data(), lba, cmdId);
  return block;
}

struct StampCase {
  uint64_t cmdId;
  Bytes fromByte16;
};

TEST(BlockStamp, IdTakesAsFewBytesAsItNeeds) {
  const uint64_t lba = 0x1122334455667788;
  const StampCase cases[] = {
      {0, {0x00, 0xAA}},
      {1, {0x01, 0x01, 0xAA}},
      {0xFF, {0x01, 0xFF, 0xAA}},
      {0x100, {0x02, 0x01, 0x00, 0xAA}},
      {0x10000, {0x03, 0x01, 0x00, 0x00, 0xAA}},
      {0x1234567, {0x04, 0x01, 0x23, 0x45, 0x67, 0xAA}},
      {~uint64_t{0}, {0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xAA}},
  };
  for (const StampCase& c : cases) {
    const Bytes block = stamped(lba, c.cmdId);
    EXPECT_EQ(slice(block, 0, 8), Bytes(8, 0xAA)) << c.cmdId;
    EXPECT_EQ(slice(block, 8, 8), (Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88})) << c.cmdId;
    EXPECT_EQ(slice(block, 16, c.fromByte16.size()), c.fromByte16) << c.cmdId;
    const std::size_t behind = 16 + c.fromByte16.size();
    EXPECT_EQ(slice(block, behind, 512 - behind), Bytes(512 - behind, 0xAA)) << c.cmdId;
  }
}

TEST(BlockStamp, EveryBitBesideTheStampStays) {
  for (const uint8_t pattern : Bytes{0x00, 0xFF, 0x55, 0xAA}) {
    for (uint32_t bits = 0; bits <= 64; ++bits) {
      const uint64_t id = bits == 0 ? 0 : uint64_t{1} << (bits - 1);
      Bytes expected(64, pattern);
      const auto length = static_cast<uint8_t>((bits + 7) / 8);
      expected[16] = length;
      for (uint32_t i = 0; i < length; ++i) {
        expected[17 + i] = static_cast<uint8_t>(id >> (8 * (length - 1 - i)));
      }
      Bytes block(64, pattern);
      stampCommandId(block.data(), id);
      EXPECT_EQ(block, expected) << "pattern " << int{pattern} << ", " << bits << " bits";
    }
  }
}

TEST(BlockStamp, IdLengthGrowsAtEveryByteBoundary) {
  for (uint32_t bytes = 1; bytes <= 8; ++bytes) {
    const uint64_t smallest = uint64_t{1} << (8 * (bytes - 1));
    const uint64_t largest = bytes == 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * bytes)) - 1;
    EXPECT_EQ(stamped(1, smallest)[16], bytes);
    EXPECT_EQ(stamped(1, largest)[16], bytes);
  }
}

TEST(BlockStamp, BlocksOfACommandAreStampedLikeEachAlone) {
  constexpr std::size_t stride = 520;
  constexpr std::size_t blocks = 5;
  for (uint32_t bits = 0; bits <= 64; ++bits) {
    const uint64_t id = bits == 0 ? 0 : ~uint64_t{0} >> (64 - bits);
    Bytes expected(blocks * stride);
    for (std::size_t i = 0; i < expected.size(); ++i) {
      expected[i] = static_cast<uint8_t>(i * 7 + i / 256);
    }
    Bytes run = expected;
    for (std::size_t i = 0; i < blocks; ++i) {
      stampBlock(expected.data() + i * stride, 0xFFFFFFFFFE + i, id);
    }
    stampBlocks(run.data(), blocks, stride, 0xFFFFFFFFFE, id);
    EXPECT_EQ(run, expected) << id;
  }
}

TEST(BlockStamp, TheIdAloneLeavesTheLbaBytes) {
  Bytes block(512, 0xAA);
  stampCommandId(block.data(), 0x100);
  EXPECT_EQ(slice(block, 0, 16), Bytes(16, 0xAA));
  EXPECT_EQ(slice(block, 16, 4), (Bytes{0x02, 0x01, 0x00, 0xAA}));
}

TEST(BlockStamp, WhatIsStampedIsObserved) {
  for (const uint64_t id : {uint64_t{0}, uint64_t{1}, uint64_t{0xFF}, uint64_t{0x100}, ~uint64_t{0}}) {
    Bytes block = stamped(0x1122334455667788, id);
    block[0] = 0x01;
    block[1] = 0x23;
    block[2] = 0x45;
    const ObserveData o = getObserveData(block.data());
    EXPECT_EQ(o.block_num, 0x012345U);
    EXPECT_TRUE(o.embed.valid);
    EXPECT_EQ(o.embed.lba, 0x1122334455667788U);
    EXPECT_EQ(o.embed.cmd_id, id);
  }
}

BlockNum numberOf(uint8_t first, uint8_t second, uint8_t third) {
  Bytes block(512, 0);
  block[0] = first;
  block[1] = second;
  block[2] = third;
  return getObserveData(block.data()).block_num;
}

TEST(Observation, BucketNumberIsBigEndianAndLimited) {
  EXPECT_EQ(numberOf(0x00, 0x00, 0x00), 0U);
  EXPECT_EQ(numberOf(0x01, 0x23, 0x45), 0x012345U);
  EXPECT_EQ(numberOf(0x07, 0xFF, 0xFF), 0x7FFFFU);
  EXPECT_EQ(numberOf(0x08, 0x00, 0x00), 0x80001U);
  EXPECT_EQ(numberOf(0x0A, 0x00, 0x00), 0x80001U);
  EXPECT_EQ(numberOf(0xFE, 0xFF, 0xFF), 0x80001U);
  EXPECT_EQ(numberOf(0xFF, 0x00, 0x00), 0xFF0000U);
  EXPECT_EQ(numberOf(0xFF, 0x12, 0x34), 0xFF1234U);
  EXPECT_EQ(numberOf(0xFF, 0xFF, 0xFF), 0xFFFFFFU);
}

TEST(Observation, AnAllZeroBlockLooksLikeBucketZeroStampedByNobody) {
  const Bytes block(512, 0);
  const ObserveData o = getObserveData(block.data());
  EXPECT_EQ(o.block_num, 0U);
  EXPECT_TRUE(o.embed.valid);
  EXPECT_EQ(o.embed.cmd_id, 0U);
  EXPECT_EQ(o.embed.lba, 0U);
}

TEST(Observation, AnAllOnesBlockKeepsTheLastEightBytesOfItsLongId) {
  const Bytes block(512, 0xFF);
  const ObserveData o = getObserveData(block.data());
  EXPECT_EQ(o.block_num, 0xFFFFFFU);
  EXPECT_TRUE(o.embed.valid);
  EXPECT_EQ(o.embed.cmd_id, ~uint64_t{0});
  EXPECT_EQ(o.embed.lba, ~uint64_t{0});
}

TEST(Observation, AnIdLongerThanEightBytesKeepsItsLastEight) {
  Bytes block(512, 0);
  for (std::size_t i = 0; i < 12; ++i) {
    block[17 + i] = static_cast<uint8_t>(i + 1);
  }
  block[16] = 9;
  EXPECT_EQ(getObserveData(block.data()).embed.cmd_id, 0x0203040506070809U);
  block[16] = 12;
  EXPECT_EQ(getObserveData(block.data()).embed.cmd_id, 0x05060708090A0B0CU);
  block[16] = 1;
  EXPECT_EQ(getObserveData(block.data()).embed.cmd_id, 1U);
  block[16] = 0;
  EXPECT_EQ(getObserveData(block.data()).embed.cmd_id, 0U);
}

TEST(Observation, TheLengthByteIsUnsignedAndStaysInsideItsReach) {
  Bytes block(512, 0);
  block[16] = 0xFF;
  block[17 + 254] = 0x42;
  block[17 + 255] = 0x99;
  EXPECT_EQ(getObserveData(block.data()).embed.cmd_id, 0x42U);
}

}  // namespace
}  // namespace vdl::agent
