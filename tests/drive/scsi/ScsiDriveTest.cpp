#include "host/drive/scsi/ScsiDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "host/base/BigEndian.h"
#include "tests/drive/scsi/OpenFakeUnit.h"

namespace corvane::tests {
namespace {

using host::Bytes;
using host::Cdb;
using host::CommandKind;
using host::DriveCommand;
using host::DriveCompletion;
using host::randomBytes;
using host::ScsiDriveSettings;
using ::testing::ElementsAre;
namespace operation = host::scsi_operation;
namespace status = host::scsi_status;

constexpr uint32_t sector = 512;

struct Extent {
  uint64_t lba;
  uint32_t blocks;
  bool operator==(const Extent&) const = default;
};

void PrintTo(const Extent& extent, std::ostream* out) { *out << extent.lba << "+" << extent.blocks; }

std::vector<Extent> extentsOf(const std::vector<Cdb>& cdbs) {
  std::vector<Extent> extents;
  for (const Cdb& cdb : cdbs) {
    const bool atomic = cdb[0] == operation::writeAtomic16;
    extents.push_back({host::getBigEndian<uint64_t>(&cdb[2]),
                       atomic ? host::getBigEndian<uint16_t>(&cdb[12]) : host::getBigEndian<uint32_t>(&cdb[10])});
  }
  return extents;
}

std::vector<uint8_t> codesOf(const std::vector<Cdb>& cdbs) {
  std::vector<uint8_t> codes;
  for (const Cdb& cdb : cdbs) {
    codes.push_back(cdb[0]);
  }
  return codes;
}

bool isZero(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

/// Carries out what is outstanding as late as it can.
class LateUnit : public FakeScsiUnit {
 public:
  LateUnit(const FakeUnitTraits& its, uint32_t& answered) : FakeScsiUnit(its), answered_(answered) {}
  ~LateUnit() override {
    host::ScsiReply reply;
    while (poll(reply, true)) {
      ++answered_;
    }
  }
  LateUnit(const LateUnit&) = delete;
  LateUnit& operator=(const LateUnit&) = delete;

 private:
  uint32_t& answered_;
};

TEST(ScsiDriveEnd, LeavesItsMemoryToRequestsUntilTheTransportIsGone) {
  uint32_t answered = 0;
  Bytes data(2 * sector);
  {
    auto unit = std::make_unique<LateUnit>(FakeUnitTraits{}, answered);
    const std::unique_ptr<host::Drive> drive = host::makeScsiDrive(std::move(unit), {}, 4);
    // Every other block, through memory of the drive's own.
    DriveCommand read = host::CommandMaker(*drive).make(CommandKind::read, 0, 2, &data);
    read.lbaStep = 2;
    drive->submit(read);
  }
  EXPECT_EQ(answered, 1U);
}

FakeUnitTraits withTransferLimit(uint32_t blocks) {
  FakeUnitTraits traits;
  traits.limits.mostTransfer = blocks;
  return traits;
}

TEST(ScsiDrive, AWriteIsOneCommandAndItsBytesComeToTheMedium) {
  OpenFakeUnit opened;
  Bytes data = randomBytes(1, 3 * sector);
  EXPECT_EQ(opened.commands->run(CommandKind::write, 7, 3, &data).status, status::good);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::write16(7, 3, {})));
  EXPECT_EQ(opened.unit->lastCdbBytes, 16U);
  EXPECT_EQ(opened.unit->content(7, 3), data);
}

TEST(ScsiDrive, TheLengthOfACommandIsCutByTheBlockLimits) {
  OpenFakeUnit opened(withTransferLimit(4));
  Bytes data = randomBytes(1, 10 * sector);
  opened.commands->run(CommandKind::write, 100, 10, &data);
  EXPECT_THAT(extentsOf(opened.unit->seenOf(operation::write16)),
              ElementsAre(Extent{100, 4}, Extent{104, 4}, Extent{108, 2}));
  EXPECT_EQ(opened.commands->read(100, 10), data);
  EXPECT_EQ(opened.unit->seenOf(operation::read16).size(), 3U);
  opened.commands->run(CommandKind::verify, 100, 10, &data);
  EXPECT_EQ(opened.unit->seenOf(operation::verify16).size(), 3U);
}

TEST(ScsiDrive, TheLengthOfACommandIsCutByTheTransport) {
  FakeUnitTraits traits;
  traits.mostBytes = 2 * sector + 100;
  OpenFakeUnit opened(traits);
  Bytes data = randomBytes(1, 5 * sector);
  opened.commands->run(CommandKind::write, 100, 5, &data);
  EXPECT_THAT(extentsOf(opened.unit->seen), ElementsAre(Extent{100, 2}, Extent{102, 2}, Extent{104, 1}));
  EXPECT_EQ(opened.commands->read(100, 5), data);
}

TEST(ScsiDrive, AnErrorEndsACutCommandWithTheUnitsOwnLba) {
  OpenFakeUnit opened(withTransferLimit(4));
  Bytes data = randomBytes(1, 12 * sector);
  opened.unit->fault = {operation::write16, 106, host::sense::writeError};
  const DriveCompletion failed = opened.commands->run(CommandKind::write, 100, 12, &data);
  EXPECT_EQ(host::senseNumber(failed), 0x030C00U);
  EXPECT_EQ(host::senseInformation(failed), 106U);
  EXPECT_EQ(opened.unit->seen.size(), 2U);
  opened.unit->fault = {operation::read16, 109, host::sense::unrecoveredRead};
  const DriveCompletion unread = opened.commands->run(CommandKind::read, 100, 12, &data);
  EXPECT_EQ(host::senseInformation(unread), 109U);
  EXPECT_EQ(unread.bytesTransferred, 0U);
}

TEST(ScsiDrive, DescriptorSenseGoesUpAsItCame) {
  FakeUnitTraits traits;
  traits.descriptorSense = true;
  OpenFakeUnit opened(traits);
  Bytes data(sector);
  opened.unit->fault = {operation::read16, 9, host::sense::unrecoveredRead};
  const DriveCompletion failed = opened.commands->run(CommandKind::read, 9, 1, &data);
  EXPECT_EQ(failed.senseBytes, 20U);
  EXPECT_THAT(std::vector<uint8_t>(failed.sense.begin(), failed.sense.begin() + 20),
              ElementsAre(0x72, 0x03, 0x11, 0x00, 0, 0, 0, 12, 0, 10, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 9));
}

/// A unit that tells of 252 bytes of sense data, of which the way to it brings few.
class TalkativeUnit : public FakeScsiUnit {
 public:
  using FakeScsiUnit::FakeScsiUnit;
  bool poll(host::ScsiReply& out, bool wait) override {
    const bool answered = FakeScsiUnit::poll(out, wait);
    if (answered && out.senseBytes != 0) {
      out.sense[7] = 244;
    }
    return answered;
  }
};

TEST(ScsiDrive, SenseDataAnnounceNoMoreThanCame) {
  auto transport = std::make_unique<TalkativeUnit>(FakeUnitTraits());
  FakeScsiUnit& unit = *transport;
  const std::unique_ptr<host::Drive> drive = host::makeScsiDrive(std::move(transport), {}, 4);
  host::CommandMaker commands(*drive);
  Bytes data(sector);
  unit.fault = {operation::read16, 9, host::sense::unrecoveredRead};
  const DriveCompletion failed = commands.run(CommandKind::read, 9, 1, &data);
  EXPECT_EQ(failed.senseBytes, 18U);
  EXPECT_EQ(failed.sense[7], 10);
}

TEST(ScsiDrive, WhatSaysNothingAboutTheDataGoesUp) {
  OpenFakeUnit opened;
  Bytes data(sector);
  for (const uint32_t answer : {status::busy, status::taskSetFull, status::reservationConflict, status::aborted}) {
    opened.unit->fault = {operation::write16, 9, {}, answer};
    const DriveCompletion completion = opened.commands->run(CommandKind::write, 9, 1, &data);
    EXPECT_EQ(completion.status, answer);
    EXPECT_EQ(completion.senseBytes, 0U);
  }
  opened.unit->fault = {operation::write16, 9, {0x06, 0x2A, 0x01}};
  EXPECT_EQ(host::senseNumber(opened.commands->run(CommandKind::write, 9, 1, &data)), 0x062A01U);
}

TEST(ScsiDrive, ARecoveredErrorLetsACutCommandGoOnAndIsReported) {
  OpenFakeUnit opened(withTransferLimit(4));
  Bytes data = randomBytes(1, 12 * sector);
  opened.commands->run(CommandKind::write, 100, 12, &data);
  opened.unit->fault = {operation::read16, 105, host::sense::recoveredRead, status::checkCondition, true};
  Bytes found(data.size());
  const DriveCompletion completion = opened.commands->run(CommandKind::read, 100, 12, &found);
  EXPECT_EQ(completion.status, status::checkCondition);
  EXPECT_EQ(host::senseNumber(completion), 0x011701U);
  EXPECT_EQ(completion.bytesTransferred, data.size());
  EXPECT_EQ(found, data);
}

TEST(ScsiDrive, AReadThatBroughtLessSaysSo) {
  OpenFakeUnit opened(withTransferLimit(4));
  Bytes data(10 * sector);
  opened.unit->readsAtMost = 3 * sector + 5;
  EXPECT_EQ(opened.commands->run(CommandKind::read, 100, 10, &data).bytesTransferred, 3U * sector + 5);
  EXPECT_EQ(opened.unit->seen.size(), 1U);

  Bytes everySecond(3 * sector);
  DriveCommand skipping = opened.commands->make(CommandKind::read, 100, 3, &everySecond);
  skipping.lbaStep = 2;
  opened.unit->readsAtMost = 3 * sector;
  const DriveCompletion completion = opened.commands->run(skipping);
  EXPECT_EQ(completion.status, status::good);
  EXPECT_EQ(completion.bytesTransferred, 2U * sector);
}

TEST(ScsiDrive, AVerifyIsTheUnitsOrTheHosts) {
  Bytes data = randomBytes(1, 4 * sector);
  Bytes other = data;
  other[2 * sector] ^= 1;
  for (const bool byHost : {false, true}) {
    using Verify = ScsiDriveSettings::Verify;
    OpenFakeUnit opened({}, {.verify = byHost ? Verify::byHost : Verify::byUnit});
    opened.commands->run(CommandKind::write, 50, 4, &data);
    EXPECT_EQ(opened.commands->run(CommandKind::verify, 50, 4, &data).status, status::good);
    const DriveCompletion differs = opened.commands->run(CommandKind::verify, 50, 4, &other);
    EXPECT_EQ(host::senseNumber(differs), 0x0E1D00U);
    EXPECT_EQ(host::senseInformation(differs), 52U);
    EXPECT_EQ(opened.unit->seenOf(operation::verify16).size(), byHost ? 0U : 2U);
    // A unit that compares nothing is believed only where it is asked.
    opened.unit->comparesNothing = true;
    EXPECT_EQ(opened.commands->run(CommandKind::verify, 50, 4, &other).status,
              byHost ? status::checkCondition : status::good);
  }
}

/// Of verifies that find a difference, by a unit that does not say where.
class ScsiDriveUnnamedDifference : public testing::TestWithParam<bool> {
 protected:
  static FakeUnitTraits traits() {
    FakeUnitTraits traits = withTransferLimit(4);
    traits.namesDifference = false;
    traits.descriptorSense = GetParam();
    return traits;
  }
  ScsiDriveUnnamedDifference() : opened(traits()), data(randomBytes(1, 12 * sector)), other(data) {
    opened.commands->run(CommandKind::write, 100, 12, &data);
    other[6 * sector + sector - 1] ^= 1;
    other[7 * sector] ^= 1;
    opened.unit->seen.clear();
  }

