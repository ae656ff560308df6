#include "vdl/ConfigManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>

#include "host/framework/OptionRegistry.h"

namespace corvane::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ConfigManagerTest : public testing::Test {
 protected:
  OptionRegistry registry;
  vdl::ConfigManager& manager = registry.platform();
};

TEST_F(ConfigManagerTest, CopiesNamesAndTexts) {
  bool flag = false;
  char name[] = "Slide";
  char help[] = "Whether it slides";
  char text[] = "do not slide";
  ASSERT_EQ(manager.addBool(name, &flag, help), 0);
  ASSERT_EQ(manager.deprecate(name, text), 0);
  for (char* gone : {name, help, text}) {
    std::memset(gone, '?', std::strlen(gone));
  }
  const OptionInfo* option = registry.find("Slide");
  ASSERT_NE(option, nullptr);
  EXPECT_EQ(option->help, "Whether it slides");
  EXPECT_EQ(option->deprecation, "do not slide");
  EXPECT_EQ(option->target, &flag);
}

TEST_F(ConfigManagerTest, TakesTheDefaultFromTheTarget) {
  uint32_t number = 7;
  ASSERT_EQ(manager.addU32("Number", &number, 0, 10, ""), 0);
  EXPECT_EQ(number, 7U) << "a registration leaves the target alone";
  ASSERT_EQ(registry.set("Number", "9"), "");
  EXPECT_EQ(registry.find("Number")->defaultText, "7");
  EXPECT_EQ(registry.valueText(*registry.find("Number")), "9");
}

TEST_F(ConfigManagerTest, BothEndsOfARangeAreIncluded) {
  uint32_t number = 5;
  ASSERT_EQ(manager.addU32("Narrow", &number, 5, 5, ""), 0);
  EXPECT_EQ(registry.set("Narrow", "5"), "");
  EXPECT_NE(registry.set("Narrow", "4"), "");
  EXPECT_NE(registry.set("Narrow", "6"), "");
  uint32_t wide = 0;
  ASSERT_EQ(manager.addU32("Wide", &wide, 0, std::numeric_limits<uint32_t>::max(), ""), 0);
  EXPECT_EQ(registry.set("Wide", "4294967295"), "");
  EXPECT_EQ(wide, std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(registry.set("Wide", "0"), "");
  EXPECT_EQ(wide, 0U);
}

TEST_F(ConfigManagerTest, RefusesARangeThatHoldsNothing) {
  uint32_t number = 5;
  EXPECT_LT(manager.addU32("Number", &number, 6, 4, ""), 0);
  EXPECT_EQ(registry.find("Number"), nullptr);
}

TEST_F(ConfigManagerTest, ANameIsTakenOnceAcrossAllKinds) {
  bool flag = false;
  std::string text;
  vdl::Buffer buffer;
  vdl::Condition condition;
  ASSERT_EQ(manager.addBool("Name", &flag, "first"), 0);
  EXPECT_LT(manager.addString("Name", &text, "second"), 0);
  EXPECT_LT(manager.addBuffer("Name", &buffer, "second"), 0);
  EXPECT_LT(manager.addCondition("Name", &condition, "second"), 0);
  ASSERT_EQ(registry.options().size(), 1U);
  EXPECT_EQ(registry.options()[0].kind, OptionKind::boolean);
  EXPECT_EQ(registry.options()[0].help, "first");
}

TEST_F(ConfigManagerTest, EveryKindNeedsANameAndATarget) {
  uint32_t number = 0;
  std::string text;
  EXPECT_LT(manager.addU32(nullptr, &number, 0, 1, ""), 0);
  EXPECT_LT(manager.addString(nullptr, &text, ""), 0);
  EXPECT_LT(manager.addString("Text", nullptr, ""), 0);
  EXPECT_LT(manager.addBuffer("Buffer", nullptr, ""), 0);
  EXPECT_LT(manager.addCondition("Condition", nullptr, ""), 0);
  EXPECT_LT(manager.deprecate(nullptr, "text"), 0);
  EXPECT_TRUE(registry.options().empty());
}

TEST_F(ConfigManagerTest, AnOptionWithoutAHelpTextIsStillAnOption) {
  bool flag = true;
  EXPECT_EQ(manager.addBool("Flag", &flag, nullptr), 0);
  ASSERT_NE(registry.find("Flag"), nullptr);
  EXPECT_EQ(registry.find("Flag")->help, "");
}

TEST_F(ConfigManagerTest, ADeprecatedOptionIsStillSet) {
  bool flag = false;
  ASSERT_EQ(manager.addBool("Flag", &flag, ""), 0);
  ASSERT_EQ(manager.deprecate("Flag", "old"), 0);
  EXPECT_EQ(registry.set("Flag", "on"), "");
  EXPECT_TRUE(flag);
}

TEST_F(ConfigManagerTest, ARecordThatIsRefusedDoesNotReplaceTheOneKept) {
  int record = 0;
  ASSERT_EQ(manager.registerConfigData(&record, sizeof(record)), 0);
  EXPECT_LT(manager.registerConfigData(nullptr, 1), 0);
  EXPECT_EQ(registry.record(), &record);
  EXPECT_EQ(registry.recordBytes(), sizeof(record));
}

class BufferOptionTest : public ConfigManagerTest {
 protected:
  void SetUp() override { ASSERT_EQ(manager.addBuffer("Data", &buffer, ""), 0); }

  vdl::Buffer buffer;
};

TEST_F(BufferOptionTest, ReplacesBorrowedStorageByItsOwn) {
  uint8_t callers[] = {1, 2, 3};
  buffer.view(callers, 3);
  ASSERT_EQ(registry.set("Data", "xy"), "");
  EXPECT_TRUE(buffer.owned);
  EXPECT_NE(buffer.data, callers);
  EXPECT_EQ(buffer.size, 2U);
  EXPECT_EQ(callers[0], 1);
}

TEST_F(BufferOptionTest, TakesEveryByteOfTheText) {
  ASSERT_EQ(registry.set("Data", std::string("a\0b", 3)), "");
  ASSERT_EQ(buffer.size, 3U);
  EXPECT_EQ(std::memcmp(buffer.data, "a\0b", 3), 0);
}

TEST_F(BufferOptionTest, AnEmptyTextEmptiesIt) {
  ASSERT_EQ(registry.set("Data", "xy"), "");
  ASSERT_EQ(registry.set("Data", ""), "");
  EXPECT_EQ(buffer.size, 0U);
  EXPECT_EQ(registry.valueText(*registry.find("Data")), "empty");
}

TEST_F(BufferOptionTest, AFileWithoutANameIsRefused) {
  EXPECT_THAT(registry.set("Data", "@"), AllOf(HasSubstr("\"Data\""), HasSubstr("cannot be read")));
  EXPECT_EQ(buffer.data, nullptr);
}

TEST_F(BufferOptionTest, AFolderIsRefusedInOneLineAndChangesNothing) {
  ASSERT_EQ(registry.set("Data", "xy"), "");
  const std::string folder = std::filesystem::temp_directory_path().string();
  std::string answer;
  ASSERT_NO_THROW(answer = registry.set("Data", "@" + folder));
  EXPECT_THAT(answer,
              AllOf(HasSubstr("\"Data\""), HasSubstr(folder), HasSubstr("cannot be read"), Not(HasSubstr("\n"))));
  EXPECT_EQ(buffer.size, 2U);
}

}  // namespace
}  // namespace corvane::host
