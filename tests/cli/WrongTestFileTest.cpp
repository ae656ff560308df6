#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::ProgramEnd;
using testing::runCorvane;
using tests::TempFolder;

struct WrongFile {
  const char* name;
  std::string text;
  std::string message;  ///< the whole line, behind the program's name
};

[[maybe_unused]] void PrintTo(const WrongFile& file, std::ostream* out) { *out << file.name; }

/// Two good lines, so that what follows stands in the third.
const std::string good = "drive = \"sim:64m\"\ncommands = 10\n";

std::vector<WrongFile> wrongFiles() {
  return {
      {"misspeltKey", good + "queue-dept = 8\n",
       "x.toml:3: 'queue-dept' is not a key of a test file; did you mean 'queue-depth'?"},
      {"unknownKey", good + "colour = \"blue\"\n",
       "x.toml:3: 'colour' is not a key of a test file; the flags in 'corvane run --help' are its keys"},
      {"flagName", good + "--seed = 1\n", "x.toml:3: '--seed' is not a key of a test file; did you mean 'seed'?"},
      {"unknownTable", good + "[option]\n\"Slide Reads\" = true\n",
       "x.toml:3: 'option' is not a key of a test file; did you mean 'options'?"},
      {"optionsAsFlag", good + "set = \"Slide Reads=true\"\n",
       "x.toml:3: 'set' is a flag; in a test file these stand in the table [options]"},
      {"noDrive", "commands = 10\n", "x.toml: drive is missing; name one, as in drive = \"sim:1g\", or give --drive"},
      {"emptyFile", "", "x.toml: drive is missing; name one, as in drive = \"sim:1g\", or give --drive"},
      {"keyTwice", good + "seed = 1\nseed = 2\n", "x.toml:4: seed is given twice; give it once"},
      {"noToml", good + "this is no TOML\n",
       "x.toml:3: this is no TOML: Error while parsing key-value pair: expected '=', saw 'i'"},
      {"zeroByte", good + "output = \"here\\u0000there\"\n",
       "x.toml:3: output has a zero byte, which no text of a test has; leave it out"},
      {"zeroByteInOption", good + "[options]\n\"Data\\u0000File\" = \"x\"\n",
       "x.toml:4: option has a zero byte, which no text of a test has; leave it out"},
      {"openText", "drive = \"sim:64m\n",
       "x.toml:1: this is no TOML: Error while parsing string: unescaped control characters other than TAB (U+0009) "
       "are explicitly prohibited"},
      {"zeroDepth", good + "queue-depth = 0\n", "x.toml:3: queue-depth '0' is too small; the least is 1"},
      {"depthText", good + "queue-depth = \"many\"\n",
       "x.toml:3: queue-depth 'many' is no count; give a whole number such as 2000, 1e6 or 2m (k, m, g: thousand, "
       "million, 10^9)"},
      {"depthFraction", good + "queue-depth = 1.5\n",
       "x.toml:3: queue-depth is no whole number; give N as the flag takes it, in quotes unless it is a whole number"},
      {"depthTrue", good + "queue-depth = true\n",
       "x.toml:3: queue-depth is a bare true or false; give N as the flag takes it, in quotes unless it is a whole "
       "number"},
      {"depthList", good + "queue-depth = [1, 2]\n",
       "x.toml:3: queue-depth is a list; give N as the flag takes it, in quotes unless it is a whole number"},
      {"depthTable", good + "queue-depth = { min = 1 }\n",
       "x.toml:3: queue-depth is a table; give N as the flag takes it, in quotes unless it is a whole number"},
      {"timeWithoutUnit", good + "time = 10\n",
       "x.toml:3: time '10' has no unit; give a time with its unit such as 500ms, 30s, 10m, 2h or 1d"},
      {"timeOfDay", good + "time = 10:00:00\n",
       "x.toml:3: time is a date or time; give TIME as the flag takes it, in quotes unless it is a whole number"},
      {"negativeSeed", good + "seed = -1\n",
       "x.toml:3: seed '-1' is no number; give a whole number such as 2000, 1e6 or 2m (k, m, g: thousand, million, "
       "10^9), or 0x and hexadecimal digits"},
      {"fuaText", good + "fua = \"yes\"\n", "x.toml:3: fua is a text; give true or false"},
      {"noDriveInList", "drive = []\n", "x.toml:1: drive is an empty list; name at least one, or leave the key out"},
      {"driveNumber", "drive = [\"sim:64m\", true]\ncommands = 10\n",
       "x.toml:1: drive is a bare true or false; give ADDRESS as the flag takes it, in quotes unless it is a whole "
       "number, or a list of these"},
      {"nestedList", "drive = [[\"sim:64m\"]]\ncommands = 10\n",
       "x.toml:1: drive is a list; give ADDRESS as the flag takes it, in quotes unless it is a whole number, or a list "
       "of these"},
      {"emptyDrive", "drive = \"\"\n",
       "x.toml:1: drive '' is empty; name a drive, such as sim:1g or file:PATH,size=256m"},
      {"unknownMixKind", good + "commands-of = \"write, raed\"\n",
       "x.toml:3: commands-of 'write, raed' names the unknown kind 'raed'; choose of write, atomic, writesame, trim, "
       "read, verify; did you mean 'read'?"},
      {"nothingChecked", good + "commands-of = \"write, trim\"\n",
       "x.toml:3: commands-of 'write, trim' checks nothing; add at least one of read and verify"},
      {"lbaAgent", good + "lba-agent = \"sequentail\"\n",
       "x.toml:3: lba-agent 'sequentail' is not known; choose of mixed, sequential, cachestress; did you mean "
       "'sequential'?"},
      {"fault", good + "fault = [\"lost-wrtie:rate=1\"]\n",
       "x.toml:3: fault: fault 'lost-wrtie:rate=1': 'lost-wrtie' is not a class of faults; 'corvane faults' lists "
       "them; did you mean 'lost-write'?"},
      {"xferUnit", good + "xfer = \"4k..64k\"\n",
       "x.toml:3: xfer '4k..64k' has a unit, but blocks are counted, whose size is each drive's own; give MIN..MAX in "
       "blocks: 4 KiB are 8 blocks of 512 bytes, or 1 of 4096"},
      {"xferBackwards", good + "xfer = \"9..8\"\n",
       "x.toml:3: xfer '9..8' has its ends the wrong way round; give MIN..MAX in blocks such as 1..64, or one number"},
      {"rangeEmpty", good + "range = \"9..9\"\n",
       "x.toml:3: range '9..9' is empty; give FIRST..END such as 0..1m or 0x1000..0x2000 (END is not included), or "
       "FIRST.."},
      {"sizeWord", good + "size = \"half\"\n",
       "x.toml:3: size 'half' is no size; give bytes such as 64k, 256m, 1g or 2t (binary units), or a share such as "
       "10%"},
      {"sizeZero", good + "size = 0\n",
       "x.toml:3: size '0' leaves nothing to test; give bytes such as 64k, 256m, 1g or 2t (binary units), or a share "
       "such as 10%"},
      {"sizeAbove", good + "size = \"101%\"\n", "x.toml:3: size '101%' is no share of a drive; give 0.001% to 100%"},
      {"sizeAndEnd", good + "range = \"0..1000\"\nsize = \"10%\"\n",
       "x.toml:4: size '10%' and the end of x.toml:3: range both say where the test ends; leave one out, or give 0.. "
       "as the range"},
      {"sizeBeyondDrive", good + "size = \"1g\"\n",
       "x.toml:3: size: the LBA range 0..2097152 ends behind the drive's 131072 blocks; choose an end of at most that"},
      {"percent", good + "e2e = 101\n", "x.toml:3: e2e '101' is no percentage; give 0 to 100"},
      {"power", good + "power-toggle = \"on\"\n",
       "x.toml:3: power-toggle 'on' is not known; choose off, nosync (cut the power at once) or sync (flush the cache "
       "before each cut)"},
      {"unknownStep", good + "[step]\ntrim = \"trim\"\ntirm = \"trim\"\n",
       "x.toml:5: step: 'tirm' is no step of a test; did you mean 'trim'?"},
      {"stepTable", good + "[steps]\ntrim = \"trim\"\n",
       "x.toml:3: steps is a table; give N as the flag takes it, in quotes unless it is a whole number; did you mean "
       "'step'?"},
      {"stepText", good + "step = \"trim=trim\"\n",
       "x.toml:3: step is a text; make it a table: [step], and below it a line NAME = VALUE for each step"},
      {"stepList", good + "[step]\nread = [\"read\"]\n",
       "x.toml:4: the step 'read' is a list; give a text, a number, true or false"},
      {"stepEquals", good + "[step]\n\"read=read\" = \"read\"\n",
       "x.toml:4: 'read=read' cannot name the step of a test; --step in 'corvane run --help' says which there are"},
      {"stepThatCannotRun", good + "[step]\nread = \"\"\n",
       "x.toml:4: step: the test takes the step 'read', whose condition is empty; name one, or leave the step out of "
       "the test"},
      {"conditionNumber", good + "condition = [\"hold\", 5]\n",
       "x.toml:3: condition: '5' cannot name a condition; begin with a letter and use letters, digits, '_' and '-'"},
      {"conditionThatNothingSets", good + "condition = [\n\"hold\",\n\"calm\"]\nrandom = \"hold\"\n",
       "x.toml:5: condition: nothing ever sets the condition 'calm'; name it in a random condition or a phase, or "
       "leave it out"},
      {"randomTable", good + "[[random]]\nwrite = 3\n",
       "x.toml:3: random is a table; give LIST as the flag takes it, in quotes unless it is a whole number, or a list "
       "of these"},
      {"randomOfAnUnknownOne", good + "random = [\"write=3\",\n\"raed\"]\n",
       "x.toml:4: random: 'raed' in a random condition is no condition; did you mean 'read'?"},
      {"phaseTooLong", good + "phase = \"trim,every=1e3,for=1k\"\n",
       "x.toml:3: phase: the phase of 'trim', for 1000 commands every 1000, is no part of its period; give at least 1 "
       "and less than the period"},
      {"optionsText", good + "options = \"Slide Reads=true\"\n",
       "x.toml:3: options is a text; make it a table: [options], and below it a line NAME = VALUE for each option"},
      {"optionUnknown", good + "[options]\n\"Slide Reeds\" = true\n",
       "x.toml:4: option 'Slide Reeds=true': there is no option \"Slide Reeds\"; did you mean \"Slide Reads\"?"},
      {"optionList", good + "[options]\n\"Slide Reads\" = [true]\n",
       "x.toml:4: the option 'Slide Reads' is a list; give a text, a number, true or false"},
      {"optionRange", good + "[options]\n\"Bucket Count\" = 0\n",
       "x.toml:4: option 'Bucket Count=0': option \"Bucket Count\" cannot be \"0\": it takes a whole number from 1 to "
       "524288"},
      {"optionEquals", good + "[options]\n\"Slide=Reads\" = 0\n",
       "x.toml:4: 'Slide=Reads' cannot name the option of a test; --set in 'corvane run --help' says which there are"},
      {"optionTwice", good + "[options]\n\"Slide Reads\" = true\n\"Slide Reads\" = false\n",
       "x.toml:5: \"Slide Reads\" is given twice; give it once"},
      {"badDrive", "drive = \"simm:64m\"\n",
       "x.toml:1: drive: drive address 'simm:64m': 'simm:' is not a kind of drive; there are block:, file:, iscsi:, "
       "nvme:, "
       "sg: and sim:"},
      {"badDriveKey", "# two\ndrive = [\"sim:64m\",\n  \"sim:64m,blok=512\"]\n",
       "x.toml:3: drive: drive address 'sim:64m,blok=512': 'blok' is not a key of 'sim:' addresses; it takes block, "
       "pi, "
       "exponent, zones, zonemodel, cache, tear, atomic-least, atomic-most, depth, abort, write-error, read-error, "
       "recovered, seed"},
      {"outputNowhere", good + "output = \"/dev/null/out\"\n",
       "x.toml:3: output '/dev/null/out' cannot be created: Not a directory; name a folder that can be written to"},
      {"jsonFolder", good + "json = \"/\"\n",
       "x.toml:3: json '/' is a folder; name a file in a folder that exists and can be written to"},
      {"tooLong", good + "xfer = \"1..100000\"\n",
       "x.toml:3: xfer: transfers of 100000 blocks do not fit into the pool of write data; set \"Bucket Count\" above "
       "that (it is 65536) or shorten the transfers"},
      {"depthFull", good + "invalidate-every = 9\nqueue-depth = 1024\n",
       "x.toml:4: queue-depth: queue depth 1024 leaves no place for zone resets and invalidations, which take one "
       "beside it; choose at most 1023 or leave them out"},
      {"listOfTables", good + "[[drive]]\nname = \"x\"\n", "x.toml:3: [[drive]] is given twice; give it once"},
      {"dottedKey", good + "queue.depth = 3\n",
       "x.toml:3: 'queue' is not a key of a test file; the flags in 'corvane run --help' are its keys"},
      {"emptyOutput", good + "output = \"\"\n", "x.toml:3: output '' is empty; name a folder"},
      {"emptyOptionName", good + "[options]\n\"\" = 1\n",
       "x.toml:4: '' cannot name the option of a test; --set in 'corvane run --help' says which there are"},
      {"optionWithDate", good + "[options]\n\"Slide Reads\" = 2026-01-31\n",
       "x.toml:4: the option 'Slide Reads' is a date or time; give a text, a number, true or false"},
      {"conditionOption", good + "[options]\n\"Read Condition\" = 1\n",
       "x.toml:4: option 'Read Condition=1': option \"Read Condition\" cannot be \"1\": conditions follow from the "
       "commands that the test selects"},
      {"stepsZero", good + "steps = 0\n", "x.toml:3: steps '0' is too small; the least is 1"},
      {"rateFraction", good + "rate = 0.5\n",
       "x.toml:3: rate is no whole number; give N as the flag takes it, in quotes unless it is a whole number"},
      {"numberTooLarge", good + "seed = 99999999999999999999\n",
       "x.toml:3: this is no TOML: Error while parsing decimal integer: '99999999999999999999' is not representable in "
       "64 bits"},
  };
}

