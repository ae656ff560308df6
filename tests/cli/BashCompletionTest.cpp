#include "host/cli/BashCompletion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/base/TextFormat.h"
#include "tests/cli/HelpedFlags.h"
#include "tests/support/ShellCommand.h"

namespace corvane::host {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using testing::helpedCommands;
using testing::HelpedFlag;
using testing::helpedFlags;
using testing::helpOf;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;
using tests::TempFolder;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// What a real bash offers for the last of the words, cut as bash cuts them, in a folder.
std::vector<std::string> offeredIn(const std::string& folder, const std::vector<std::string>& words) {
  std::string script =
      "set -u; cd " + shellQuoted(folder) + "; source '" CORVANE_MANUALS "/corvane.bash'; COMP_WORDS=(";
  for (const std::string& word : words) {
    script += shellQuoted(word) + " ";
  }
  script += "); COMP_CWORD=" + std::to_string(words.size() - 1) +
            "; _corvane; ((${#COMPREPLY[@]})) && printf '%s\\n' \"${COMPREPLY[@]}\"; exit 0";
  const tests::ShellEnd end = tests::runShell("bash --norc --noprofile -c " + shellQuoted(script));
  EXPECT_EQ(end.status, 0) << end.out;
  return linesOf(end.out);
}

std::vector<std::string> offered(const std::vector<std::string>& words) {
  const TempFolder empty;
  return offeredIn(empty.path(), words);
}

TEST(BashCompletionTest, offersEveryCommand) {
  const std::vector<std::string> commands = helpedCommands(helpOf(""));
  EXPECT_THAT(commands, Contains("run"));
  EXPECT_THAT(offered({"corvane", ""}), ::testing::UnorderedElementsAreArray(commands));
  EXPECT_THAT(offered({"corvane", "dr"}), ElementsAre("drives"));
}

TEST(BashCompletionTest, offersEveryFlagOfEveryCommand) {
  size_t compared = 0;
  for (const std::string& command : helpedCommands(helpOf(""))) {
    const std::vector<std::string> flags = offered({"corvane", command, "-"});
    for (const HelpedFlag& flag : helpedFlags(helpOf(command))) {
      std::istringstream names(flag.usage.substr(0, flag.usage.find(' ')));
      for (std::string name; std::getline(names, name, ',');) {
        if (name.starts_with('-')) {
          EXPECT_THAT(flags, Contains(name)) << "corvane " << command;
          ++compared;
        }
      }
    }
  }
  EXPECT_GT(compared, 40U);
  EXPECT_THAT(offered({"corvane", "-"}), UnorderedElementsAre("-h", "--help", "--version"));
}

TEST(BashCompletionTest, offersTheFlagsThatBeginSo) {
  EXPECT_THAT(offered({"corvane", "run", "--q"}), UnorderedElementsAre("--queue-depth", "--quiet"));
  EXPECT_THAT(offered({"corvane", "run", "--fua", "--quie"}), ElementsAre("--quiet"));
  EXPECT_THAT(offered({"corvane", "faults", "--dri"}), IsEmpty());
  EXPECT_THAT(offered({"corvane", "run", ""}), IsSupersetOf({"--drive", "--seed"}));
}

TEST(BashCompletionTest, offersTheValuesThatTheProgramKnows) {
  EXPECT_THAT(offered({"corvane", "run", "--lba-agent", ""}), ElementsAre("mixed", "sequential", "cachestress"));
  EXPECT_THAT(offered({"corvane", "run", "--power-toggle", "no"}), ElementsAre("nosync"));
  EXPECT_THAT(offered({"corvane", "selftest", "--class", "lost-w"}), ElementsAre("lost-write"));
  EXPECT_THAT(offered({"corvane", "run", "--seed", ""}), IsEmpty());
}

TEST(BashCompletionTest, goesOnInListsAndFaults) {
  EXPECT_THAT(offered({"corvane", "run", "--commands-of", "write,ver"}), ElementsAre("write,verify"));
  EXPECT_THAT(offered({"corvane", "run", "--commands-of", "write", "=", "3,rea"}), ElementsAre("3,read"));
  EXPECT_THAT(offered({"corvane", "run", "--fault", "lost-w"}), ElementsAre("lost-write:"));
  EXPECT_THAT(offered({"corvane", "run", "--fault", "lost-write", ":"}), ElementsAre("at=command:", "rate="));
}

TEST(BashCompletionTest, offersStepsUpToTheirConditions) {
  EXPECT_THAT(offered({"corvane", "run", "--step", "w"}), ElementsAre("write=", "writesame="));
  EXPECT_THAT(offered({"corvane", "run", "--step", "reset", "=", "tr"}), IsEmpty());
}

TEST(BashCompletionTest, offersKindsOfDrivesAndTheirFiles) {
  const TempFolder folder;
  tests::writeFile(folder / "drive.img", "");
  tests::writeFile(folder / "other.img", "");
  EXPECT_THAT(offeredIn(folder.path(), {"corvane", "run", "--drive", ""}), IsSupersetOf({"sim:", "file:"}));
  EXPECT_THAT(offeredIn(folder.path(), {"corvane", "run", "--drive", "file", ":", "dr"}), ElementsAre("drive.img"));
  EXPECT_THAT(offeredIn(folder.path(), {"corvane", "drives", "file", ":"}),
              UnorderedElementsAre("drive.img", "other.img"));
}

TEST(BashCompletionTest, offersFilesAndFoldersAlsoWithBlanks) {
  const TempFolder folder;
  tests::writeFile(folder / "my agent.so", "");
  std::filesystem::create_directory(folder / "my folder");
  EXPECT_THAT(offeredIn(folder.path(), {"corvane", "usage", "--plugin", "my"}),
              UnorderedElementsAre("my agent.so", "my folder"));
  EXPECT_THAT(offeredIn(folder.path(), {"corvane", "run", "--output", ""}), ElementsAre("my folder"));
}

TEST(BashCompletionTest, knowsAValueBehindAnEqualsSign) {
  EXPECT_THAT(offered({"corvane", "run", "--lba-agent", "=", "seq"}), ElementsAre("sequential"));
  EXPECT_THAT(offered({"corvane", "run", "--drive", "=", "sim", ":", "1g", "--power-toggle", "="}),
              ElementsAre("off", "nosync", "sync"));
}

TEST(BashCompletionTest, doesNotTakeAValueForACommand) {
  EXPECT_THAT(offered({"corvane", "run", "--drive", "sim", ":", "--time", "drives", "--zone"}),
              ElementsAre("--zone-reset-every"));
}

TEST(BashCompletionTest, registersItselfForTheProgram) {
  const tests::ShellEnd end =
      tests::runShell("bash --norc --noprofile -c \"source '" CORVANE_MANUALS "/corvane.bash'; complete -p corvane\"");
  EXPECT_EQ(end.out, "complete -F _corvane corvane\n");
}

}  // namespace
}  // namespace corvane::host
