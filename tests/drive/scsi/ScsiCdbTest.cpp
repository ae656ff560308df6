#include "host/drive/scsi/ScsiCdb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvane::host {
namespace {

using ::testing::ElementsAre;

constexpr uint64_t lba = 0x0102030405060708;
constexpr CdbBits plain{};
constexpr CdbBits forcedAndProtected{.protection = 3, .forceUnitAccess = true};

TEST(ScsiCdb, TestUnitReadyIsAllZeros) {
  EXPECT_THAT(cdb::testUnitReady(), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(ScsiCdb, AnInquiryHasItsLengthInTwoBytesAndAPageSetsItsBit) {
  EXPECT_THAT(cdb::inquiry(0x0124), ElementsAre(0x12, 0, 0, 1, 0x24, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(cdb::inquiryPage(0xB0, 0x0040), ElementsAre(0x12, 1, 0xB0, 0, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(ScsiCdb, ReadCapacity16IsAServiceAction) {
  EXPECT_THAT(cdb::readCapacity16(32), ElementsAre(0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0));
}

TEST(ScsiCdb, ModeSenseAsksForNoBlockDescriptors) {
  EXPECT_THAT(cdb::modeSense6(0x08, 0xFC), ElementsAre(0x1A, 8, 8, 0, 0xFC, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(cdb::modeSense10(0x0A, 0x0102), ElementsAre(0x5A, 8, 0x0A, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 0, 0, 0));
}

TEST(ScsiCdb, ReportSupportedOperationCodesAsksAboutOneCode) {
  EXPECT_THAT(cdb::reportSupportedOperation(0x93, 0x0114),
              ElementsAre(0xA3, 0x0C, 1, 0x93, 0, 0, 0, 0, 1, 0x14, 0, 0, 0, 0, 0, 0));
}

TEST(ScsiCdb, Read16AndWrite16CarryProtectionAndForcedUnitAccess) {
  EXPECT_THAT(cdb::read16(lba, 0x11223344, plain),
              ElementsAre(0x88, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x22, 0x33, 0x44, 0, 0));
  EXPECT_THAT(cdb::read16(lba, 1, forcedAndProtected),
              ElementsAre(0x88, 0x68, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 1, 0, 0));
  EXPECT_THAT(cdb::write16(lba, 0x11223344, plain),
              ElementsAre(0x8A, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x22, 0x33, 0x44, 0, 0));
  EXPECT_THAT(cdb::write16(lba, 1, forcedAndProtected),
              ElementsAre(0x8A, 0x68, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 1, 0, 0));
}

TEST(ScsiCdb, WriteAtomic16HasItsBoundaryBeforeItsLength) {
  EXPECT_THAT(cdb::writeAtomic16(lba, 0x1122, 0x0304, plain),
              ElementsAre(0x9C, 0, 1, 2, 3, 4, 5, 6, 7, 8, 3, 4, 0x11, 0x22, 0, 0));
  EXPECT_THAT(cdb::writeAtomic16(lba, 8, 0, forcedAndProtected),
              ElementsAre(0x9C, 0x68, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 8, 0, 0));
}

TEST(ScsiCdb, Verify16ChecksBytesAndForcesNoUnitAccess) {
  EXPECT_THAT(cdb::verify16(lba, 0x11223344, plain),
              ElementsAre(0x8F, 2, 1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x22, 0x33, 0x44, 0, 0));
  EXPECT_THAT(cdb::verify16(lba, 1, forcedAndProtected),
              ElementsAre(0x8F, 0x62, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 1, 0, 0));
}

TEST(ScsiCdb, WriteSame16UnmapsWhenAskedAndForcesNoUnitAccess) {
  EXPECT_THAT(cdb::writeSame16(lba, 0x11223344, false, plain),
              ElementsAre(0x93, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x22, 0x33, 0x44, 0, 0));
  EXPECT_THAT(cdb::writeSame16(lba, 1, true, forcedAndProtected),
              ElementsAre(0x93, 0x68, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 1, 0, 0));
}

TEST(ScsiCdb, UnmapNamesTheLengthOfItsList) {
  EXPECT_THAT(cdb::unmap(24), ElementsAre(0x42, 0, 0, 0, 0, 0, 0, 0, 24, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(cdb::unmapParameterList(lba, 0x11223344),
              ElementsAre(0, 22, 0, 16, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x22, 0x33, 0x44, 0, 0, 0, 0));
}

TEST(ScsiCdb, SynchronizeCache16CoversTheMedium) {
  EXPECT_THAT(cdb::synchronizeCache16(), ElementsAre(0x91, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(ScsiCdb, AnOperationCodesGroupSaysHowLongItsBlockIs) {
  EXPECT_EQ(cdbBytesOf(scsi_operation::testUnitReady), 6U);
  EXPECT_EQ(cdbBytesOf(scsi_operation::inquiry), 6U);
  EXPECT_EQ(cdbBytesOf(scsi_operation::unmap), 10U);
  EXPECT_EQ(cdbBytesOf(scsi_operation::modeSense10), 10U);
  EXPECT_EQ(cdbBytesOf(scsi_operation::maintenanceIn), 12U);
  EXPECT_EQ(cdbBytesOf(scsi_operation::read16), 16U);
  EXPECT_EQ(cdbBytesOf(scsi_operation::serviceActionIn16), 16U);
}

}  // namespace
}  // namespace corvane::host
