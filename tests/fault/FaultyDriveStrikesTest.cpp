// What each class of faults leaves on the medium of a drive that is worked by hand, and what the ledger says about it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "tests/fault/FaultBench.h"
#include "tests/fault/LedgerChecks.h"

namespace corvane::host {
namespace {

using testing::ElementsAre;

constexpr uint32_t unrecoveredRead = 0x031100;
constexpr uint32_t internalFailure = 0x044400;

TEST(FaultyDriveStrikes, ABitFlipsOnAWrittenBlock) {
  for (const char* spec : {"bit-flip-rest:at=command:2", "bit-flip-write:at=command:2"}) {
    FaultBench bench(spec);
    const Bytes other = bench.write(50, 4);
    bench.write(10, 4);
    expectHonestLedger(bench, 2, CommandKind::write, 10, 4);
    EXPECT_EQ(bench.only().altered.size(), 1U);
    EXPECT_EQ(bench.only().delivered, 0U);
    EXPECT_EQ(bench.only().firstDelivery, 0U);
    EXPECT_EQ(bench.read(50, 4), other);
    bench.read(10, 4);
    EXPECT_EQ(bench.only().delivered, 1U);
    EXPECT_EQ(bench.only().visible, 1U);
    EXPECT_EQ(bench.only().visibleVerify, 0U);
    EXPECT_EQ(bench.only().firstDelivery, 4U);
    expectShownUntilOverwritten(bench, 10, 4);
    EXPECT_EQ(bench.only().delivered, 3U);
    EXPECT_EQ(bench.only().visible, 1U);  // later looks are not the ones that had to notice
    EXPECT_EQ(bench.only().firstDelivery, 4U);
  }
}

TEST(FaultyDriveStrikes, AWriteIsLost) {
  FaultBench bench("lost-write:at=command:3");
  const Bytes old = bench.write(8, 8);
  bench.read(8, 8);
  const Bytes data = bench.write(10, 4);
  expectHonestLedger(bench, 3, CommandKind::write, 10, 4);
  EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(10, 11, 12, 13));
  EXPECT_EQ(bench.only().altered[1].was, bench.block(data, 1));
  EXPECT_EQ(bench.only().altered[1].is, bench.block(old, 3));
  EXPECT_EQ(bench.read(8, 8), old);
  EXPECT_EQ(bench.only().delivered, 4U);
  EXPECT_EQ(bench.only().visible, 4U);
  expectShownUntilOverwritten(bench, 10, 4);
}

TEST(FaultyDriveStrikes, AWriteIsMisdirected) {
  FaultBench bench("misdirected-write:at=command:2");
  const Bytes around = bench.write(0, 128);
  Bytes data = bench.write(60, 4);
  while (bench.injections() == 0) {
    data = bench.write(60, 4);  // the one before went home by chance
  }
  const uint64_t command = bench.only().command;
  expectHonestLedger(bench, command, CommandKind::write, 60, 4);
  ASSERT_THAT(bench.only().note, testing::StartsWith("went to LBA "));
  const uint64_t target = std::stoull(bench.only().note.substr(12));
  EXPECT_EQ(bench.read(target, 4), data);
  if (target >= 64 || target + 4 <= 60) {
    EXPECT_EQ(bench.only().delivered, 4U);
    EXPECT_EQ(bench.only().visible, 4U);
  }
  const Bytes found = bench.read(60, 4);
  EXPECT_NE(found, data);
  EXPECT_EQ(bench.only().firstDelivery, command + 1);
  EXPECT_EQ(bench.only().visible, bench.only().altered.size());
  expectShownUntilOverwritten(bench, 0, 128);
}

TEST(FaultyDriveStrikes, AWriteIsTorn) {
  FaultBench bench("torn-write:at=command:2");
  const Bytes old = bench.write(10, 8);
  const Bytes data = bench.write(10, 8);
  expectHonestLedger(bench, 2, CommandKind::write, 10, 8);
  const size_t torn = bench.only().altered.size();
  const Bytes found = bench.read(10, 8);
  const auto cut = static_cast<std::ptrdiff_t>((8 - torn) * 512);
  EXPECT_TRUE(std::equal(found.begin(), found.begin() + cut, data.begin()));
  EXPECT_TRUE(std::equal(found.begin() + cut, found.end(), old.begin() + cut));
  EXPECT_EQ(bench.only().visible, torn);
  expectShownUntilOverwritten(bench, 10, 8);
}

TEST(FaultyDriveStrikes, ALargeBlockIsTornInside) {
  FaultBench bench("torn-write:at=command:2", benchSettings(4096));
  const Bytes old = bench.write(10, 1);
  const Bytes data = bench.write(10, 1);
  const Bytes found = bench.read(10, 1);
  size_t kept = 0;
  while (kept < 8 &&
         std::equal(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(512 * (kept + 1)), data.begin())) {
    ++kept;
  }
  EXPECT_GT(kept, 0U);
  ASSERT_LT(kept, 8U);
  const auto cut = static_cast<std::ptrdiff_t>(512 * kept);
  EXPECT_TRUE(std::equal(found.begin() + cut, found.end(), old.begin() + cut));
  EXPECT_EQ(bench.only().altered.at(0).is, found);
}

TEST(FaultyDriveStrikes, AWriteIsTornAt4k) {
  FaultBench bench("torn-write-4k:at=command:2");
  const Bytes old = bench.write(0, 32);
  bench.write(0, 8);  // crosses nothing
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(13, 8);
  expectHonestLedger(bench, 3, CommandKind::write, 13, 8);
  EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(16, 17, 18, 19, 20));
  EXPECT_EQ(bench.read(16, 5), Bytes(old.begin() + 16 * 512, old.begin() + 21 * 512));
  EXPECT_EQ(bench.only().visible, 5U);
  expectShownUntilOverwritten(bench, 13, 8);
}

