#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/cli/Version.h"
#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::ProgramEnd;
using testing::runCorvane;
using ::testing::StartsWith;
using tests::TempFolder;

/// What the program prints for a command line that asks for a text; leaves nothing behind.
std::string textOf(const std::vector<std::string>& arguments) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, arguments);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.err, "");
  EXPECT_THAT(folder.content(), IsEmpty());
  return end.out;
}

TEST(HelpTest, namesTheCommandsAndGivesExamples) {
  const std::string text = textOf({"--help"});
  for (const char* part :
       {"Usage: corvane COMMAND", "run ", "options ", "usage ", "drives ", "corvane run --drive sim:", "Exit status"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(HelpTest, explainsEveryFlagOfRunWithItsDefault) {
  const std::string text = textOf({"run", "--help"});
  for (const char* flag : {"--drive ADDRESS",
                           "--time TIME",
                           "--commands N",
                           "--seed N",
                           "--pin CPUS",
                           "--queue-depth N",
                           "--xfer MIN..MAX",
                           "--lba-agent NAME",
                           "--range FIRST..END",
                           "--commands-of LIST",
                           "--atomic-bound MIN..MAX",
                           "--e2e PERCENT",
                           "--power-toggle HOW",
                           "--reset-every N",
                           "--fua",
                           "--rate N",
                           "--set ",
                           "--output DIR",
                           "--json FILE",
                           "--events FILE",
                           "--junit FILE",
                           "--plugin FILE",
                           "--quiet",
                           "--steps N",
                           "--size SIZE",
                           "--fault FAULT",
                           "--dry-run",
                           "--overwrite",
                           "--zone-reset-every N",
                           "--invalidate-every N"}) {
    EXPECT_THAT(text, HasSubstr(std::string("\n  ") + flag));
  }
  for (const char* part : {"Default: 10s", "1 to 1024. Default: 32.", "Default: 1..8.", "Default: write,read.",
                           "Default: mixed.", "corvane-out", "Examples:", "--power-toggle nosync"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(HelpTest, isThereForEveryCommand) {
  EXPECT_THAT(textOf({"options", "--help"}), HasSubstr("--set \"Slide Reads=true\""));
  EXPECT_THAT(textOf({"usage", "-h"}), HasSubstr("--plugin FILE"));
  EXPECT_THAT(textOf({"drives", "--help"}), HasSubstr("[ADDRESS]"));
}

TEST(HelpTest, namesTheTestFile) { EXPECT_THAT(textOf({"run", "--help"}), HasSubstr("corvane run [FILE] [FLAGS]")); }

TEST(HelpTest, explainsReplay) {
  const std::string text = textOf({"replay", "--help"});
  for (const char* part :
       {"corvane replay [FILE] [FLAGS]", "--finding N", "--output DIR", "--plugin FILE", "Example:"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(HelpTest, linesFitAWideTerminal) {
  const std::string text = textOf({"run", "--help"});
  for (size_t begin = 0; begin < text.size(); begin = text.find('\n', begin) + 1) {
    EXPECT_LE(text.find('\n', begin) - begin, 110U) << text.substr(begin, 120);
  }
}

TEST(VersionTest, isTheProgramsVersion) {
  EXPECT_EQ(textOf({"--version"}), std::string("corvane ") + programVersion() + "\n");
}

TEST(OptionsTest, listsTheAgentsOptionsWithRangeDefaultAndHelp) {
  const std::string text = textOf({"options"});
  EXPECT_THAT(text, HasSubstr("\nMin Queue Size  (U32, 1 to 1000000, default 2048)\n    The minimum number of"));
  EXPECT_THAT(text, HasSubstr("\nSlide Reads  (Bool, true or false, default false)\n"));
  EXPECT_THAT(text, HasSubstr("\nMiscompare Output Path  (String, default \""));
  EXPECT_THAT(text, HasSubstr("\nWrite Condition  (Condition, follows from the commands"));
}

TEST(UsageTest, isTheAgentsOwnText) {
  EXPECT_THAT(textOf({"usage"}), StartsWith("Usage:\n\nA method of data compare"));
}

TEST(DrivesTest, listsTheKindsOfAddress) {
  const std::string text = textOf({"drives"});
  EXPECT_THAT(text, HasSubstr("file:PATH"));
  EXPECT_THAT(text, HasSubstr("sim:"));
}

TEST(DrivesTest, describesADrive) {
  const std::string text = textOf({"drives", "sim:64m,block=4096,pi=0"});
  EXPECT_THAT(text, HasSubstr("16,384 blocks, 64 MiB\n"));
  EXPECT_THAT(text, HasSubstr("logical block         4096 bytes\n"));
  EXPECT_THAT(text, HasSubstr("atomic write          yes\n"));
}

TEST(DrivesTest, leavesNoFileThatItHadToMake) {
  EXPECT_THAT(textOf({"drives", "file:new.img,size=1m"}), HasSubstr("2,048 blocks, 1 MiB\n"));
}

TEST(DrivesTest, leavesAFileThatIsThereAsItIs) {
  const TempFolder folder;
  const std::string content(8192, 'x');
  tests::writeFile(folder / "drive.img", content);
  const ProgramEnd end = runCorvane(folder, {"drives", "file:drive.img"});
  EXPECT_EQ(end.status, 0);
  EXPECT_THAT(end.out, HasSubstr("16 blocks"));
  EXPECT_THAT(end.out, HasSubstr("commands at once      1024\n"));
  EXPECT_EQ(tests::readFile(folder / "drive.img"), content);
}

TEST(DrivesTest, explainsTheKindsOfAddressesThatTheReadmeLists) {
  std::istringstream help(textOf({"drives"}));
  std::set<std::string> explained;
  std::string above;
  for (std::string line; std::getline(help, line); above = line) {
    if (above.empty()) {
      explained.insert(line.starts_with("/dev/") ? "block" : line.substr(0, line.find(':')));
    }
  }
  std::istringstream readme(tests::readFile(CORVANE_EXAMPLES "/../README.md"));
  std::set<std::string> listed;
  bool table = false;
  for (std::string line; std::getline(readme, line);) {
    table = line.starts_with("| Address |") || (table && line.starts_with("|"));
    if (table && line.starts_with("| `")) {
      listed.insert(line.starts_with("| `/dev/") ? "block" : line.substr(3, line.find(':') - 3));
    }
  }
  EXPECT_GE(explained.size(), 6U);
  EXPECT_EQ(listed, explained);
}

}  // namespace
}  // namespace corvane::host