  DriveCompletion verify() { return opened.commands->run(CommandKind::verify, 100, 12, &other); }
  /// That the unit's answer went up without a place.
  static void expectUnnamed(const DriveCompletion& completion) {
    EXPECT_EQ(completion.status, status::checkCondition);
    EXPECT_EQ(completion.senseBytes, GetParam() ? 8U : 18U);
    EXPECT_EQ(completion.sense[0], GetParam() ? 0x72 : 0x70);
    EXPECT_EQ(completion.sense[GetParam() ? 1 : 2], host::sense_key::miscompare);
  }

  OpenFakeUnit opened;
  Bytes data;
  Bytes other;
};

TEST_P(ScsiDriveUnnamedDifference, IsFoundByAReadOfThatRunAndNamed) {
  const DriveCompletion differs = verify();
  EXPECT_EQ(host::senseNumber(differs), 0x0E1D00U);
  EXPECT_EQ(host::senseInformation(differs), 106U);
  EXPECT_EQ(differs.bytesTransferred, 0U);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::verify16(100, 4, {}), host::cdb::verify16(104, 4, {}),
                                             host::cdb::read16(104, 4, {.forceUnitAccess = true})));
  // The place was given back, and nothing is remembered.
  EXPECT_EQ(opened.commands->run(CommandKind::verify, 100, 12, &data).status, status::good);
  EXPECT_EQ(opened.commands->read(100, 12), data);
}

