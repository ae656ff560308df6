#include "host/run/CdbBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

DriveCommand command(CommandKind kind) {
  DriveCommand made;
  made.kind = kind;
  made.lba = 0x0102030405060708;
  made.blocks = 0x1122;
  made.atomicBound = 0x0304;
  return made;
}

TEST(CdbBuilder, Write16CarriesForceUnitAccessAndProtection) {
  DriveCommand write = command(CommandKind::write);
  EXPECT_THAT(buildCdb(write, 0), ElementsAre(0x8A, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0x11, 0x22, 0, 0));
  write.forceUnitAccess = true;
  EXPECT_THAT(buildCdb(write, 3), ElementsAre(0x8A, 0x68, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0x11, 0x22, 0, 0));
}

TEST(CdbBuilder, Read16) {
  EXPECT_THAT(buildCdb(command(CommandKind::read), 1),
              ElementsAre(0x88, 0x20, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0x11, 0x22, 0, 0));
}

TEST(CdbBuilder, Verify16ChecksAgainstTheDataThatIsSent) {
  EXPECT_THAT(buildCdb(command(CommandKind::verify), 1),
              ElementsAre(0x8F, 0x22, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0x11, 0x22, 0, 0));
}

TEST(CdbBuilder, WriteSame16HasNoForceUnitAccess) {
  DriveCommand same = command(CommandKind::writeSame);
  same.forceUnitAccess = true;
  EXPECT_THAT(buildCdb(same, 1), ElementsAre(0x93, 0x20, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0x11, 0x22, 0, 0));
}

TEST(CdbBuilder, WriteAtomic16CarriesItsBoundary) {
  EXPECT_THAT(buildCdb(command(CommandKind::writeAtomic), 0),
              ElementsAre(0x9C, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x03, 0x04, 0x11, 0x22, 0, 0));
}

TEST(CdbBuilder, SynchronizeCache16CoversTheMedium) {
  EXPECT_THAT(buildCdb(command(CommandKind::syncCache), 0),
              ElementsAre(0x91, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(CdbBuilder, UnmapNamesTheLengthOfItsList) {
  EXPECT_THAT(buildCdb(command(CommandKind::trim), 0), ElementsAre(0x42, 0, 0, 0, 0, 0, 0, 0, 24, 0, 0, 0, 0, 0, 0, 0));
}

}  // namespace
}  // namespace corvane::host