class WrongTestFileTest : public ::testing::TestWithParam<WrongFile> {};

TEST_P(WrongTestFileTest, isRefusedInOneLineAndLeavesNothing) {
  const TempFolder folder;
  tests::writeFile(folder / "x.toml", GetParam().text);
  const ProgramEnd end = runCorvane(folder, {"run", "x.toml"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.out, "");
  EXPECT_EQ(end.err, "corvane: " + GetParam().message + "\n");
  EXPECT_THAT(folder.content(), ElementsAre("x.toml"));
}

INSTANTIATE_TEST_SUITE_P(Files, WrongTestFileTest, ::testing::ValuesIn(wrongFiles()),
                         [](const auto& file) { return std::string(file.param.name); });

constexpr const char* remedy = "; name a file of settings, or give a drive as in --drive sim:1g\n";

TEST(UnreadableTestFileTest, aMissingOne) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, {"run", "dir/none.toml"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.err,
            std::string("corvane: test file 'dir/none.toml' cannot be read: No such file or directory") + remedy);
  EXPECT_THAT(folder.content(), IsEmpty());
}

TEST(UnreadableTestFileTest, aFolder) {
  const ProgramEnd end = runCorvane(TempFolder(), {"run", "/"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.err, std::string("corvane: test file '/' cannot be read: Is a directory") + remedy);
}

TEST(UnreadableTestFileTest, oneWithoutEnd) {
  const ProgramEnd end = runCorvane(TempFolder(), {"run", "/dev/zero"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.err, std::string("corvane: test file '/dev/zero' is longer than 1 MiB, so it is none") + remedy);
}

TEST(UnreadableTestFileTest, bytesThatAreNoText) {
  const TempFolder folder;
  tests::writeFile(folder / "x.toml", "drive = \"sim:\xff\"\n");
  const ProgramEnd end = runCorvane(folder, {"run", "x.toml"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(end.err, "corvane: x.toml:1: this is no TOML: Encountered invalid utf-8 sequence\n");
}

TEST(TestFileWithFlagsTest, aWrongFlagIsNamedAsAFlag) {
  const TempFolder folder;
  tests::writeFile(folder / "x.toml", good + "queue-depth = 8\n");
  EXPECT_EQ(runCorvane(folder, {"run", "x.toml", "--queue-depth", "0"}).err,
            "corvane: --queue-depth '0' is too small; the least is 1\n");
}

}  // namespace
}  // namespace corvane::host
