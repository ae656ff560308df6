#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "Corvane.h"

namespace vdl {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// FNV-1a: enough to see that nobody has corrected a word.
uint64_t fingerprint(const std::string& text) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) {
    hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001b3;
  }
  return hash;
}

TEST(UsageText, HasItsLengthAndItsLines) {
  const std::string text = Corvane::getHelpStr();
  EXPECT_EQ(text.size(), 871U);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 12);
  const std::vector<std::string> lines = linesOf(text);
  ASSERT_EQ(lines.size(), 13U);
  EXPECT_EQ(lines[0], "Usage:");
  EXPECT_EQ(lines[4], "  1) A LBA/XferLength agent, such as Mixed or CacheStress");
  for (const size_t empty : {1U, 3U, 9U, 11U}) {
    EXPECT_EQ(lines[empty], "") << "line " << empty + 1;
  }
  EXPECT_EQ(text.back(), '.');
}

TEST(UsageText, KeepsItsSlips) {
  const std::string text = Corvane::getHelpStr();
  for (const char* slip :
       {"ths plugin", "precaculated", "no reads After this", "Athough", "read data compare.  The use"}) {
    EXPECT_NE(text.find(slip), std::string::npos) << slip;
  }
  EXPECT_EQ(fingerprint(text), 0x183cfe663364817bU);
}

TEST(UsageText, IsTheSameEachTime) { EXPECT_STREQ(Corvane::getHelpStr(), Corvane::getHelpStr()); }

}  // namespace
}  // namespace vdl