TEST_P(ScsiDriveUnnamedDifference, ThatTheReadDoesNotSeeStaysWithoutAPlace) {
  opened.unit->fault = {operation::verify16, 105, host::sense::miscompareDuringVerify};
  opened.unit->fault->named = false;
  expectUnnamed(opened.commands->run(CommandKind::verify, 100, 12, &data));
  EXPECT_EQ(codesOf(opened.unit->seen),
            (std::vector<uint8_t>{operation::verify16, operation::verify16, operation::read16}));
}

TEST_P(ScsiDriveUnnamedDifference, WhoseReadFailsStaysWithoutAPlace) {
  opened.unit->fault = {operation::read16, 106, host::sense::unrecoveredRead};
  expectUnnamed(verify());
  EXPECT_FALSE(opened.unit->fault) << "the read met it";
  opened.unit->readsAtMost = 4 * sector - 1;
  expectUnnamed(verify());
}

TEST_P(ScsiDriveUnnamedDifference, IsForgottenByAResetBeforeTheRead) {
  DriveCompletion completion;
  opened.drive->submit(opened.commands->make(CommandKind::verify, 100, 12, &other));
  opened.unit->answersAtMost = 2;
  EXPECT_FALSE(opened.drive->poll(completion, true));
  EXPECT_EQ(opened.unit->seen.back()[0], operation::read16);
  opened.unit->answersAtMost = ~uint64_t{0};
  opened.drive->reset();
  EXPECT_FALSE(opened.drive->poll(completion, true));
  EXPECT_EQ(opened.commands->run(CommandKind::verify, 100, 12, &data).status, status::good);
}

