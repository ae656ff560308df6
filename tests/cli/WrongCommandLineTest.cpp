#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "tests/cli/RunningProgram.h"

namespace corvane::host {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::ProgramEnd;
using testing::runCorvane;
using ::testing::StartsWith;
using tests::TempFolder;

struct WrongLine {
  const char* name;
  std::vector<std::string> arguments;
  std::string offending;  ///< the line on the error stream names it
  std::string remedy;     ///< and says what would be accepted
  int status = 2;
};

[[maybe_unused]] void PrintTo(const WrongLine& line, std::ostream* out) { *out << line.name; }

/// A run on a good drive, but for these arguments.
std::vector<std::string> run(std::vector<std::string> more) {
  std::vector<std::string> arguments{"run", "--drive", "sim:64m", "--commands", "10"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::vector<WrongLine> wrongLines() {
  return {
      {"noCommand", {}, "no command", "choose of run, replay, selftest, report, options, usage, faults, drives"},
      {"unknownCommand", {"rum"}, "'rum'", "did you mean 'run'?"},
      {"unknownGlobalFlag", {"--versoin"}, "'--versoin'", "did you mean '--version'?"},
      {"twoCommands", {"run", "options"}, "'options'", "give one command"},
      {"versionWithValue", {"--version=2"}, "--version", "takes no value"},
      {"faultOfUnknownClass", run({"--fault", "lost-wrtie:rate=1"}), "'lost-wrtie'", "did you mean 'lost-write'?"},
      {"faultWithUnknownKey", run({"--fault", "lost-write:rat=1"}), "'rat'", "rate, at, most and drive"},
      {"faultRateAboveOne", run({"--fault", "lost-write:rate=1.5"}), "rate '1.5'", "from 0 to 1"},
      {"faultRateBelowZero", run({"--fault", "lost-write:rate=-1e-3"}), "rate '-1e-3'", "from 0 to 1"},
      {"faultWithoutMoment", run({"--fault", "lost-write"}), "'lost-write'", "add :rate=1e-4 or :at=command:1000"},
      {"faultThatTheWorkloadCannotExpress", run({"--fault", "trim-ignored:rate=1"}), "trim-ignored",
       "the test issues no trim; select that kind of command"},
      {"faultThatTheDriveCannotExpress", run({"--fault", "protection-damage:rate=1"}), "protection-damage",
       "use one that has, as with pi=8"},
      {"selftestOfUnknownClass",
       {"selftest", "--class", "torn-wrte"},
       "--class 'torn-wrte'",
       "did you mean 'torn-write'?"},
      {"selftestQuickAndFull", {"selftest", "--quick", "--full"}, "--quick and --full", "give one"},
      {"selftestWithoutSeeds", {"selftest", "--seeds", "0"}, "--seeds", "1"},
      {"selftestWithTooManySeeds", {"selftest", "--seeds", "1e9"}, "--seeds '1e9'", "at most"},
      {"selftestJsonNowhere", {"selftest", "--json", "no/such/folder/x.json"}, "no/such/folder", "--json"},
      {"noDrive", {"run"}, "--drive is missing", "--drive sim:1g"},
      {"driveWithoutValue", {"run", "--drive"}, "--drive", "needs a value"},
      {"emptyDrive", {"run", "--drive", ""}, "--drive ''", "name a drive"},
      {"driveWithoutKind", {"run", "--drive", "disk.img"}, "'disk.img'", "'file:PATH'"},
      {"driveOfUnknownKind", {"run", "--drive", "fil:x"}, "'fil:x'", "block:, file:, iscsi:, nvme:, sg: and sim:"},
      {"driveWithUnknownKey", {"run", "--drive", "sim:64m,blok=512"}, "'blok'", "it takes"},
      {"driveWithWrongSize", {"run", "--drive", "sim:64x"}, "'64x'", "write bytes, or a number with"},
      {"driveSizeNoMultipleOfBlock", {"run", "--drive", "file:n.img,size=1000"}, "file:n.img,size=1000", "multiple"},
      {"secondDriveWrong",
       {"run", "--drive", "file:new.img,size=1m", "--drive", "sim:64m,block=77"},
       "block=77",
       "512"},
      {"sameDriveTwice",
       {"run", "--drive", "file:a.img,size=1m", "--drive", "file:a.img,size=1m"},
       "'file:a.img'",
       "name it once"},
      {"unknownFlag", run({"--tme", "10s"}), "'--tme'", "did you mean '--time'?"},
      {"unknownShortFlag", run({"-x"}), "'-x'", "'corvane run --help'"},
      {"driveForATestFile", run({"sim:1g"}), "test file 'sim:1g'", "as in --drive sim:1g"},
      {"emptyTestFileName", run({""}), "test file ''", "name a file of settings"},
      {"transferWithUnit", run({"--xfer", "4k..64k"}), "--xfer '4k..64k'", "give MIN..MAX in blocks"},
      {"noSteps", run({"--steps", "0"}), "--steps '0'", "the least is 1"},
      {"sizeOfLetters", run({"--size", "half"}), "--size 'half'", "a share such as 10%"},
      {"sizeTwice", run({"--size", "1m", "--size", "10%"}), "--size is given twice, as '1m' and '10%'", "give it once"},
      {"sizeAndEnd", run({"--range", "8..9999", "--size", "1m"}), "--size '1m' and the end of --range",
       "give 8.. as the range"},
      {"sizeAboveTheDrive", run({"--size", "1g"}), "--size: the LBA range 0..2097152", "choose an end of at most that"},
      {"dryRunWithValue", run({"--dry-run=yes"}), "--dry-run", "takes no value"},
      {"dryRunWithoutDrive", {"run", "--dry-run"}, "--drive is missing", "--drive sim:1g"},
      {"dryRunWithUnknownOption", run({"--dry-run", "--set", "Slide Reeds=1"}), "--set 'Slide Reeds=1'",
       "did you mean \"Slide Reads\"?"},
      {"dryRunOfNoText", run({"--dry-run", "--output", "\xff"}), "--output", "is no UTF-8 text"},
      {"replayOfNothing", {"replay"}, "no document is named", "corvane replay corvane-out/result.json"},
      {"replayOfAMissingFile",
       {"replay", "none.json"},
       "document 'none.json' cannot be read",
       "corvane-out/result.json"},
      {"replayOfAFolder", {"replay", "/"}, "document '/' cannot be read", "corvane-out/result.json"},
      {"replayOfFindingZero", {"replay", "x.json", "--finding", "0"}, "--finding '0'", "the least is 1"},
      {"replayIntoNoFolder", {"replay", "x.json", "--output", ""}, "--output ''", "name a folder"},
      {"replayOfTwo", {"replay", "x.json", "y.json"}, "'y.json'", "one word too many"},
      {"missingValue", run({"--time"}), "--time", "needs a value"},
      {"valueOfASwitch", run({"--fua=yes"}), "--fua", "takes no value"},
      {"flagTwice", run({"--seed", "1", "--seed", "2"}), "--seed is given twice, as '1' and '2'", "give it once"},
      {"timeWithoutUnit", run({"--time", "10"}), "--time '10'", "500ms, 30s"},
      {"noTime", run({"--time", "0s"}), "--time '0s'", "at least 1ms"},
      {"negativeCommands", {"run", "--drive", "sim:64m", "--commands", "-5"}, "--commands '-5'", "whole number"},
      {"noCommands", {"run", "--drive", "sim:64m", "--commands", "0"}, "--commands '0'", "the least is 1"},
      {"seedOfLetters", run({"--seed", "abc"}), "--seed 'abc'", "0x and hexadecimal digits"},
      {"queueDepthTooLarge", run({"--queue-depth", "1025"}), "--queue-depth '1025'", "the most is 1024"},
      {"queueDepthZero", run({"--queue-depth", "0"}), "--queue-depth '0'", "the least is 1"},
      {"transferOfNoBlocks", run({"--xfer", "0..8"}), "--xfer '0..8'", "the shortest length is 1"},
      {"transferBackwards", run({"--xfer", "9..8"}), "--xfer '9..8'", "MIN..MAX"},
      {"transferAboveThePool", run({"--xfer", "1..100000"}), "--xfer: transfers of 100000", "\"Bucket Count\""},
      {"unknownLbaAgent", run({"--lba-agent", "sequentail"}), "--lba-agent 'sequentail'", "did you mean 'sequential'?"},
      {"emptyRange", run({"--range", "9..9"}), "--range '9..9'", "FIRST..END"},
      {"rangeBehindTheDrive",
       {"run", "--drive", "file:new.img,size=1m", "--range", "0..4000"},
       "--range: the LBA range 0..4000",
       "choose an end of at most that"},
      {"driveTooSmallForTransfers",
       {"run", "--drive", "sim:4k", "--xfer", "64"},
       "--xfer: the LBA range 0..8",
       "shorten the transfers"},
      {"unknownKind", run({"--commands-of", "write,raed"}), "'raed'", "did you mean 'read'?"},
      {"nothingWritten", run({"--commands-of", "read"}), "--commands-of 'read'", "add at least one of write"},
      {"nothingChecked", run({"--commands-of", "write,trim"}), "--commands-of 'write,trim'",
       "add at least one of read"},
      {"atomicWithoutRead", run({"--commands-of", "atomic,verify"}), "--commands-of: atomic writes", "select read too"},
      {"wrongAtomicBound", run({"--atomic-bound", "8..x"}), "--atomic-bound '8..x'", "MIN..MAX"},
      {"shareAboveHundred", run({"--e2e", "101"}), "--e2e '101'", "0 to 100"},
      {"unknownPowerToggle", run({"--power-toggle", "on"}), "--power-toggle 'on'", "choose off, nosync"},
      {"conditionOfAStep", run({"--condition", "trim"}), "--condition: a condition cannot be named 'trim'",
       "choose another"},
      {"conditionTwice", run({"--condition", "hold", "--condition", "hold"}), "--condition: the condition 'hold'",
       "name it once"},
      {"conditionWithABlank", run({"--condition", "hold me"}), "--condition: 'hold me' cannot name a condition",
       "letters, digits"},
      {"conditionThatNothingSets", run({"--condition", "hold", "--condition", "calm", "--random", "calm=1"}),
       "--condition: nothing ever sets the condition 'hold'", "name it in a random condition or a phase"},
      {"stepWithoutCondition", run({"--step", "trim"}), "--step 'trim' has no condition", "give STEP=CONDITION"},
      {"unknownStep", run({"--step", "tirm=trim"}), "--step: 'tirm' is no step", "did you mean 'trim'?"},
      {"stepOfAnUnknownCondition", run({"--step", "write=write & !hold"}), "--step: 'hold' in 'write & !hold'",
       "add it to the conditions of the test"},
      {"stepThatIsNotTaken", run({"--step", "reset=!write", "--step", "read=read"}),
       "--step: the test does not take the step 'reset'", "say after how many commands it is due"},
      {"twoStepsAtOnce", run({"--step", "read=read | write"}), "--step: the steps 'read' and 'write' would run at once",
       "a condition of its own"},
      {"randomWithWrongWeight", run({"--random", "write=x"}), "--random 'write=x': weight 'x'", "a whole number"},
      {"randomWithAnEmptyPlace", run({"--random", "write=3,,trim"}), "--random 'write=3,,trim' names no condition",
       "write=3,trim=1"},
      {"randomWithoutWeights", run({"--random", "write=0"}), "--random: a random condition has nothing to choose",
       "give at least one condition a weight"},
      {"twoRandomsOfOneCondition", run({"--random", "write,trim", "--random", "trim"}),
       "--random: two random conditions set 'trim'", "name it in one"},
      {"randomAtomicWithoutRead", run({"--random", "write,atomic", "--random", "verify"}), "--random: atomic writes",
       "select read too"},
      {"phaseWithoutBegin", run({"--phase", "trim,for=5"}), "--phase 'trim,for=5' does not say when the phase begins",
       "give CONDITION,every=N,for=N"},
      {"phaseWithoutEnd", run({"--phase", "trim,every=5"}), "--phase 'trim,every=5' does not say when the phase ends",
       "give CONDITION,every=N,for=N"},
      {"phaseWithUnknownWord", run({"--phase", "trim,every=9,four=5"}), "holds 'four=5'", "such as hold,every=10000"},
      {"phaseWithACountTwice", run({"--phase", "trim,every=9,every=9"}), "says 'every' twice", "such as hold,"},
      {"phaseWithANegativeCount", run({"--phase", "trim,every=-9,for=1"}), "every '-9' is no count", "a whole number"},
      {"phaseWithoutEndOfItself", run({"--phase", "trim,every=9,for=9"}), "--phase: the phase of 'trim'",
       "less than the period"},
      {"resetEveryZero", run({"--reset-every", "0"}), "--reset-every '0'", "the least is 1"},
      {"zoneResetEveryZero", run({"--zone-reset-every", "0"}), "--zone-reset-every '0'", "the least is 1"},
      {"invalidateEveryZero", run({"--invalidate-every", "0"}), "--invalidate-every '0'", "the least is 1"},
      {"zoneResetsWithAFullQueue", run({"--zone-reset-every", "9", "--queue-depth", "1024"}),
       "--queue-depth: queue depth 1024", "choose at most 1023"},
      {"invalidationsWithVerify", run({"--invalidate-every", "9", "--commands-of", "write,read,verify"}),
       "--invalidate-every: invalidations do not go with verifies", "leave verify or invalidations out"},
      {"zoneResetsWithoutZones", run({"--zone-reset-every", "9"}), "zone resets", "use another drive", 3},
      {"pinToNoList", run({"--pin", "0,,1"}), "--pin '0,,1'", "such as 0,2-5"},
      {"pinTwiceToTheSame", run({"--pin", "0-3,2"}), "--pin '0-3,2'", "and once"},
      {"pinToACpuThatIsNotThere", run({"--pin", "8191"}), "CPU 8191", "choose among these"},
      {"rateZero", run({"--rate", "0"}), "--rate '0'", "the least is 1"},
      {"settingWithoutValue", run({"--set", "Slide Reads"}), "--set 'Slide Reads'", "Option Name=value"},
      {"unknownOption", run({"--set", "Slide Reeds=1"}), "--set 'Slide Reeds=1'", "did you mean \"Slide Reads\"?"},
      {"optionOutOfRange", run({"--set", "Bucket Count=0"}), "--set 'Bucket Count=0'", "from 1 to 524288"},
      {"optionOfWrongKind", run({"--set", "Slide Reads=maybe"}), "--set 'Slide Reads=maybe'", "true or false"},
      {"conditionSet", run({"--set", "Read Condition=1"}), "--set 'Read Condition=1'", "the test selects"},
      {"pluginNotThere", run({"--plugin", "none.so"}), "--plugin 'none.so'", "give the path of an agent's library"},
      {"emptyOutput", run({"--output", ""}), "--output ''", "name a folder"},
      {"outputBelowNoFolder", run({"--output", "/dev/null/out"}), "--output '/dev/null/out'", "name a folder"},
      {"jsonInNoFolder", run({"--json", "none/x.json"}), "--json 'none/x.json'", "in a folder that exists"},
      {"jsonIsAFolder", run({"--json", "/"}), "--json '/'", "name a file"},
      {"jsonIsNoRegularFile", run({"--json", "/dev/null"}), "--json '/dev/null'", "name a file"},
      {"emptyEvents", run({"--events", ""}), "--events ''", "a file"},
      {"eventsInNoFolder", run({"--events", "none/x"}), "--events 'none/x'", "in a folder that exists"},
      {"eventsTwice", run({"--events", "a", "--events", "b"}), "--events is given twice", "give it once"},
      {"emptyJunit", run({"--junit", ""}), "--junit ''", "a file"},
      {"junitIsAFolder", run({"--junit", "/"}), "--junit '/'", "name a file"},
      {"twoOutputsInOneFile", run({"--junit", "./x", "--events", "x"}), "--junit './x' is the file of --events too",
       "give each a file of its own"},
      {"outputIntoTheDrive",
       {"run", "--drive", "file:new.img,size=1m", "--json", "new.img"},
       "--json 'new.img' is the file of --drive too",
       "give each a file of its own"},
      {"drivesWithWrongAddress", {"drives", "simm:"}, "'simm:'", "block:, file:, iscsi:, nvme:, sg: and sim:"},
      {"drivesWithTwoAddresses", {"drives", "sim:", "sim:"}, "'sim:'", "'corvane drives --help'"},
      {"usageOfNoPlugin", {"usage", "--plugin", "none.so"}, "'none.so'", "give the path"},
      {"optionsWithUnknownFlag", {"options", "--plugn", "x"}, "'--plugn'", "did you mean '--plugin'?"},
      {"reportOfNothing", {"report"}, "'corvane report' needs a run", "name the folder"},
      {"reportOfTwoRuns", {"report", "a", "b"}, "'b'", "name one run"},
      {"reportOfNoFolder", {"report", "none"}, "'none' is not there", "give the folder or the result.json"},
      {"reportOfAnEmptyFolder", {"report", "."}, "'.' holds no result", "give the folder or the file"},
      {"reportAsTextAndPage", {"report", "x", "--text", "--output", "y"}, "--text", "give one of them"},
      {"reportToNoName", {"report", "x", "--output", ""}, "--output ''", "a file"},
      {"reportWithUnknownFlag", {"report", "x", "--txt"}, "'--txt'", "did you mean '--text'?"},
      {"fileThatIsNotThere", {"run", "--drive", "file:none.img"}, "'none.img'", "size=", 3},
  };
}

class WrongCommandLineTest : public ::testing::TestWithParam<WrongLine> {};

TEST_P(WrongCommandLineTest, isRefusedInOneLineAndLeavesNothing) {
  const TempFolder folder;
  const ProgramEnd end = runCorvane(folder, GetParam().arguments);
  EXPECT_EQ(end.status, GetParam().status);
  EXPECT_EQ(end.out, "");
  EXPECT_EQ(std::count(end.err.begin(), end.err.end(), '\n'), 1) << end.err;
  EXPECT_THAT(end.err, StartsWith("corvane: "));
  EXPECT_THAT(end.err, EndsWith("\n"));
  EXPECT_THAT(end.err, HasSubstr(GetParam().offending));
  EXPECT_THAT(end.err, HasSubstr(GetParam().remedy));
  EXPECT_THAT(folder.content(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Lines, WrongCommandLineTest, ::testing::ValuesIn(wrongLines()),
                         [](const auto& line) { return std::string(line.param.name); });

TEST(WrongSecondThoughtsTest, aDriveFileThatWasThereStaysAsItIs) {
  const TempFolder folder;
  const std::string content(1 << 20, 'x');
  tests::writeFile(folder / "drive.img", content);
  const ProgramEnd end = runCorvane(folder, {"run", "--drive", "file:drive.img", "--range", "0..1m"});
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(tests::readFile(folder / "drive.img"), content);
}

TEST(WrongSecondThoughtsTest, whatNobodyAskedForByNameStaysAsItIs) {
  const TempFolder folder;
  tests::writeFile(folder / "events", "old");
  std::filesystem::create_directory(folder / "out");
  tests::writeFile(folder / "out/result.json", "old");
  const ProgramEnd end =
      runCorvane(folder, run({"--output", "out", "--events", "events", "--junit", "none/x", "--xfer", "1..9"}));
  EXPECT_EQ(end.status, 2);
  EXPECT_EQ(tests::readFile(folder / "out/result.json"), "old");
  EXPECT_EQ(tests::readFile(folder / "events"), "old");
}

TEST(WrongSecondThoughtsTest, aDocumentThatWasAskedForSaysWhyThereWasNoTest) {
  const TempFolder folder;
  tests::writeFile(folder / "my.json", "old");
  const ProgramEnd end = runCorvane(folder, run({"--json", "my.json", "--output", "/dev/null/out"}));
  EXPECT_EQ(end.status, 2);
  const nlohmann::json document = nlohmann::json::parse(tests::readFile(folder / "my.json"));
  EXPECT_EQ(document["status"], "configuration error");
  EXPECT_EQ(document["exitStatus"], 2);
  EXPECT_EQ("corvane: " + document["error"].get<std::string>() + "\n", end.err);
}

TEST(WrongSecondThoughtsTest, anOutputThatWouldReplaceTheDriveIsRefusedUntouched) {
  const TempFolder folder;
  const std::string content(1 << 20, 'x');
  tests::writeFile(folder / "drive.img", content);
  std::filesystem::create_hard_link(folder / "drive.img", folder / "other");
  for (const char* flag : {"--json", "--events", "--junit"}) {
    const ProgramEnd end = runCorvane(folder, {"run", "--drive", "file:drive.img", flag, "other"});
    EXPECT_EQ(end.status, 2);
    EXPECT_THAT(end.err, HasSubstr("is the file of --drive too"));
    EXPECT_EQ(tests::readFile(folder / "drive.img"), content);
  }
}

}  // namespace
}  // namespace corvane::host
