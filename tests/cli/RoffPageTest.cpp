#include "host/cli/RoffPage.h"

#include <gtest/gtest.h>

#include "tests/support/ShellCommand.h"
#include "tests/support/TempFolder.h"

namespace corvane::host {
namespace {

/// What a page with one line looks like.
std::string shown(const std::string& text) {
  RoffPage page("name", "1", "Source", "Manual");
  page.section("Section");
  page.example(text);
  const tests::TempFolder folder;
  tests::writeFile(folder / "page.1", page.text());
  const tests::ShellEnd end =
      tests::runShell("groff -man -ww -Tascii -P-cbou '" + (folder / "page.1") + "' | sed -n '/^SECTION/,/^Source/p'");
  const size_t begin = end.out.find("\n       ");
  EXPECT_NE(begin, std::string::npos) << end.out;
  return end.out.substr(begin + 8, end.out.find('\n', begin + 1) - begin - 8);
}

TEST(RoffPageTest, takesEveryTextLiterally) {
  for (const std::string text :
       {".SH not a heading", "'br not a break", R"(back\slash \fB \n(.x)", R"("quoted" 'single' `back`)",
        "--flag=-1 ^caret ~tilde", "% percent & ampersand", R"(\" no comment)"}) {
    EXPECT_EQ(shown(text), text);
  }
}

TEST(RoffPageTest, putsAWordItsValueAndItsTextIntoOneItem) {
  RoffPage page("name", "1", "Source", "Manual");
  const size_t begun = page.text().size();
  page.item("--flag", "FILE", "First line.\n\n  Second line.");
  EXPECT_EQ(page.text().substr(begun), ".TP\n\\fB\\-\\-flag\\fR \\fIFILE\\fR\nFirst line.\n.br\nSecond line.\n");
}

TEST(RoffPageTest, writesTitlesInCapitals) {
  RoffPage page("name", "1", "Source", "Manual");
  page.section("See also");
  EXPECT_TRUE(page.text().starts_with(".TH NAME 1 \"\" \"Source\" \"Manual\"\n")) << page.text();
  EXPECT_TRUE(page.text().ends_with(".SH \"SEE ALSO\"\n")) << page.text();
}

}  // namespace
}  // namespace corvane::host