INSTANTIATE_TEST_SUITE_P(Sense, ScsiDriveUnnamedDifference, testing::Bool(),
                         [](const auto& test) { return test.param ? "Descriptors" : "Fixed"; });

TEST(ScsiDrive, ADifferenceThatTheUnitNamesCostsNoRead) {
  for (const bool descriptors : {false, true}) {
    FakeUnitTraits traits;
    traits.descriptorSense = descriptors;
    OpenFakeUnit opened(traits);
    Bytes data = randomBytes(1, 4 * sector);
    EXPECT_EQ(opened.commands->run(CommandKind::verify, 50, 4, &data).status, status::checkCondition);
    EXPECT_EQ(codesOf(opened.unit->seen), std::vector<uint8_t>{operation::verify16});
  }
}

TEST(ScsiDrive, AHostsVerifySaysNothingAboutBytesThatDidNotCome) {
  OpenFakeUnit opened({}, {.verify = ScsiDriveSettings::Verify::byHost});
  Bytes data(4 * sector, 0xA5);
  EXPECT_EQ(opened.commands->run(CommandKind::verify, 50, 4, &data).status, status::good);
  opened.unit->readsAtMost = 3 * sector;
  EXPECT_EQ(host::senseNumber(opened.commands->run(CommandKind::verify, 50, 4, &data)), 0x0B4B00U);
}

TEST(ScsiDrive, AWriteSameIsTheUnitsWithinItsLimit) {
  FakeUnitTraits traits;
  traits.limits.mostWriteSame = 6;
  OpenFakeUnit opened(traits);
  Bytes one = randomBytes(1, sector);
  EXPECT_EQ(opened.commands->run(CommandKind::writeSame, 30, 14, &one).status, status::good);
  EXPECT_THAT(opened.unit->seen,
              ElementsAre(host::cdb::writeSame16(30, 6, false, {}), host::cdb::writeSame16(36, 6, false, {}),
                          host::cdb::writeSame16(42, 2, false, {})));
  EXPECT_EQ(opened.commands->read(43, 1), one);
}