TEST(FaultyDriveStrikes, AWriteSplices) {
  std::set<uint32_t> reports;
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    FaultBench bench("write-splice:at=command:2", benchSettings(), seed);
    const Bytes old = bench.write(10, 4);
    Bytes data = bench.fresh(4);
    const DriveCompletion end = bench.commands.run(CommandKind::write, 10, 4, &data);
    reports.insert(end.status == scsi_status::aborted ? scsi_status::aborted : senseNumber(end));
    const uint64_t lost = bench.only().altered.at(0).lba;
    EXPECT_TRUE(bench.only().altered[0].is.empty());
    EXPECT_EQ(bench.only().altered.size(), 14 - lost);
    // The very read that looks what the failed write has left must find out.
    DriveCompletion look = bench.tryRead(10, 4);
    EXPECT_EQ(senseNumber(look), unrecoveredRead);
    EXPECT_EQ(senseInformation(look), lost);
    EXPECT_EQ(look.bytesTransferred, 0U);
    EXPECT_EQ(bench.only().visible, 1U);
    EXPECT_EQ(bench.only().firstDelivery, 3U);
    look = bench.verify(lost, 1, bench.block(data, 0));
    EXPECT_EQ(senseNumber(look), unrecoveredRead);
    EXPECT_EQ(senseInformation(look), lost);
    EXPECT_EQ(bench.only().delivered, 2U);
    EXPECT_EQ(bench.only().visible, 1U);
    if (lost != 13) {
      EXPECT_EQ(bench.read(13, 1), bench.block(old, 3));
    }
    const Bytes cure = bench.write(10, 4);
    EXPECT_EQ(bench.read(10, 4), cure);
    EXPECT_EQ(bench.only().overwritten, bench.only().altered.size());
  }
  EXPECT_THAT(reports, ElementsAre(scsi_status::aborted, internalFailure));
}

TEST(FaultyDriveStrikes, AnAtomicWriteIsTorn) {
  FaultBench bench("atomic-tear:at=command:2");
  const Bytes old = bench.write(10, 10);
  Bytes data = bench.fresh(10);
  DriveCommand atomic = bench.commands.make(CommandKind::writeAtomic, 10, 10, &data);
  atomic.atomicBound = 4;
  const DriveCompletion end = bench.commands.run(atomic);
  EXPECT_EQ(end.status, scsi_status::aborted);
  EXPECT_EQ(end.senseBytes, 0U);
  expectHonestLedger(bench, 2, CommandKind::writeAtomic, 10, 10);
  const Bytes found = bench.read(10, 10);
  size_t torn = 0;
  for (uint32_t first = 0; first < 10; first += 4) {
    const uint32_t last = std::min(first + 4, 10U);
    uint32_t oldBlocks = 0;
    for (uint32_t i = first; i < last; ++i) {
      const bool isOld = bench.block(found, i) == bench.block(old, i);
      EXPECT_TRUE(isOld || bench.block(found, i) == bench.block(data, i));
      oldBlocks += isOld ? 1U : 0U;
    }
    torn += oldBlocks != 0 && oldBlocks != last - first ? 1U : 0U;
  }
  EXPECT_EQ(torn, 1U);
  EXPECT_EQ(bench.only().visible, bench.only().altered.size());
  EXPECT_EQ(bench.only().delivered, bench.only().altered.size());
  expectShownUntilOverwritten(bench, 10, 10);
}

