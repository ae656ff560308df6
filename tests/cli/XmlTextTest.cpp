#include "host/cli/XmlText.h"

#include <gtest/gtest.h>

#include <string>

namespace corvane::host {
namespace {

const std::string replacement = "\xEF\xBF\xBD";

TEST(XmlTextTest, escapesWhatHasAMeaning) { EXPECT_EQ(xmlText("a<b>&\"'"), "a&lt;b&gt;&amp;&quot;'"); }

TEST(XmlTextTest, keepsTabsAndLineBreaksThroughAnAttribute) { EXPECT_EQ(xmlText("\t\n\r"), "&#9;&#10;&#13;"); }

TEST(XmlTextTest, leavesControlCharactersOut) {
  EXPECT_EQ(xmlText(std::string("a\0b\x1b[1m\x7f", 8)), "ab[1m");
  EXPECT_EQ(xmlText("a\xC2\x9B"
                    "b"),
            "ab")
      << "those above 0x80 too";
}

TEST(XmlTextTest, keepsCharactersOfEveryLength) {
  const std::string text = "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(xmlText(text), text);
}

TEST(XmlTextTest, leavesOutWhatXmlExcludes) {
  EXPECT_EQ(xmlText("a\xEF\xBF\xBE\xEF\xBF\xBF"
                    "b"),
            "ab");
}

TEST(XmlTextTest, replacesBytesThatAreNoText) {
  EXPECT_EQ(xmlText("\xFF"), replacement);
  EXPECT_EQ(xmlText("a\xC3"), "a" + replacement) << "cut off";
  EXPECT_EQ(xmlText("\xC3z"), replacement + "z") << "what follows stays";
  EXPECT_EQ(xmlText("\x80"), replacement);
  EXPECT_EQ(xmlText("\xC0\xBC"), replacement + replacement) << "an overlong '<'";
  EXPECT_EQ(xmlText("\xE0\x80\xBC"), replacement + replacement + replacement);
  EXPECT_EQ(xmlText("\xED\xA0\x80"), replacement + replacement + replacement) << "a surrogate";
  EXPECT_EQ(xmlText("\xF4\x90\x80\x80"), replacement + replacement + replacement + replacement);
}

}  // namespace
}  // namespace corvane::host
