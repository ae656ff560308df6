#include "host/framework/OptionText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace corvane::host {
namespace {

TEST(OptionText, ReadsDecimalNumbersUpTo32Bits) {
  EXPECT_EQ(parseU32("0"), 0U);
  EXPECT_EQ(parseU32("1000"), 1000U);
  EXPECT_EQ(parseU32("0010"), 10U) << "a leading zero does not mean octal";
  EXPECT_EQ(parseU32("4294967295"), std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(parseU32("4294967296"), std::nullopt);
}

TEST(OptionText, ReadsHexadecimalNumbersUpTo32Bits) {
  EXPECT_EQ(parseU32("0x0"), 0U);
  EXPECT_EQ(parseU32("0xaBcD"), 0xABCDU);
  EXPECT_EQ(parseU32("0xFFFFFFFF"), std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(parseU32("0x100000000"), std::nullopt);
}

TEST(OptionText, ReadsNoOtherTextAsANumber) {
  for (const char* text :
       {"", "0x", "-1", "+1", " 1", "1 ", "1.0", "1e3", "12x", "x10", "AB", "0xG", "0x-1", "0x0x1", "1,000", "ten"}) {
    EXPECT_EQ(parseU32(text), std::nullopt) << '"' << text << '"';
  }
}

TEST(OptionText, ReadsNumbersInsideALongerText) {
  const std::string_view line = "Queue=12345";
  EXPECT_EQ(parseU32(line.substr(6, 3)), 123U) << "nothing behind the view is read";
}

TEST(OptionText, ReadsTheEightWordsOfAFlag) {
  for (const char* yes : {"true", "on", "yes", "1", "True", "ON"}) {
    EXPECT_EQ(parseBool(yes), std::optional(true)) << yes;
  }
  for (const char* no : {"false", "off", "no", "0", "FALSE", "No"}) {
    EXPECT_EQ(parseBool(no), std::optional(false)) << no;
  }
}

TEST(OptionText, ReadsNoOtherTextAsAFlag) {
  for (const char* text : {"", "2", "00", "t", "y", "enabled", " true", "true ", "truee", "on\n"}) {
    EXPECT_EQ(parseBool(text), std::nullopt) << '"' << text << '"';
  }
}

TEST(OptionText, WritesNumbersThatItReadsBack) {
  for (const uint32_t value : {0U, 10U, 4294967295U}) {
    EXPECT_EQ(parseU32(optionValueText(OptionKind::u32, &value)), value);
  }
}

TEST(OptionText, WritesFlagsThatItReadsBack) {
  for (const bool value : {false, true}) {
    const std::string text = optionValueText(OptionKind::boolean, &value);
    EXPECT_EQ(text, value ? "true" : "false");
    EXPECT_EQ(parseBool(text), std::optional(value));
  }
}

TEST(OptionText, WritesTextsAsTheyStand) {
  for (const std::string value : {"", "a b", "\"quoted\"", "line\nline"}) {
    EXPECT_EQ(optionValueText(OptionKind::text, &value), value);
  }
}

TEST(OptionText, WritesHowMuchOfABufferIsUsed) {
  vdl::Buffer value;
  EXPECT_EQ(optionValueText(OptionKind::buffer, &value), "empty");
  ASSERT_EQ(value.reserve(16), 0);
  EXPECT_EQ(optionValueText(OptionKind::buffer, &value), "empty") << "the capacity is not what is used";
  value.size = 5;
  EXPECT_EQ(optionValueText(OptionKind::buffer, &value), "5 bytes");
}

TEST(OptionText, WritesAllMasksOfACondition) {
  vdl::Condition value;
  EXPECT_EQ(optionValueText(OptionKind::condition, &value), "any=0x0 all=0x0 none=0x0 replace=off");
  constexpr uint64_t every = std::numeric_limits<uint64_t>::max();
  value = {every, every, every, true};
  EXPECT_EQ(optionValueText(OptionKind::condition, &value),
            "any=0xffffffffffffffff all=0xffffffffffffffff none=0xffffffffffffffff replace=on");
}

}  // namespace
}  // namespace corvane::host
