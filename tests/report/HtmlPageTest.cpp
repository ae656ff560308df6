#include "host/report/HtmlPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/report/PageFiles.h"
#include "tests/report/Samples.h"

namespace corvane::host::report {
namespace {

using host::testing::sampleReport;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

size_t countOf(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

TEST(HtmlPageTest, isOneFileWithEverythingInIt) {
  const std::string page = htmlPage(sampleReport("explained.json"));
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
  EXPECT_THAT(page, HasSubstr(std::string(pageStyle)));
  EXPECT_THAT(page, HasSubstr(std::string(pageScript)));
  for (const char* mark : {"/*STYLE*/", "/*DATA*/", "/*SCRIPT*/", "<!--TEXT-->"}) {
    EXPECT_THAT(page, Not(HasSubstr(mark)));
  }
}

TEST(HtmlPageTest, namesNoAddressOfANetwork) {
  std::string page = htmlPage(sampleReport("explained.json"));
  const std::string namespaceName = "http://www.w3.org/2000/svg";
  const size_t at = page.find(namespaceName);
  ASSERT_NE(at, std::string::npos);
  page.erase(at, namespaceName.size());
  for (const char* part : {"http:", "https:", "url(//", "@import", "src="}) {
    EXPECT_THAT(page, Not(HasSubstr(part)));
  }
}

TEST(HtmlPageTest, hostileTextsAddNoElement) {
  const std::string plain = htmlPage(sampleReport("explained.json"));
  const std::string hostile = htmlPage(sampleReport("hostile.json"));
  for (const char* part : {"<script", "</script", "<img", "<!--", "</noscript", "</pre"}) {
    EXPECT_EQ(countOf(hostile, part), countOf(plain, part)) << part;
  }
}

TEST(HtmlPageTest, marksInTextsAreNotFilledIn) {
  RunReport report = sampleReport("explained.json");
  report.result.drives[0].name = "/*DATA*/ /*SCRIPT*/";
  const std::string page = htmlPage(report);
  EXPECT_EQ(countOf(page, "</script"), 2U);
  EXPECT_EQ(countOf(page, "/*DATA*/ /*SCRIPT*/"), 2U);
}

TEST(HtmlPageTest, withoutScriptsItIsAText) {
  const std::string page = htmlPage(sampleReport("explained.json"));
  const std::string text = page.substr(page.find("<noscript>"), page.find("</noscript>") - page.find("<noscript>"));
  EXPECT_THAT(text, HasSubstr("Finding 1, old-data: sim0, LBA 148 (0x94)"));
  EXPECT_THAT(text, HasSubstr("&lt;- found"));
}

TEST(HtmlEscapedTest, leavesNothingToHtml) { EXPECT_EQ(htmlEscaped("a<b>&\"c'd"), "a&lt;b&gt;&amp;&quot;c&#39;d"); }

}  // namespace
}  // namespace corvane::host::report
