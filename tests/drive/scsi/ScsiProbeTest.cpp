// What `probeScsiUnit` finds out, refuses and relies on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/drive/scsi/OpenFakeUnit.h"

namespace corvane::tests {
namespace {

using host::Bytes;
using host::DriveCommand;
using host::ScsiDriveSettings;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace operation = host::scsi_operation;

constexpr host::Sense becomingReady{0x02, 0x04, 0x01};

TEST(ScsiProbe, SaysWhatTheUnitIs) {
  OpenFakeUnit opened;
  EXPECT_EQ(
      opened.drive->description(),
      "fake unit, ACME Spinning Rust 1.5, serial SN42, 2 MiB, 512-byte blocks, write-back cache, verifies itself, "
      "trims by WRITE SAME with UNMAP, no atomic writes (its block limits name no atomic transfer length)");
  const host::DriveGeometry& geometry = opened.drive->geometry();
  EXPECT_EQ(geometry.blocks, 4096U);
  EXPECT_EQ(geometry.blockSize, 512U);
  EXPECT_EQ(geometry.protectionBytes, 0U);
  EXPECT_EQ(geometry.physicalExponent, 3U);
  const host::DriveCapabilities& can = opened.drive->capabilities();
  EXPECT_TRUE(can.writeSame && can.trim && can.verify && can.syncCache && can.deviceReset && can.volatileCache);
  EXPECT_FALSE(can.atomicWrite || can.powerToggle || can.zoneReset || can.hostManaged || can.invalidate);
  EXPECT_FALSE(can.worksInCalls);
}

TEST(ScsiProbe, WithoutASerialNumberTheWorldWideNameStands) {
  FakeUnitTraits traits;
  traits.pages = {0x83};
  EXPECT_THAT(OpenFakeUnit(traits).drive->description(), HasSubstr("1.5, naa.5001020304050607, 2 MiB"));
}

TEST(ScsiProbe, NothingIsWrittenToLearnAboutAUnit) {
  FakeUnitTraits traits;
  EXPECT_EQ(unitComplaint(traits), "accepted");
  traits.answersSupport = false;
  traits.limits.mostAtomic = 8;
  EXPECT_EQ(unitComplaint(traits), "accepted");
  EXPECT_EQ(unitComplaint(traits, {.trim = ScsiDriveSettings::Trim::unmap}), "accepted");
  OpenFakeUnit opened(traits);
  EXPECT_EQ(opened.unit->content(0, 4096), std::vector<uint8_t>(4096 * 512, 0xA5));
}

TEST(ScsiProbe, RefusesWhatIsNoDisk) {
  FakeUnitTraits traits;
  traits.deviceType = 0x01;
  EXPECT_EQ(unitComplaint(traits), "fake unit: it is a tape drive; name a disk (direct access block device)");
  traits.deviceType = 0x05;
  EXPECT_THAT(unitComplaint(traits), HasSubstr("it is a CD or DVD drive"));
  traits.deviceType = 0x14;
  EXPECT_THAT(unitComplaint(traits), HasSubstr("it is a host-managed zoned disk"));
  traits.deviceType = 0x1D;
  EXPECT_THAT(unitComplaint(traits), HasSubstr("it is a device of type 1dh"));
  traits.deviceType = 0x1F;
  traits.qualifier = 3;
  EXPECT_EQ(unitComplaint(traits),
            "fake unit: no device is there (peripheral qualifier 3); see which units the target has");
}

TEST(ScsiProbe, RefusesWhatCannotBeTested) {
  FakeUnitTraits traits;
  traits.writeProtected = true;
  EXPECT_EQ(unitComplaint(traits), "fake unit: it is write-protected; name one that can be written");
  traits.answersShortMode = false;
  EXPECT_EQ(unitComplaint(traits), "fake unit: it is write-protected; name one that can be written");
  traits = {};
  traits.blockBytes = 520;
  EXPECT_THAT(unitComplaint(traits), HasSubstr("its blocks have 520 bytes"));
  traits = {};
  traits.refused = {operation::serviceActionIn16};
  EXPECT_THAT(unitComplaint(traits), HasSubstr("does not answer READ CAPACITY(16)"));
  traits.refused = {operation::inquiry};
  EXPECT_THAT(unitComplaint(traits), HasSubstr("does not answer INQUIRY"));
  traits.refused = {operation::read16};
  EXPECT_EQ(unitComplaint(traits), "fake unit: it does not take READ(16)");
  traits.refused = {operation::write16};
  EXPECT_EQ(unitComplaint(traits), "fake unit: it does not take WRITE(16)");
  traits = {};
  traits.mostBytes = 511;
  EXPECT_THAT(unitComplaint(traits), HasSubstr("one request carries 511 bytes, less than a block"));
}

TEST(ScsiProbe, UnitAttentionsAndBusyAnswersAtTheStartAreNoHindrance) {
  FakeUnitTraits traits;
  traits.attentions = 5;
  traits.busyAnswers = 2;
  EXPECT_EQ(unitComplaint(traits), "accepted");
  traits.descriptorSense = true;
  EXPECT_EQ(unitComplaint(traits), "accepted");
}

TEST(ScsiProbe, AUnitAttentionThatNeverEndsIsReported) {
  FakeUnitTraits traits;
  traits.attentions = 1000000;
  EXPECT_EQ(unitComplaint(traits), "fake unit: it does not get ready (06/29/00); see its own log");
}

TEST(ScsiProbe, WaitsForAUnitThatIsBecomingReadyButNotForEver) {
  FakeUnitTraits traits;
  traits.notReady = becomingReady;
  traits.notReadyAnswers = 2;
  EXPECT_EQ(unitComplaint(traits), "accepted");
  traits.notReadyAnswers = 1000000;
  EXPECT_EQ(unitComplaint(traits, {.readySeconds = 0}),
            "fake unit: it is still becoming ready (02/04/01) after 0 s; wait for it, or give it longer with "
            "ready=SECONDS");
}

TEST(ScsiProbe, AsksAgainWhereTheFirstCommandsAreAbortedButNotForEver) {
  FakeUnitTraits traits;
  for (const host::Sense& aborted : {host::Sense{0x0B, 0x4B, 0x03}, host::sense::abortedByInternalFailure}) {
    traits.notReady = aborted;
    traits.notReadyAnswers = 2;
    EXPECT_EQ(unitComplaint(traits), "accepted");
  }
  traits.notReady = {0x0B, 0x4B, 0x03};
  traits.notReadyAnswers = 1000000;
  EXPECT_EQ(unitComplaint(traits, {.readySeconds = 0}),
            "fake unit: it still aborts commands (0B/4B/03) after 0 s; wait for it, or give it longer with "
            "ready=SECONDS");
}

TEST(ScsiProbe, SaysWhatAUnitThatIsNotReadyNeeds) {
  FakeUnitTraits traits;
  traits.notReadyAnswers = 1000000;
  traits.notReady = {0x02, 0x3A, 0x00};
  EXPECT_EQ(unitComplaint(traits), "fake unit: it has no medium (02/3A/00); insert one");
  traits.notReady = {0x02, 0x04, 0x02};
  EXPECT_EQ(unitComplaint(traits), "fake unit: it is stopped (02/04/02); start it with START STOP UNIT");
  traits.notReady = {0x02, 0x04, 0x04};
  EXPECT_THAT(unitComplaint(traits), StartsWith("fake unit: it is being formatted (02/04/04)"));
  traits.notReady = {0x02, 0x04, 0x03};
  EXPECT_EQ(unitComplaint(traits), "fake unit: it is not ready (02/04/03); see its own log");
  traits.notReady = {0x04, 0x44, 0x00};
  EXPECT_EQ(unitComplaint(traits), "fake unit: it does not get ready (04/44/00); see its own log");
}

/// With and without a report of supported operation codes, which must lead to the same.
class ScsiProbeOf : public testing::TestWithParam<bool> {
 protected:
  ScsiProbeOf() { traits.answersSupport = GetParam(); }
  FakeUnitTraits traits;
};

TEST_P(ScsiProbeOf, AVerifyThatTheUnitRefusesIsDoneByTheHost) {
  EXPECT_THAT(OpenFakeUnit(traits).drive->description(), HasSubstr(", verifies itself"));
  traits.refused = {operation::verify16};
  OpenFakeUnit opened(traits);
  EXPECT_TRUE(opened.drive->capabilities().verify);
  EXPECT_THAT(opened.drive->description(), HasSubstr("verifies are read and compared here"));
  EXPECT_EQ(unitComplaint(traits, {.verify = ScsiDriveSettings::Verify::byUnit}),
            "fake unit: it does not take VERIFY(16) with data; leave verify=device out");
}

TEST_P(ScsiProbeOf, APromisedUnmapBitIsNotReliedOn) {
  traits.takesUnmapBit = false;
  OpenFakeUnit opened(traits);
  EXPECT_TRUE(opened.drive->capabilities().trim);
  EXPECT_THAT(opened.drive->description(), HasSubstr("trims by WRITE SAME of zeros"));
  EXPECT_THAT(unitComplaint(traits, {.trim = ScsiDriveSettings::Trim::writeSame}),
              HasSubstr("it cannot be trimmed so"));
}

TEST_P(ScsiProbeOf, WithoutWriteSameThereAreNoTrims) {
  traits.refused = {operation::writeSame16};
  OpenFakeUnit opened(traits);
  EXPECT_FALSE(opened.drive->capabilities().trim);
  EXPECT_TRUE(opened.drive->capabilities().writeSame);
  EXPECT_THAT(opened.drive->description(), HasSubstr("no trims (it does not take WRITE SAME(16))"));
}

TEST_P(ScsiProbeOf, UnmapIsTakenOnlyWhenItIsAskedForAndLeavesZeros) {
  const ScsiDriveSettings byUnmap{.trim = ScsiDriveSettings::Trim::unmap};
  EXPECT_THAT(OpenFakeUnit(traits, byUnmap).drive->description(), HasSubstr(", trims by UNMAP"));
  traits.refused = {operation::unmap};
  EXPECT_EQ(unitComplaint(traits, byUnmap),
            "fake unit: it cannot be trimmed so: it does not take UNMAP; leave trim= out");
  traits.refused = {};
  traits.zerosByCapacity = false;
  EXPECT_EQ(unitComplaint(traits, byUnmap), "accepted");
  traits.provisioning.readsZeros = false;
  EXPECT_EQ(unitComplaint(traits, byUnmap),
            "fake unit: it cannot be trimmed so: its unmapped blocks need not read as zeros; leave trim= out");
}

TEST_P(ScsiProbeOf, PromisedAtomicWritesAreNotReliedOn) {
  traits.limits.mostAtomic = 16;
  EXPECT_TRUE(OpenFakeUnit(traits).drive->capabilities().atomicWrite);
  traits.refused = {operation::writeAtomic16};
  OpenFakeUnit opened(traits);
  EXPECT_FALSE(opened.drive->capabilities().atomicWrite);
  EXPECT_THAT(opened.drive->description(),
              HasSubstr("no atomic writes (its block limits promise them, but it does not take WRITE ATOMIC(16))"));
}

TEST_P(ScsiProbeOf, AUnitWithoutSynchronizeCacheIsNotFlushed) {
  EXPECT_TRUE(OpenFakeUnit(traits).drive->capabilities().syncCache);
  traits.refused = {operation::synchronizeCache16};
  EXPECT_FALSE(OpenFakeUnit(traits).drive->capabilities().syncCache);
}

INSTANTIATE_TEST_SUITE_P(Report, ScsiProbeOf, testing::Bool(),
                         [](const auto& test) { return test.param ? "Given" : "Refused"; });

TEST(ScsiProbe, UnmappedBlocksThatNeedNotReadAsZerosAreWritten) {
  FakeUnitTraits traits;
  traits.zerosByCapacity = false;
  traits.provisioning.readsZeros = false;
  EXPECT_THAT(OpenFakeUnit(traits).drive->description(), HasSubstr("trims by WRITE SAME of zeros"));
}

TEST(ScsiProbe, WithoutAProvisioningPageTheCapacityDecides) {
  FakeUnitTraits traits;
  traits.pages = {0xB0};
  EXPECT_THAT(OpenFakeUnit(traits).drive->description(), HasSubstr("trims by WRITE SAME with UNMAP"));
  traits.provisioned = false;
  EXPECT_THAT(OpenFakeUnit(traits).drive->description(), HasSubstr("trims by WRITE SAME of zeros"));
}

TEST(ScsiProbe, TrimsCanBeSwitchedOff) {
  OpenFakeUnit opened({}, {.trim = ScsiDriveSettings::Trim::never});
  EXPECT_FALSE(opened.drive->capabilities().trim);
  EXPECT_THAT(opened.drive->description(), HasSubstr("no trims (trim=off)"));
}

TEST(ScsiProbe, TheCachingPageSaysWhetherTheCacheIsVolatile) {
  FakeUnitTraits traits;
  traits.writeBackCache = false;
  EXPECT_FALSE(OpenFakeUnit(traits).drive->capabilities().volatileCache);
  traits.answersShortMode = false;
  EXPECT_FALSE(OpenFakeUnit(traits).drive->capabilities().volatileCache);
  traits.refused = {operation::modeSense10};
  EXPECT_TRUE(OpenFakeUnit(traits).drive->capabilities().volatileCache);
}

TEST(ScsiProbe, WithoutACachingPageAnotherOneSaysWhetherTheUnitMayBeWritten) {
  FakeUnitTraits traits;
  traits.hasCachingPage = false;
  OpenFakeUnit opened(traits);
  EXPECT_TRUE(opened.drive->capabilities().volatileCache);
  Bytes data(512);
  DriveCommand write = opened.commands->make(host::CommandKind::write, 5, 1, &data);
  write.forceUnitAccess = true;
  opened.commands->run(write);
  EXPECT_EQ(opened.unit->seen, std::vector<host::Cdb>{host::cdb::write16(5, 1, {.forceUnitAccess = true})});
  traits.writeProtected = true;
  EXPECT_EQ(unitComplaint(traits), "fake unit: it is write-protected; name one that can be written");
}

TEST(ScsiProbe, ProtectionInformationIsLeftAloneUnlessItIsAskedFor) {
  FakeUnitTraits traits;
  traits.protectionType = 1;
  OpenFakeUnit plain(traits);
  EXPECT_EQ(plain.drive->geometry().protectionBytes, 0U);
  EXPECT_THAT(plain.drive->description(), HasSubstr("protection type 1 (not transferred)"));
  OpenFakeUnit with(traits, {.protection = true});
  EXPECT_EQ(with.drive->geometry().protectionBytes, 8U);
  EXPECT_THAT(with.drive->description(), HasSubstr("protection type 1 (transferred, not checked)"));
  EXPECT_FALSE(with.drive->capabilities().trim);
}

TEST(ScsiProbe, RefusesProtectionInformationThatCannotBeTransferred) {
  const ScsiDriveSettings protection{.protection = true};
  FakeUnitTraits traits;
  EXPECT_THAT(unitComplaint(traits, protection), HasSubstr("it is formatted without protection information"));
  traits.protectionType = 2;
  EXPECT_THAT(unitComplaint(traits, protection), HasSubstr("protection type 2 is transferred by 32-byte commands"));
  EXPECT_EQ(unitComplaint(traits), "accepted");
  traits.protectionType = 3;
  EXPECT_EQ(unitComplaint(traits, protection), "accepted");
  traits.keepsApplicationTags = false;
  EXPECT_THAT(unitComplaint(traits, protection), HasSubstr("it may change application tags by itself"));
  traits.keepsApplicationTags = true;
  traits.intervalExponent = 1;
  EXPECT_THAT(unitComplaint(traits, protection), HasSubstr("inside the blocks, not behind them"));
}

TEST(ScsiProbe, TheTransportLimitsTheDepth) {
  FakeUnitTraits traits;
  EXPECT_EQ(OpenFakeUnit(traits).drive->maxOutstanding(), fakeDepth);
  traits.mostRequests = 4;
  EXPECT_EQ(OpenFakeUnit(traits).drive->maxOutstanding(), 4U);
}

}  // namespace
}  // namespace corvane::tests
