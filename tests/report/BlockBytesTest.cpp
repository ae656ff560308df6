#include "host/report/BlockBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host::report {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<uint8_t> stampedBlock() {
  std::vector<uint8_t> block(512, 0x5A);
  const std::vector<uint8_t> stamp{0x00, 0xAF, 0xE8, 0x00, 1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0x6F, 0x96, 2, 0x03, 0xE8};
  std::copy(stamp.begin(), stamp.end(), block.begin());
  return block;
}

std::vector<std::string> namesOf(const std::vector<BlockField>& fields) {
  std::vector<std::string> names;
  for (const BlockField& field : fields) {
    names.push_back(field.name + "@" + std::to_string(field.offset) + "+" + std::to_string(field.bytes));
  }
  return names;
}

TEST(StampTest, isWhatTheBlockSays) {
  const Stamp stamp = stampOf(stampedBlock());
  EXPECT_EQ(stamp.bucket, 0x00AFE8U);
  EXPECT_EQ(stamp.lba, 0x6F96U);
  EXPECT_EQ(stamp.commandId, 1000U);
  EXPECT_FALSE(stamp.zeros);
}

TEST(StampTest, anIdOfNoBytesIsZero) {
  std::vector<uint8_t> block = stampedBlock();
  block[16] = 0;
  EXPECT_EQ(stampOf(block).commandId, 0U);
}

TEST(StampTest, ofZerosIsZeros) {
  const Stamp stamp = stampOf(std::vector<uint8_t>(512));
  EXPECT_TRUE(stamp.zeros);
  EXPECT_FALSE(stamp.bucket || stamp.lba || stamp.commandId);
}

TEST(StampTest, isNotReadOutOfNoise) {
  for (const auto& [offset, value] : {std::pair<size_t, uint8_t>{3, 1}, {16, 9}, {17, 0}}) {
    std::vector<uint8_t> block = stampedBlock();
    block[offset] = value;
    EXPECT_FALSE(stampOf(block).bucket) << offset;
  }
  EXPECT_FALSE(stampOf(std::vector<uint8_t>(24, 1)).bucket);
  EXPECT_FALSE(stampOf({}).zeros);
}

TEST(BlockFieldsTest, standWhereTheStampIs) {
  EXPECT_THAT(namesOf(blockFields(520, 2, 8)),
              ElementsAre("bucket@0+3", "LBA@8+8", "id length@16+1", "command id@17+2", "protection@512+8"));
  EXPECT_THAT(namesOf(blockFields(512, 0, 0)), ElementsAre("bucket@0+3", "LBA@8+8", "id length@16+1"));
}

TEST(BlockFieldsTest, stayInTheBlock) {
  EXPECT_THAT(namesOf(blockFields(18, 200, 64)), ElementsAre("bucket@0+3", "LBA@8+8", "id length@16+1"));
  EXPECT_THAT(blockFields(0, 2, 8), IsEmpty());
}

TEST(DifferingOffsetsTest, nameEveryByteThatDiffersOrIsMissing) {
  EXPECT_THAT(differingOffsets({1, 2, 3}, {1, 9, 3}), ElementsAre(1));
  EXPECT_THAT(differingOffsets({1, 2, 3}, {1}), ElementsAre(1, 2));
  EXPECT_THAT(differingOffsets({}, {}), IsEmpty());
}

TEST(HexDigitsTest, areTwoAByte) { EXPECT_EQ(hexDigits({0x00, 0xAF, 0x0B}), "00af0b"); }

}  // namespace
}  // namespace corvane::host::report
