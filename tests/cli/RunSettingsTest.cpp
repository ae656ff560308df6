#include "host/cli/RunSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

TEST(RepeatCommandTest, leavesDefaultsOutButNeverTheSeed) {
  RunSettings settings;
  settings.test.driveAddresses = {"sim:1g"};
  settings.test.seed = 77;
  EXPECT_THAT(repeatCommand(settings), ElementsAre("corvane", "run", "--drive", "sim:1g", "--seed", "77"));
}

TEST(RepeatCommandTest, namesEverythingThatWasChosen) {
  RunSettings settings;
  TestDefinition& test = settings.test;
  test.driveAddresses = {"sim:1g", "file:a b"};
  test.timeLimitMs = 90'000;
  test.commandLimit = 5;
  test.seed = 3;
  test.queueDepth = 7;
  test.minBlocks = 2;
  test.maxBlocks = 9;
  test.lbaAgent = "sequential";
  test.firstLba = 10;
  test.endLba = 20;
  test.stepLimit = 6;
  test.mix.trim = 4;
  test.minAtomicBound = 3;
  test.maxAtomicBound = 4;
  test.e2ePercent = 50;
  test.powerToggle = PowerToggle::withSync;
  test.resetEveryCommands = 100;
  test.zoneResetEveryCommands = 200;
  test.invalidateEveryCommands = 300;
  test.forceUnitAccess = true;
  test.faults = {parseFaultSpec("lost-write:rate=0.001"), parseFaultSpec("torn-write:at=command:9")};
  test.commandsPerSecond = 1500;
  test.agentOptions = {{"Slide Reads", "true"}, {"Trace Depth", "5"}};
  test.outputDirectory = "out";
  test.pluginPath = "./mine.so";
  settings.pluginGiven = true;
  EXPECT_THAT(repeatCommand(settings),
              ElementsAre("corvane", "run", "--drive", "sim:1g", "--drive", "file:a b", "--time", "90s", "--commands",
                          "5", "--steps", "6", "--range", "10..20", "--seed", "3", "--commands-of", "write,trim=4,read",
                          "--queue-depth", "7", "--xfer", "2..9", "--lba-agent", "sequential", "--atomic-bound", "3..4",
                          "--e2e", "50", "--fua", "--rate", "1500", "--reset-every", "100", "--zone-reset-every", "200",
                          "--invalidate-every", "300", "--power-toggle", "sync", "--fault", "lost-write:rate=0.001",
                          "--fault", "torn-write:at=command:9", "--set", "Slide Reads=true", "--set", "Trace Depth=5",
                          "--plugin", "./mine.so", "--output", "out"));
}

TEST(RepeatCommandTest, leavesAnOpenRangeOpen) {
  RunSettings settings;
  settings.test.firstLba = 64;
  EXPECT_THAT(repeatCommand(settings), ElementsAre("corvane", "run", "--range", "64..", "--seed", "1"));
}

TEST(RepeatCommandTest, doesNotNameTheUsualFolderNorWhatIsOnlySaid) {
  RunSettings settings;
  settings.test.outputDirectory = usualOutputDirectory;
  settings.quiet = true;
  settings.jsonPath = "x.json";
  settings.jsonGiven = true;
  EXPECT_THAT(repeatCommand(settings), ElementsAre("corvane", "run", "--seed", "1"));
}

TEST(NameOfTest, isTheFlagUnlessAFileNamesThePlace) {
  RunSettings settings;
  settings.places["xfer"] = "x.toml:3: xfer";
  settings.entryPlaces[{"drive", "sim:1g"}] = "x.toml:4: drive";
  EXPECT_EQ(nameOf(settings, "xfer"), "x.toml:3: xfer");
  EXPECT_EQ(nameOf(settings, "seed"), "--seed");
  EXPECT_EQ(nameOfEntry(settings, "drive", "sim:1g"), "x.toml:4: drive");
  EXPECT_EQ(nameOfEntry(settings, "drive", "sim:2g"), "--drive");
}

TEST(RepeatCommandTest, doesNotNameThePluginThatComesWithTheProgram) {
  RunSettings settings;
  settings.test.pluginPath = "/usr/lib/usual.so";
  EXPECT_THAT(repeatCommand(settings), ElementsAre("corvane", "run", "--seed", "1"));
}

}  // namespace
}  // namespace corvane::host