TEST(ScsiDrive, AWriteSameThatTheUnitDoesNotTakeIsWritten) {
  FakeUnitTraits traits;
  traits.refused = {operation::writeSame16};
  OpenFakeUnit opened(traits);
  Bytes one = randomBytes(1, sector);
  EXPECT_EQ(opened.commands->run(CommandKind::writeSame, 30, 14, &one).status, status::good);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::write16(30, 14, {})));
  EXPECT_EQ(opened.commands->read(43, 1), one);
}

TEST(ScsiDrive, ATrimIsAWriteSameOfZerosThatUnmaps) {
  OpenFakeUnit opened;
  EXPECT_EQ(opened.commands->run(CommandKind::trim, 3, 17).status, status::good);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::writeSame16(3, 17, true, {})));
  EXPECT_TRUE(isZero(opened.commands->read(3, 17)));
}

TEST(ScsiDrive, AnUnmapGetsWholeGranulesAndZerosAreWrittenToTheRest) {
  FakeUnitTraits traits;
  traits.granule = 8;
  traits.limits.unmapGranularity = 8;
  traits.limits.unmapAlignment = 3;
  traits.limits.mostUnmap = 20;
  OpenFakeUnit opened(traits, {.trim = ScsiDriveSettings::Trim::unmap});
  EXPECT_EQ(opened.commands->run(CommandKind::trim, 9, 40).status, status::good);
  EXPECT_THAT(codesOf(opened.unit->seen),
              ElementsAre(operation::writeSame16, operation::unmap, operation::unmap, operation::writeSame16));
  EXPECT_THAT(extentsOf(opened.unit->seenOf(operation::writeSame16)), ElementsAre(Extent{9, 2}, Extent{43, 6}));
  EXPECT_TRUE(isZero(opened.unit->content(9, 40)));
  EXPECT_EQ(opened.unit->content(8, 1), Bytes(sector, 0xA5));
  EXPECT_EQ(opened.unit->content(49, 1), Bytes(sector, 0xA5));
}

TEST(ScsiDrive, AnUnmapWithoutWriteSameWritesItsZerosPlainly) {
  FakeUnitTraits traits;
  traits.granule = 512;
  traits.limits.unmapGranularity = 512;
  traits.refused = {operation::writeSame16};
  OpenFakeUnit opened(traits, {.trim = ScsiDriveSettings::Trim::unmap});
  // More than the zeros that are kept.
  EXPECT_EQ(opened.commands->run(CommandKind::trim, 1, 1024 + 510).status, status::good);
  EXPECT_THAT(codesOf(opened.unit->seen), ElementsAre(operation::write16, operation::write16, operation::write16,
                                                      operation::write16, operation::unmap, operation::write16,
                                                      operation::write16, operation::write16, operation::write16));
  EXPECT_TRUE(isZero(opened.unit->content(1, 1024 + 510)));
  EXPECT_EQ(opened.unit->content(1535, 1), Bytes(sector, 0xA5));
}

TEST(ScsiDrive, ATrimOfEverySecondBlockLeavesTheOthers) {
  OpenFakeUnit opened;
  DriveCommand trim = opened.commands->make(CommandKind::trim, 10, 3);
  trim.lbaStep = 2;
  EXPECT_EQ(opened.commands->run(trim).status, status::good);
  EXPECT_THAT(extentsOf(opened.unit->seen), ElementsAre(Extent{10, 1}, Extent{12, 1}, Extent{14, 1}));
  EXPECT_EQ(opened.unit->content(13, 1), Bytes(sector, 0xA5));
}

