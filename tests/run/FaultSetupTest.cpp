#include "host/run/FaultSetup.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

TEST(FaultSetup, NamesTheCommandsThatATestIssues) {
  TestDefinition test;
  EXPECT_THAT(faultSurroundings(test).kinds, ElementsAre(CommandKind::write, CommandKind::read));
  test.mix = {.write = 0, .writeAtomic = 1, .writeSame = 2, .trim = 3, .read = 0, .verify = 1};
  test.zoneResetEveryCommands = 5;
  test.invalidateEveryCommands = 5;
  test.powerToggle = PowerToggle::withSync;
  EXPECT_THAT(faultSurroundings(test).kinds,
              ElementsAre(CommandKind::writeAtomic, CommandKind::writeSame, CommandKind::trim, CommandKind::verify,
                          CommandKind::zoneReset, CommandKind::invalidate, CommandKind::syncCache));
}

TEST(FaultSetup, TellsLengthsDrivesAndPowerCuts) {
  TestDefinition test;
  test.maxBlocks = 9;
  test.maxAtomicBound = 3;
  test.driveAddresses = {"sim:1m", "sim:2m"};
  FaultSurroundings surroundings = faultSurroundings(test);
  EXPECT_EQ(surroundings.maxBlocks, 9U);
  EXPECT_EQ(surroundings.maxAtomicBound, 3U);
  EXPECT_EQ(surroundings.drives, 2U);
  EXPECT_FALSE(surroundings.powerCuts);
  test.powerToggle = PowerToggle::withoutSync;
  surroundings = faultSurroundings(test);
  EXPECT_TRUE(surroundings.powerCuts);
  EXPECT_THAT(surroundings.kinds, ElementsAre(CommandKind::write, CommandKind::read)) << "nobody flushes";
}

}  // namespace
}  // namespace corvane::host
