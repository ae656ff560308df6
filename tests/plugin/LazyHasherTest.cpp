#include "LazyHasher.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace vdl {
namespace {

uint64_t hashOf(const std::vector<uint8_t>& bytes) { return blockHash(bytes.data(), bytes.data() + bytes.size()); }

TEST(BlockHash, NoBytesHashToZero) {
  EXPECT_EQ(hashOf({}), 0U);
  EXPECT_EQ(blockHash(nullptr, nullptr), 0U);
}

TEST(BlockHash, SingleBytesAreUnsigned) {
  EXPECT_EQ(hashOf({0x00}), 0x9e3779b9U);
  EXPECT_EQ(hashOf({0x01}), 0x9e3779baU);
  EXPECT_EQ(hashOf({0x7F}), 0x9e377a38U);
  EXPECT_EQ(hashOf({0x80}), 0x9e377a39U);
  EXPECT_EQ(hashOf({0xFF}), 0x9e377ab8U);
}

TEST(BlockHash, SeedIsSixtyFourBitsWide) {
  EXPECT_EQ(hashOf({0x00, 0x00}), 0x28cd94bfdeU);
  EXPECT_EQ(hashOf({0xFF, 0xFF}), 0x28cd937ddeU);
}

TEST(BlockHash, ShortSequences) {
  EXPECT_EQ(hashOf({0xDE, 0xAD, 0xBE, 0xEF}), 0x28253dc664a0eU);
  EXPECT_EQ(hashOf({0x00, 0x01, 0x02, 0x03}), 0x00028253c84e33f5U);
  EXPECT_EQ(hashOf({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0x153f814e56431e2eU);
}

TEST(BlockHash, WholeBlocks) {
  EXPECT_EQ(hashOf(std::vector<uint8_t>(512, 0x00)), 0x653fcc6ee4f45debU);
  EXPECT_EQ(hashOf(std::vector<uint8_t>(512, 0xFF)), 0x8aa83571a194ac56U);
  EXPECT_EQ(hashOf(std::vector<uint8_t>(520, 0x00)), 0x61782881812237beU);
  EXPECT_EQ(hashOf(std::vector<uint8_t>(4096, 0x00)), 0x20a672321bf4ede2U);
  std::vector<uint8_t> counting(512);
  for (std::size_t i = 0; i < counting.size(); ++i) {
    counting[i] = static_cast<uint8_t>(i & 0xFF);
  }
  EXPECT_EQ(hashOf(counting), 0x5011f32ec5e95cfaU);
}

TEST(BlockHash, EveryByteOfABlockCounts) {
  std::vector<uint8_t> block(512, 0xA5);
  const uint64_t untouched = hashOf(block);
  for (uint8_t& byte : block) {
    byte ^= 0x01;
    EXPECT_NE(hashOf(block), untouched);
    byte ^= 0x01;
  }
}

TEST(LazyHasher, ComputesOnTheFirstRequestOnly) {
  std::vector<uint8_t> block(512, 0x00);
  LazyHasher hasher(block.data(), block.data() + block.size());
  EXPECT_FALSE(hasher.computed);
  EXPECT_EQ(hasher(), 0x653fcc6ee4f45debU);
  EXPECT_TRUE(hasher.computed);
  EXPECT_EQ(hasher.value, 0x653fcc6ee4f45debU);
  std::memset(block.data(), 0xFF, block.size());
  EXPECT_EQ(hasher(), 0x653fcc6ee4f45debU) << "a second look at the bytes";
}

TEST(LazyHasher, LooksAtTheBytesAsTheyAreAtTheRequest) {
  std::vector<uint8_t> block(512, 0x00);
  LazyHasher hasher(block.data(), block.data() + block.size());
  std::memset(block.data(), 0xFF, block.size());
  EXPECT_EQ(hasher(), 0x8aa83571a194ac56U);
}

}  // namespace
}  // namespace vdl