TEST(FaultyDriveStrikes, OnlyTheReadOfTheVeryRangeHasToNoticeAnAtomicTear) {
  FaultBench bench("atomic-tear:at=command:2");
  bench.write(10, 4);
  Bytes data = bench.fresh(4);
  DriveCommand atomic = bench.commands.make(CommandKind::writeAtomic, 10, 4, &data);
  atomic.atomicBound = 4;
  bench.commands.run(atomic);
  const size_t altered = bench.only().altered.size();
  bench.read(9, 6);
  EXPECT_EQ(bench.only().delivered, altered);
  EXPECT_EQ(bench.only().visible, 0U);
  bench.read(10, 4);
  EXPECT_EQ(bench.only().visible, altered);
}

/// Tears an atomic write of four blocks at LBA 10, one segment.
void tearAtomicWrite(FaultBench& bench) {
  Bytes data = bench.fresh(4);
  DriveCommand atomic = bench.commands.make(CommandKind::writeAtomic, 10, 4, &data);
  atomic.atomicBound = 4;
  bench.commands.run(atomic);
}

TEST(FaultyDriveStrikes, NobodyRecognisesOldContentThatWasReadAheadOfTheAtomicWrite) {
  for (const bool changedBetween : {false, true}) {
    FaultBench bench("atomic-tear:at=command:1");
    bench.write(10, 8);
    bench.read(10, 4);
    if (changedBetween) {
      bench.write(10, 4);
    }
    tearAtomicWrite(bench);
    bench.read(10, 4);
    EXPECT_EQ(bench.only().visible, changedBetween ? bench.only().altered.size() : 0U);
    EXPECT_EQ(bench.only().blind, changedBetween ? 0U : bench.only().altered.size());
    EXPECT_FALSE(bench.only().blindness.empty());
  }
}

TEST(FaultyDriveStrikes, NobodyRecognisesTheZerosOfATrimUnderATornAtomicWrite) {
  FaultBench bench("atomic-tear:at=command:1");
  bench.commands.run(bench.commands.make(CommandKind::trim, 10, 4, nullptr));
  tearAtomicWrite(bench);
  bench.read(10, 4);
  EXPECT_EQ(bench.only().visible, 0U);
  EXPECT_EQ(bench.only().blind, bench.only().altered.size());
}

TEST(FaultyDriveStrikes, ATearIsGoneWhenItsNewPartIsOverwritten) {
  FaultBench bench("atomic-tear:at=command:1");
  bench.write(10, 8);
  tearAtomicWrite(bench);
  std::set<uint64_t> old;
  for (const AlteredBlock& block : bench.only().altered) {
    old.insert(block.lba);
  }
  for (uint64_t lba = 10; lba < 14; ++lba) {
    if (!old.contains(lba)) {
      bench.write(lba, 1);
    }
  }
  bench.read(10, 4);
  EXPECT_EQ(bench.only().delivered, old.size());
  EXPECT_EQ(bench.only().visible, 0U);
}

TEST(FaultyDriveStrikes, TheOrderOfTwoWritesIsInverted) {
  FaultBench bench("order-inversion:at=command:1");
  const Bytes earlier = bench.write(10, 8);
  EXPECT_EQ(bench.injections(), 0U);  // there was no other write that it could have changed places with
  const Bytes later = bench.write(14, 8);
  expectHonestLedger(bench, 2, CommandKind::write, 14, 8);
  EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(14, 15, 16, 17));
  EXPECT_EQ(bench.read(10, 8), earlier);
  EXPECT_EQ(bench.read(18, 4), Bytes(later.begin() + 4 * 512, later.end()));
  EXPECT_EQ(bench.only().visible, 4U);
  expectShownUntilOverwritten(bench, 14, 8);
}

TEST(FaultyDriveStrikes, WhatATrimHasRemovedDoesNotComeBackByAnInversion) {
  FaultBench bench("order-inversion:at=command:3");
  bench.write(10, 8);
  bench.commands.run(CommandKind::trim, 10, 8);
  const Bytes data = bench.write(10, 8);
  EXPECT_EQ(bench.injections(), 0U);
  EXPECT_EQ(bench.read(10, 8), data);
}

