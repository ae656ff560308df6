#include "host/cli/ManPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/cli/ExitStatusText.h"
#include "host/cli/Version.h"
#include "tests/cli/HelpedFlags.h"
#include "tests/support/ShellCommand.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using testing::helpedCommands;
using testing::HelpedFlag;
using testing::helpedFlags;
using testing::helpOf;
using testing::withSingleBlanks;

const std::string page = CORVANE_MANUALS "/corvane.1";

/// The page as a reader sees it, in lines that are never broken.
const std::string& shown() {
  static const std::string text = tests::runShell("groff -man -Tascii -P-cbou -rLL=9999n '" + page + "'").out;
  return text;
}

/// What stands below a heading of the page, up to the next heading of the same depth (blanks in front of it).
std::string below(const std::string& heading, const std::string& depth) {
  std::istringstream lines(shown());
  std::string text;
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    const bool headline = line.starts_with(depth) && line.size() > depth.size() && line[depth.size()] != ' ';
    if (inside && (headline || (!line.empty() && line[0] != ' '))) {
      break;
    }
    inside = inside || line == depth + heading;
    text += inside ? line + "\n" : "";
  }
  return withSingleBlanks(text);
}

std::string sectionOf(const std::string& command) {
  return command.empty() ? below("FLAGS", "") : below("corvane " + command, "   ");
}

std::vector<std::string> everyCommand() {
  std::vector<std::string> commands = helpedCommands(helpOf(""));
  commands.insert(commands.begin(), "");
  return commands;
}

TEST(ManPageTest, saysOfEveryFlagWhatItsHelpSays) {
  size_t compared = 0;
  for (const std::string& command : everyCommand()) {
    const std::string section = sectionOf(command);
    for (const HelpedFlag& flag : helpedFlags(helpOf(command))) {
      EXPECT_THAT(section, HasSubstr(flag.usage + " " + flag.text)) << "corvane " << command;
      ++compared;
    }
  }
  EXPECT_GT(compared, 40U);
}

TEST(ManPageTest, hasTheExamplesAndTheNotesOfEveryHelp) {
  for (const std::string& command : everyCommand()) {
    const std::string help = helpOf(command);
    const size_t examples = help.find("\nExample");
    if (examples == std::string::npos) {
      continue;
    }
    const std::string section = command.empty() ? below("EXAMPLES", "") : sectionOf(command);
    std::istringstream lines(help.substr(examples + 1));
    std::string line;
    while (std::getline(lines, line) && !line.starts_with("Exit status")) {
      if (!line.starts_with("Example")) {
        EXPECT_THAT(section, HasSubstr(withSingleBlanks(line))) << "corvane " << command;
      }
    }
  }
}

TEST(ManPageTest, explainsEveryExitStatusThatTheHelpNames) {
  const std::string section = below("EXIT STATUS", "");
  const std::string help = withSingleBlanks(helpOf(""));
  for (const ExitStatusText& one : exitStatusTexts) {
    const std::string named = std::to_string(one.status) + " " + one.name;
    EXPECT_THAT(help, HasSubstr(named));
    EXPECT_THAT(section, HasSubstr(named + " " + withSingleBlanks(one.meaning)));
  }
}

TEST(ManPageTest, hasTheSectionsThatReadersLookFor) {
  for (const char* heading :
       {"NAME", "SYNOPSIS", "DESCRIPTION", "FLAGS", "COMMANDS", "EXIT STATUS", "FILES", "EXAMPLES", "SEE ALSO"}) {
    EXPECT_GT(below(heading, "").size(), std::string(heading).size()) << heading;
  }
  EXPECT_EQ(below("NAME", ""), "NAME corvane - test whether a drive keeps data");
  EXPECT_THAT(shown(), HasSubstr(std::string("Corvane ") + programVersion()));
}

TEST(ManPageTest, isFormattedWithoutAWarning) {
  const tests::ShellEnd end = tests::runShell("groff -man -ww -b -Tutf8 -z '" + page + "'");
  EXPECT_EQ(end.out, "");
  EXPECT_EQ(end.status, 0);
}

}  // namespace
}  // namespace corvane::host