TEST(ScsiDrive, EachSegmentOfAnAtomicWriteIsACommand) {
  FakeUnitTraits traits;
  traits.limits.mostAtomic = 24;
  traits.limits.atomicAlignment = 2;
  traits.limits.atomicGranularity = 4;
  OpenFakeUnit opened(traits);
  EXPECT_EQ(opened.drive->capabilities().atomicSegments.leastBlocks, 4U);
  EXPECT_EQ(opened.drive->capabilities().atomicSegments.mostBlocks, 16U);
  Bytes data = randomBytes(1, 16 * sector);
  DriveCommand atomic = opened.commands->make(CommandKind::writeAtomic, 32, 16, &data);
  atomic.atomicBound = 8;
  EXPECT_EQ(opened.commands->run(atomic).status, status::good);
  EXPECT_THAT(opened.unit->seen,
              ElementsAre(host::cdb::writeAtomic16(32, 8, 0, {}), host::cdb::writeAtomic16(40, 8, 0, {})));
  EXPECT_EQ(opened.unit->content(32, 16), data);
  // Without a bound the whole command is one segment, and one that is longer than the unit takes is never cut.
  opened.unit->seen.clear();
  atomic.atomicBound = 0;
  EXPECT_EQ(opened.commands->run(atomic).status, status::good);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::writeAtomic16(32, 16, 0, {})));
  Bytes tooLong = randomBytes(2, 32 * sector);
  atomic = opened.commands->make(CommandKind::writeAtomic, 32, 32, &tooLong);
  EXPECT_EQ(host::senseNumber(opened.commands->run(atomic)), 0x052400U);
  EXPECT_EQ(opened.unit->content(32, 16), data);
}

TEST(ScsiDrive, AUnitThatIsAtomicOnlyWithABoundaryIsToldTheSegmentAsOne) {
  FakeUnitTraits traits;
  traits.limits.mostAtomicWithBoundary = 64;
  traits.limits.mostAtomicBoundary = 8;
  OpenFakeUnit opened(traits);
  EXPECT_EQ(opened.drive->capabilities().atomicSegments.mostBlocks, 8U);
  Bytes data = randomBytes(1, 8 * sector);
  DriveCommand atomic = opened.commands->make(CommandKind::writeAtomic, 32, 8, &data);
  atomic.atomicBound = 4;
  EXPECT_EQ(opened.commands->run(atomic).status, status::good);
  EXPECT_THAT(opened.unit->seen,
              ElementsAre(host::cdb::writeAtomic16(32, 4, 4, {}), host::cdb::writeAtomic16(36, 4, 4, {})));
}

TEST(ScsiDrive, SegmentsThatAResetCutsOffAreNotBegun) {
  FakeUnitTraits traits;
  traits.limits.mostAtomic = 16;
  OpenFakeUnit opened(traits);
  Bytes data = randomBytes(1, 12 * sector);
  DriveCommand atomic = opened.commands->make(CommandKind::writeAtomic, 8, 12, &data);
  atomic.atomicBound = 4;
  opened.drive->submit(atomic);
  opened.unit->answersAtMost = 2;
  DriveCompletion completion;
  EXPECT_FALSE(opened.drive->poll(completion, false));
  opened.unit->answersAtMost = ~uint64_t{0};
  opened.drive->reset();
  EXPECT_FALSE(opened.drive->poll(completion, true));
  EXPECT_EQ(opened.unit->content(8, 8), Bytes(data.begin(), data.begin() + 8 * sector));
  EXPECT_EQ(opened.unit->content(16, 4), Bytes(4 * sector, 0xA5));
}

TEST(ScsiDrive, ForcedUnitAccessIsTheBitWhereTheUnitTakesIt) {
  OpenFakeUnit opened;
  Bytes data = randomBytes(1, sector);
  DriveCommand write = opened.commands->make(CommandKind::write, 5, 1, &data);
  write.forceUnitAccess = true;
  opened.commands->run(write);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::write16(5, 1, {.forceUnitAccess = true})));
  opened.unit->seen.clear();
  DriveCommand same = opened.commands->make(CommandKind::writeSame, 5, 1, &data);
  same.forceUnitAccess = true;
  opened.commands->run(same);
  EXPECT_THAT(codesOf(opened.unit->seen), ElementsAre(operation::writeSame16, operation::synchronizeCache16));
}

TEST(ScsiDrive, ForcedUnitAccessIsAFlushBehindTheWriteWhereTheUnitDoesNotTakeTheBit) {
  FakeUnitTraits traits = withTransferLimit(4);
  traits.forcesUnitAccess = false;
  OpenFakeUnit opened(traits);
  Bytes data = randomBytes(1, 8 * sector);
  DriveCommand write = opened.commands->make(CommandKind::write, 5, 8, &data);
  write.forceUnitAccess = true;
  EXPECT_EQ(opened.commands->run(write).status, status::good);
  EXPECT_THAT(codesOf(opened.unit->seen),
              ElementsAre(operation::write16, operation::write16, operation::synchronizeCache16));
  opened.unit->fault = {operation::synchronizeCache16, 0, host::sense::writeError};
  EXPECT_EQ(host::senseNumber(opened.commands->run(write)), 0x030C00U);
  traits.writeBackCache = false;
  OpenFakeUnit writeThrough(traits);
  write = writeThrough.commands->make(CommandKind::write, 5, 4);
  write.data = data.data();
  write.dataBytes = 4 * sector;
  write.forceUnitAccess = true;
  writeThrough.commands->run(write);
  EXPECT_THAT(codesOf(writeThrough.unit->seen), ElementsAre(operation::write16));
}

