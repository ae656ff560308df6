#include "host/base/JsonNesting.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane::host {
namespace {

std::string nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(JsonNestingTest, countsObjectsAndListsInEachOther) {
  EXPECT_FALSE(nestsTooDeep(""));
  EXPECT_FALSE(nestsTooDeep(nested(mostJsonNesting)));
  EXPECT_TRUE(nestsTooDeep(nested(mostJsonNesting + 1)));
  std::string objects;
  for (size_t i = 0; i <= mostJsonNesting; ++i) {
    objects += R"({"a": )";
  }
  EXPECT_TRUE(nestsTooDeep(objects));
}

TEST(JsonNestingTest, countsNoneThatStandBesideEachOther) {
  std::string list = "[";
  for (int i = 0; i < 1000; ++i) {
    list += "[{}],";
  }
  EXPECT_FALSE(nestsTooDeep(list + "0]"));
}

TEST(JsonNestingTest, countsNoneThatStandInTexts) {
  EXPECT_FALSE(nestsTooDeep('"' + std::string(1000, '[') + '"'));
  EXPECT_FALSE(nestsTooDeep(R"("a\")" + std::string(1000, '[') + R"(\\")"));
  EXPECT_TRUE(nestsTooDeep(R"("a\\")" + nested(1000))) << "the text ends in front of them";
}

}  // namespace
}  // namespace corvane::host