TEST(FaultyDriveStrikes, ACommandIsIgnored) {
  for (const auto& [spec, kind] : {std::pair("trim-ignored:at=command:1", CommandKind::trim),
                                   std::pair("zone-reset-ignored:at=command:1", CommandKind::zoneReset),
                                   std::pair("invalidate-ignored:at=command:1", CommandKind::invalidate)}) {
    FaultBench bench(spec);
    const Bytes old = bench.write(8, 8);
    EXPECT_EQ(bench.commands.run(kind, 10, 4).status, scsi_status::good);
    expectHonestLedger(bench, 2, kind, 10, 4);
    EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(10, 11, 12, 13));
    EXPECT_EQ(bench.read(8, 8), old);
    EXPECT_EQ(bench.only().delivered, 4U) << spec;
    EXPECT_EQ(bench.only().visible, 4U) << spec;
    expectShownUntilOverwritten(bench, 10, 4);
  }
}

TEST(FaultyDriveStrikes, ATrimThatWouldChangeNothingIsNotStruck) {
  FaultBench bench("trim-ignored:at=command:2");
  bench.commands.run(CommandKind::trim, 10, 4);
  bench.commands.run(CommandKind::trim, 10, 4);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(12, 1);
  bench.commands.run(CommandKind::trim, 10, 4);
  EXPECT_EQ(bench.only().command, 4U);
  EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(12));
}

TEST(FaultyDriveStrikes, ATrimGoesTooFar) {
  FaultBench bench("trim-too-far:at=command:3");
  bench.write(10, 16);
  bench.read(10, 16);
  bench.commands.run(CommandKind::trim, 12, 4);
  EXPECT_EQ(bench.injections(), 0U);  // nobody looks at the blocks behind it
  bench.write(10, 16);
  bench.commands.run(CommandKind::trim, 12, 4);
  expectHonestLedger(bench, 5, CommandKind::trim, 12, 4);
  const size_t further = bench.only().altered.size();
  const Bytes found = bench.read(16, 4);
  EXPECT_TRUE(std::all_of(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(further * 512),
                          [](uint8_t byte) { return byte == 0; }));
  EXPECT_EQ(bench.only().altered.front().lba, 16U);
  EXPECT_EQ(bench.only().visible, further);
  expectShownUntilOverwritten(bench, 10, 16);
}

TEST(FaultyDriveStrikes, AWriteSameIsShort) {
  FaultBench bench("write-same-short:at=command:2");
  const Bytes old = bench.write(10, 4);
  Bytes data = bench.fresh(1);
  EXPECT_EQ(bench.commands.run(CommandKind::writeSame, 10, 4, &data).status, scsi_status::good);
  expectHonestLedger(bench, 2, CommandKind::writeSame, 10, 4);
  EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(13));
  EXPECT_EQ(bench.read(13, 1), bench.block(old, 3));
  EXPECT_EQ(bench.read(12, 1), data);
  EXPECT_EQ(bench.only().visible, 1U);
  expectShownUntilOverwritten(bench, 10, 4);
}

TEST(FaultyDriveStrikes, AFailedWriteIsReportedAsGood) {
  FaultBench bench("wrong-status:at=command:2");
  const Bytes old = bench.write(10, 4);
  const Bytes data = bench.write(10, 4);
  expectHonestLedger(bench, 2, CommandKind::write, 10, 4);
  const uint64_t failing = bench.only().altered.front().lba - 10;
  const Bytes found = bench.read(10, 4);
  const auto cut = static_cast<std::ptrdiff_t>(failing * 512 + 256);
  EXPECT_TRUE(std::equal(found.begin(), found.begin() + cut, data.begin()));
  EXPECT_TRUE(std::equal(found.begin() + cut, found.end(), old.begin() + cut));
  expectShownUntilOverwritten(bench, 10, 4);
}

TEST(FaultyDriveStrikes, AnotherDrivesDataLandInAWrite) {
  FaultExchange exchange;
  FaultBench first("cross-talk:at=command:1", benchSettings(), 1, &exchange, 0);
  FaultBench second("cross-talk:at=command:1", benchSettings(), 1, &exchange, 1);
  const Bytes foreign = first.write(100, 4);
  const Bytes own = second.write(10, 4);
  EXPECT_EQ(first.injections(), 0U);
  EXPECT_EQ(first.read(100, 4), foreign);
  expectHonestLedger(second, 1, CommandKind::write, 10, 4);
  const AlteredBlock block = second.only().altered.at(0);
  EXPECT_EQ(second.only().altered.size(), 1U);
  EXPECT_EQ(block.is, first.block(foreign, 0));
  EXPECT_EQ(block.was, second.block(own, block.lba - 10));
  expectShownUntilOverwritten(second, 10, 4);
}

