#include "vdl/SenseParser.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace vdl {
namespace {

std::vector<uint8_t> fixedSense() {
  std::vector<uint8_t> sense(22, 0);
  sense[0] = 0xF0;
  sense[2] = 0x63;  // filemark and end-of-medium bits beside the key
  sense[3] = 0x12;
  sense[4] = 0x34;
  sense[5] = 0x56;
  sense[6] = 0x78;
  sense[7] = 14;
  sense[12] = 0x11;
  sense[13] = 0x22;
  sense[20] = 0xF7;
  sense[21] = 0xC3;
  return sense;
}

std::vector<uint8_t> descriptorSense() {
  return {0x72, 0x63, 0x11, 0x22, 0, 0, 0, 17,              // header
          0x02, 0x01, 0x00,                                 // some other descriptor
          0x00, 0x0A, 0x80, 0x00, 1, 2, 3, 4,  5, 6, 7, 8,  // information
          0x80, 0x02, 0xF5, 0x10};                          // vendor, cut off by the length above
}

struct Parsed {
  SenseParser::Kcq kcq{9, 9, 9};
  SenseParser::Uec uec = 9;
  uint8_t valid = 9;
  std::array<uint8_t, 8> information{9, 9, 9, 9, 9, 9, 9, 9};
  bool known = true;

  explicit Parsed(const std::vector<uint8_t>& sense) {
    known = SenseParser::getKey(sense.data(), kcq) == 0;
    known = SenseParser::getCode(sense.data(), kcq) == 0 && known;
    known = SenseParser::getQual(sense.data(), kcq) == 0 && known;
    known = SenseParser::getUec(sense.data(), uec) == 0 && known;
    known = SenseParser::getValidBit(sense.data(), &valid) == 0 && known;
    known = SenseParser::getInformationBytes(sense.data(), information.data()) == 0 && known;
  }
};

TEST(SenseParser, ReadsFixedFormat) {
  for (const uint8_t code : {uint8_t{0xF0}, uint8_t{0xF1}}) {
    std::vector<uint8_t> sense = fixedSense();
    sense[0] = code;
    const Parsed parsed(sense);
    EXPECT_TRUE(parsed.known);
    EXPECT_EQ(parsed.kcq.key, 3);
    EXPECT_EQ(parsed.kcq.code, 0x11);
    EXPECT_EQ(parsed.kcq.qual, 0x22);
    EXPECT_EQ(parsed.uec, 0xF7C3);
    EXPECT_EQ(parsed.valid, 1);
    EXPECT_EQ(parsed.information, (std::array<uint8_t, 8>{0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78}));
  }
}

TEST(SenseParser, TheValidBitOfFixedFormatMayBeClear) {
  std::vector<uint8_t> sense = fixedSense();
  sense[0] = 0x70;
  EXPECT_EQ(Parsed(sense).valid, 0);
}

TEST(SenseParser, BytesBeyondTheAdditionalLengthAreNotRead) {
  std::vector<uint8_t> sense = fixedSense();
  sense[7] = 5;  // up to byte 12
  EXPECT_EQ(Parsed(sense).kcq.code, 0x11);
  EXPECT_EQ(Parsed(sense).kcq.qual, 0);
  EXPECT_EQ(Parsed(sense).uec, 0);
  sense[7] = 13;  // one byte short of the unit error code
  EXPECT_EQ(Parsed(sense).kcq.qual, 0x22);
  EXPECT_EQ(Parsed(sense).uec, 0);
  const std::vector<uint8_t> shortest{0x70, 0, 1, 0, 0, 0, 0, 0};
  EXPECT_EQ(Parsed(shortest).kcq.key, 1);
  EXPECT_EQ(Parsed(shortest).kcq.code, 0);
}

TEST(SenseParser, ReadsDescriptorFormat) {
  std::vector<uint8_t> sense = descriptorSense();
  const Parsed cut(sense);
  EXPECT_TRUE(cut.known);
  EXPECT_EQ(cut.kcq.key, 3);
  EXPECT_EQ(cut.kcq.code, 0x11);
  EXPECT_EQ(cut.kcq.qual, 0x22);
  EXPECT_EQ(cut.valid, 1);
  EXPECT_EQ(cut.information, (std::array<uint8_t, 8>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(cut.uec, 0) << "the vendor's descriptor is not within the length";
  sense[7] = 19;
  EXPECT_EQ(Parsed(sense).uec, 0xF510);
}

TEST(SenseParser, WithoutAnInformationDescriptorNothingIsValid) {
  const std::vector<uint8_t> sense{0x73, 0x04, 0x44, 0x00, 0, 0, 0, 0};
  const Parsed parsed(sense);
  EXPECT_TRUE(parsed.known);
  EXPECT_EQ(parsed.valid, 0);
  EXPECT_EQ(parsed.information, (std::array<uint8_t, 8>{}));
}

TEST(SenseParser, AnUnknownFormatLeavesEverythingAlone) {
  const Parsed parsed(std::vector<uint8_t>{0x7F, 3, 0x11, 0x22, 0, 0, 0, 0});
  EXPECT_FALSE(parsed.known);
  EXPECT_EQ(parsed.kcq.key, 9);
  EXPECT_EQ(parsed.kcq.code, 9);
  EXPECT_EQ(parsed.uec, 9);
  EXPECT_EQ(parsed.valid, 9);
  EXPECT_EQ(parsed.information[0], 9);
}

TEST(SenseParser, DeferredErrorsReadAsCurrentOnes) {
  std::vector<uint8_t> sense = fixedSense();
  sense[0] = 0x71;
  const Parsed parsed(sense);
  EXPECT_TRUE(parsed.known);
  EXPECT_EQ(parsed.valid, 0);
  EXPECT_EQ(parsed.kcq.key, 3);
}

TEST(SenseParser, KnowsFourResponseCodesAndNoOther) {
  for (uint32_t first = 0; first < 256; ++first) {
    const uint32_t code = first & 0x7FU;
    const std::vector<uint8_t> sense{static_cast<uint8_t>(first), 3, 0x11, 0x22, 0, 0, 0, 0};
    EXPECT_EQ(Parsed(sense).known, code >= 0x70 && code <= 0x73) << first;
  }
}

TEST(SenseParser, ADescriptorThatIsTooShortForItsTypeIsNone) {
  const Parsed parsed(std::vector<uint8_t>{0x72, 3, 0x11, 0x22, 0, 0, 0, 9,  // header
                                           0x80, 0x01, 0xF5,                 // one byte of a unit error code
                                           0x00, 0x04, 0x80, 0x00, 1, 2});   // no room for eight bytes
  EXPECT_TRUE(parsed.known);
  EXPECT_EQ(parsed.uec, 0);
  EXPECT_EQ(parsed.valid, 0);
  EXPECT_EQ(parsed.information, (std::array<uint8_t, 8>{}));
}

TEST(SenseParser, ADescriptorHeaderCutOffAtTheEndIsNotRead) {
  const Parsed parsed(std::vector<uint8_t>{0x72, 3, 0x11, 0x22, 0, 0, 0, 1, 0x80});
  EXPECT_TRUE(parsed.known);
  EXPECT_EQ(parsed.uec, 0);
}

TEST(SenseParser, AnInformationDescriptorMayHaveItsValidBitClear) {
  std::vector<uint8_t> sense = descriptorSense();
  sense[13] = 0;
  EXPECT_EQ(Parsed(sense).valid, 0);
}

}  // namespace
}  // namespace vdl