TEST(ScsiDrive, ProtectionInformationGoesAlongUnchecked) {
  FakeUnitTraits traits;
  traits.protectionType = 1;
  OpenFakeUnit opened(traits, {.protection = true});
  Bytes data = randomBytes(1, 3 * 520);
  EXPECT_EQ(opened.commands->run(CommandKind::write, 5, 3, &data).status, status::good);
  EXPECT_EQ(opened.unit->content(5, 3), data);
  EXPECT_EQ(opened.commands->read(5, 3), data);
  EXPECT_EQ(opened.commands->run(CommandKind::verify, 5, 3, &data).status, status::good);
  EXPECT_THAT(opened.unit->seen,
              ElementsAre(host::cdb::write16(5, 3, {.protection = 3}), host::cdb::read16(5, 3, {.protection = 3}),
                          host::cdb::verify16(5, 3, {.protection = 3})));
  // The unit would count reference tags up from block to block, so the block is repeated here.
  Bytes one = randomBytes(2, 520);
  opened.commands->run(CommandKind::writeSame, 5, 3, &one);
  EXPECT_EQ(opened.unit->content(7, 1), one);
  EXPECT_TRUE(opened.unit->seenOf(operation::writeSame16).empty());
}

TEST(ScsiDrive, AResetIsTheUnitsAndLeavesNoUnitAttention) {
  FakeUnitTraits traits;
  traits.attentions = 3;
  OpenFakeUnit opened(traits);
  Bytes data = randomBytes(1, sector);
  opened.drive->submit(opened.commands->make(CommandKind::write, 5, 1, &data));
  opened.drive->reset();
  EXPECT_EQ(opened.unit->resets, 1U);
  DriveCompletion completion;
  EXPECT_FALSE(opened.drive->poll(completion, true));
  EXPECT_EQ(opened.commands->run(CommandKind::write, 5, 1, &data).status, status::good);
  EXPECT_THROW(opened.drive->powerCycle(), std::logic_error);
}

TEST(ScsiDrive, ALostConnectionIsThrownAndAResetFindsTheUnitAgain) {
  OpenFakeUnit opened;
  Bytes data = randomBytes(1, sector);
  for (uint32_t i = 0; i < fakeDepth; ++i) {
    opened.drive->submit(opened.commands->make(CommandKind::write, i, 1, &data));
  }
  opened.unit->broken = true;
  DriveCompletion completion;
  EXPECT_THROW(opened.drive->poll(completion, true), host::DriveConnectionLost);
  opened.unit->breaksAfterReset = 2;
  opened.drive->reset();
  EXPECT_EQ(opened.unit->resets, 3U);
  // Every place is free again.
  for (uint32_t i = 0; i < fakeDepth; ++i) {
    opened.drive->submit(opened.commands->make(CommandKind::write, i, 1, &data));
  }
  uint32_t answers = 0;
  while (opened.drive->poll(completion, true)) {
    ++answers;
  }
  EXPECT_EQ(answers, fakeDepth);
  opened.unit->breaksAfterReset = 100;
  EXPECT_THROW(opened.drive->reset(), host::DriveConnectionLost);
}

TEST(ScsiDrive, MoreCommandsThanItTakesAreAMistakeOfTheCaller) {
  OpenFakeUnit opened;
  Bytes data(sector);
  const DriveCommand read = opened.commands->make(CommandKind::read, 0, 1, &data);
  for (uint32_t i = 0; i < fakeDepth; ++i) {
    opened.drive->submit(read);
  }
  EXPECT_THROW(opened.drive->submit(read), std::logic_error);
}