TEST(FaultyDriveStrikes, TheFirstDriveGivesAwayWhatItWritesAtTheMoment) {
  FaultExchange exchange;
  FaultBench first("cross-talk:at=command:3", benchSettings(), 1, &exchange, 0);
  FaultBench second("cross-talk:at=command:3", benchSettings(), 1, &exchange, 1);
  first.write(100, 1);
  first.read(100, 1);
  const Bytes foreign = first.write(100, 4);
  first.write(100, 1);
  for (int i = 0; i < 3; ++i) {
    second.write(10, 1);
  }
  EXPECT_EQ(second.only().command, 3U);
  EXPECT_EQ(second.only().altered.at(0).is, first.block(foreign, 0));
}

TEST(FaultyDriveStrikes, WithoutAnotherDriveThereIsNoCrossTalk) {
  FaultBench bench("cross-talk:rate=1", benchSettings(), 1, nullptr, 1);
  const Bytes data = bench.write(10, 4);
  EXPECT_EQ(bench.read(10, 4), data);
  EXPECT_EQ(bench.injections(), 0U);
}

TEST(FaultyDriveStrikes, AWrittenBlockTurnsToZeros) {
  FaultBench bench("zeroed-block:at=command:1");
  bench.write(10, 4);
  expectHonestLedger(bench, 1, CommandKind::write, 10, 4);
  ASSERT_EQ(bench.only().altered.size(), 1U);
  EXPECT_EQ(bench.only().altered[0].is, Bytes(512));
  EXPECT_EQ(bench.read(bench.only().altered[0].lba, 1), Bytes(512));
  expectShownUntilOverwritten(bench, 10, 4);
}

TEST(FaultyDriveStrikes, TwoBlocksChangePlaces) {
  FaultBench bench("swapped-block:at=command:1");
  const Bytes data = bench.write(10, 4);
  expectHonestLedger(bench, 1, CommandKind::write, 10, 4);
  ASSERT_EQ(bench.only().altered.size(), 2U);
  const uint64_t lba = bench.only().altered[0].lba;
  EXPECT_EQ(bench.only().altered[1].lba, lba + 1);
  EXPECT_EQ(bench.read(lba, 1), bench.block(data, lba + 1 - 10));
  EXPECT_EQ(bench.read(lba + 1, 1), bench.block(data, lba - 10));
  EXPECT_EQ(bench.only().visible, 2U);
  expectShownUntilOverwritten(bench, 10, 4);
}

TEST(FaultyDriveStrikes, EqualBlocksCannotChangePlaces) {
  FaultBench bench("swapped-block:at=command:1");
  Bytes same(4 * 512, 0x55);
  bench.commands.run(CommandKind::write, 10, 4, &same);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(10, 4);
  EXPECT_EQ(bench.only().command, 2U);
}

TEST(FaultyDriveStrikes, ProtectionBytesAreDamaged) {
  FaultBench bench("protection-damage:at=command:1", benchSettings(512, 8));
  const Bytes data = bench.write(10, 4);
  expectHonestLedger(bench, 1, CommandKind::write, 10, 4);
  const AlteredBlock block = bench.only().altered.at(0);
  EXPECT_EQ(block.is.size(), 520U);
  EXPECT_TRUE(std::equal(block.is.begin(), block.is.begin() + 512, block.was.begin()));
  EXPECT_EQ(senseInformation(bench.verify(10, 4, data)), block.lba);
  expectShownUntilOverwritten(bench, 10, 4);
}

TEST(FaultyDriveStrikes, ABlockHoldsPartsOfTwoCommands) {
  FaultBench bench("mixed-commands:at=command:1");
  const Bytes first = bench.write(50, 4);
  EXPECT_EQ(bench.injections(), 0U);  // there was no other data yet
  bench.write(10, 4);
  expectHonestLedger(bench, 2, CommandKind::write, 10, 4);
  ASSERT_EQ(bench.only().altered.size(), 1U);
  const AlteredBlock block = bench.only().altered[0];
  const auto partOf = [&](const Bytes& data, size_t from, size_t size) {
    return std::equal(block.is.begin() + static_cast<std::ptrdiff_t>(from),
                      block.is.begin() + static_cast<std::ptrdiff_t>(from + size),
                      data.begin() + static_cast<std::ptrdiff_t>(from));
  };
  const bool foreignBeginning = partOf(first, 0, 32) && partOf(block.was, 480, 32);
  const bool foreignEnd = partOf(block.was, 0, 32) && partOf(first, 480, 32);
  EXPECT_NE(foreignBeginning, foreignEnd);
  expectShownUntilOverwritten(bench, 10, 4);
}

}  // namespace
}  // namespace corvane::host
