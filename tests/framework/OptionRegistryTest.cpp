#include "host/framework/OptionRegistry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class OptionRegistryTest : public testing::Test {
 protected:
  OptionRegistryTest() {
    vdl::ConfigManager& manager = registry.platform();
    manager.addU32("Queue Size", &number, 1, 1000, "How long the queue is");
    manager.addBool("Slide", &flag, "Whether it slides");
    manager.addString("Path", &text, "Where to");
    manager.addBuffer("Data", &buffer, "What");
    manager.addCondition("Read Condition", &condition, "When");
  }

  OptionRegistry registry;
  uint32_t number = 10;
  bool flag = false;
  std::string text = "here";
  vdl::Buffer buffer;
  vdl::Condition condition;
};

TEST_F(OptionRegistryTest, KeepsWhatWasRegisteredInOrder) {
  ASSERT_EQ(registry.options().size(), 5U);
  const OptionInfo& first = registry.options()[0];
  EXPECT_EQ(first.name, "Queue Size");
  EXPECT_EQ(first.kind, OptionKind::u32);
  EXPECT_EQ(first.min, 1U);
  EXPECT_EQ(first.max, 1000U);
  EXPECT_EQ(first.defaultText, "10");
  EXPECT_EQ(first.help, "How long the queue is");
  EXPECT_EQ(first.deprecation, "");
  EXPECT_EQ(registry.options()[1].defaultText, "false");
  EXPECT_EQ(registry.options()[2].defaultText, "here");
  EXPECT_EQ(registry.options()[3].defaultText, "empty");
  EXPECT_STREQ(optionKindName(registry.options()[4].kind), "Condition");
  EXPECT_EQ(registry.find("Slide"), &registry.options()[1]);
  EXPECT_EQ(registry.find("slide"), nullptr);
}

TEST_F(OptionRegistryTest, RefusesRegistrationsThatCannotBe) {
  vdl::ConfigManager& manager = registry.platform();
  uint32_t other = 5;
  EXPECT_LT(manager.addU32("Queue Size", &other, 0, 10, ""), 0);
  EXPECT_LT(manager.addU32("Above", &other, 6, 10, ""), 0);
  EXPECT_LT(manager.addU32("Below", &other, 1, 4, ""), 0);
  EXPECT_LT(manager.addU32("Null", nullptr, 1, 4, ""), 0);
  EXPECT_LT(manager.addBool("Null", nullptr, ""), 0);
  EXPECT_EQ(registry.options().size(), 5U);
}

TEST_F(OptionRegistryTest, AnOptionMayBeDeprecatedOnceItExists) {
  EXPECT_EQ(registry.platform().deprecate("Slide", "do not slide"), 0);
  EXPECT_EQ(registry.find("Slide")->deprecation, "do not slide");
  EXPECT_LT(registry.platform().deprecate("Nothing", "text"), 0);
}

TEST_F(OptionRegistryTest, KeepsTheAgentsRecord) {
  EXPECT_EQ(registry.record(), nullptr);
  EXPECT_LT(registry.platform().registerConfigData(nullptr, 5), 0);
  int record = 0;
  EXPECT_EQ(registry.platform().registerConfigData(&record, 4), 0);
  EXPECT_EQ(registry.record(), &record);
  EXPECT_EQ(registry.recordBytes(), 4U);
}

TEST_F(OptionRegistryTest, SetsNumbersWithinTheirRange) {
  EXPECT_EQ(registry.set("Queue Size", "1000"), "");
  EXPECT_EQ(number, 1000U);
  EXPECT_EQ(registry.set("Queue Size", "0x10"), "");
  EXPECT_EQ(number, 16U);
  for (const char* wrong : {"0", "1001", "-1", "", "12x", "1.5", "4294967297", "0x"}) {
    EXPECT_THAT(
        registry.set("Queue Size", wrong),
        AllOf(HasSubstr("\"Queue Size\""), HasSubstr("\"" + std::string(wrong) + "\""), HasSubstr("from 1 to 1000")));
    EXPECT_EQ(number, 16U);
  }
}

TEST_F(OptionRegistryTest, SetsFlags) {
  for (const char* yes : {"true", "on", "YES", "1"}) {
    flag = false;
    EXPECT_EQ(registry.set("Slide", yes), "");
    EXPECT_TRUE(flag) << yes;
  }
  for (const char* no : {"false", "Off", "no", "0"}) {
    flag = true;
    EXPECT_EQ(registry.set("Slide", no), "");
    EXPECT_FALSE(flag) << no;
  }
  EXPECT_THAT(registry.set("Slide", "maybe"), AllOf(HasSubstr("\"maybe\""), HasSubstr("true or false")));
}

TEST_F(OptionRegistryTest, SetsTextsAndBuffers) {
  EXPECT_EQ(registry.set("Path", "a b=c"), "");
  EXPECT_EQ(text, "a b=c");
  EXPECT_EQ(registry.set("Data", "ABC"), "");
  ASSERT_EQ(buffer.size, 3U);
  EXPECT_EQ(buffer.data[2], 'C');
  EXPECT_TRUE(buffer.owned);
  EXPECT_EQ(registry.valueText(*registry.find("Data")), "3 bytes");
}

TEST_F(OptionRegistryTest, ABufferMayComeFromAFile) {
  std::string pattern = (std::filesystem::temp_directory_path() / "corvane-option-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const std::string path = pattern + "/data.bin";
  std::ofstream(path, std::ios::binary) << std::string("x\0y", 3);
  EXPECT_EQ(registry.set("Data", "@" + path), "");
  ASSERT_EQ(buffer.size, 3U);
  EXPECT_EQ(buffer.data[1], 0);
  EXPECT_THAT(registry.set("Data", "@" + pattern), HasSubstr("cannot be read")) << "a folder";
  EXPECT_THAT(registry.set("Data", "@/dev/zero"), AllOf(HasSubstr("/dev/zero"), HasSubstr("is longer than 256 MiB")));
  EXPECT_THAT(registry.set("Data", "@" + path + ".none"), AllOf(HasSubstr(".none"), HasSubstr("cannot be read")));
  EXPECT_EQ(buffer.size, 3U);
  std::filesystem::remove_all(pattern);
}

TEST_F(OptionRegistryTest, ConditionsAreSetAsConditionsOnly) {
  EXPECT_EQ(registry.setCondition("Read Condition", {1, 2, 4, true}), "");
  EXPECT_EQ(condition.allMask, 2U);
  EXPECT_TRUE(condition.replace);
  EXPECT_EQ(registry.valueText(*registry.find("Read Condition")), "any=0x1 all=0x2 none=0x4 replace=on");
  EXPECT_THAT(registry.set("Read Condition", "1"), HasSubstr("conditions follow"));
  EXPECT_THAT(registry.setCondition("Slide", {}), HasSubstr("\"Slide\""));
}

TEST_F(OptionRegistryTest, AnUnknownNameGetsTheNearestOne) {
  EXPECT_THAT(registry.set("queue sise", "5"),
              AllOf(HasSubstr("\"queue sise\""), HasSubstr("did you mean \"Queue Size\"")));
  EXPECT_THAT(registry.set("zzzzzzzzzzzzzzzzzzzzzzzzzz", "5"), HasSubstr("corvane options"));
}

}  // namespace
}  // namespace corvane::host