/// A request block around a command block.
Bytes requestBlock(const Bytes& cdb, size_t extra = 0) {
  Bytes block(24 + cdb.size() + extra);
  block[0] = static_cast<uint8_t>(block.size());
  block[6] = static_cast<uint8_t>(cdb.size());
  std::copy(cdb.begin(), cdb.end(), block.begin() + 24);
  return block;
}

int sendTo(host::Drive& drive, const Bytes& block) {
  return drive.sendVendorRequest(block.data(), static_cast<uint32_t>(block.size()));
}

TEST(ScsiDriveVendorRequest, CarriesItsCommandBlockWithoutData) {
  OpenFakeUnit opened;
  EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 0);
  EXPECT_THAT(opened.unit->seen, ElementsAre(host::cdb::testUnitReady()));
  EXPECT_EQ(opened.unit->lastCdbBytes, 6U);
  const Cdb flush = host::cdb::synchronizeCache16();
  EXPECT_EQ(sendTo(*opened.drive, requestBlock({flush.begin(), flush.end()}, 8)), 0);
  EXPECT_EQ(opened.unit->seen.back(), flush);
  EXPECT_EQ(opened.unit->lastCdbBytes, 16U);
  // What the unit refuses.
  EXPECT_EQ(sendTo(*opened.drive, requestBlock(Bytes(10, 0xC1))), 5);
  EXPECT_EQ(opened.unit->lastCdbBytes, 10U);
}

TEST(ScsiDriveVendorRequest, BlocksThatAreNotOfTheFormAreRefused) {
  OpenFakeUnit opened;
  const Bytes good = requestBlock({0x00, 0, 0, 0, 0, 0});
  const auto with = [&](size_t place, uint8_t byte) {
    Bytes block = good;
    block[place] = byte;
    return sendTo(*opened.drive, block);
  };
  EXPECT_EQ(with(6, 5), 22);
  EXPECT_EQ(with(6, 17), 22);
  EXPECT_EQ(with(6, 7), 22);  // longer than the block
  EXPECT_EQ(with(0, 29), 22);
  EXPECT_EQ(with(1, 1), 22);
  EXPECT_EQ(with(3, 1), 22);
  EXPECT_EQ(sendTo(*opened.drive, Bytes(23)), 22);
  EXPECT_EQ(opened.drive->sendVendorRequest(nullptr, 0), 22);
  EXPECT_TRUE(opened.unit->seen.empty());
}

TEST(ScsiDriveVendorRequest, KeepsTheAnswersOfOutstandingCommands) {
  for (const uint32_t places : {fakeDepth, fakeDepth + 1}) {
    FakeUnitTraits traits;
    traits.mostRequests = places;
    OpenFakeUnit opened(traits);
    std::vector<Bytes> data;
    for (uint32_t i = 0; i < fakeDepth; ++i) {
      data.push_back(randomBytes(i, sector));
    }
    for (uint32_t i = 0; i < fakeDepth; ++i) {
      opened.drive->submit(opened.commands->make(CommandKind::write, i, 1, &data[i]));
    }
    EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 0);
    EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 0);
    std::set<uint64_t> ids;
    DriveCompletion completion;
    while (opened.drive->poll(completion, true)) {
      EXPECT_EQ(completion.status, status::good);
      ids.insert(completion.id);
    }
    EXPECT_EQ(ids.size(), fakeDepth);
  }
}

TEST(ScsiDriveVendorRequest, IsSentAgainAfterAUnitAttention) {
  FakeUnitTraits traits;
  OpenFakeUnit opened(traits);
  opened.unit->traits.attentions = 2;
  opened.unit->resetUnit();
  EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 0);
  opened.unit->traits.attentions = 100;
  opened.unit->resetUnit();
  EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 5);
}

TEST(ScsiDriveVendorRequest, ALostConnectionIsThrownByTheNextCommand) {
  OpenFakeUnit opened;
  Bytes data(sector);
  opened.unit->broken = true;
  EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 5);
  EXPECT_EQ(sendTo(*opened.drive, requestBlock({0x00, 0, 0, 0, 0, 0})), 5);
  opened.unit->broken = false;
  DriveCompletion completion;
  EXPECT_THROW(opened.drive->poll(completion, false), host::DriveConnectionLost);
  opened.drive->reset();
  EXPECT_EQ(opened.commands->run(CommandKind::read, 5, 1, &data).status, status::good);
}

}  // namespace
}  // namespace corvane::tests
