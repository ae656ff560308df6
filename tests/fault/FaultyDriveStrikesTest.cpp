#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "tests/fault/FaultBench.h"

// What each class of faults does to a drive that is worked by hand, and what the ledger says about it.

namespace corvane::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t miscompare = 0x0E1D00;
constexpr uint32_t unrecoveredRead = 0x031100;
constexpr uint32_t internalFailure = 0x044400;

/// Checks the entry of a fault that struck command `command`, and that its altered blocks tell what the drive beneath
/// holds and what the faulty drive returns.
void expectHonestLedger(FaultBench& bench, uint64_t command, CommandKind kind, uint64_t lba, uint32_t blocks) {
  ASSERT_EQ(bench.injections(), 1U);
  const Injection injection = bench.only();
  EXPECT_EQ(injection.drive, bench.ledger.drive());
  EXPECT_EQ(injection.command, command);
  EXPECT_EQ(injection.kind, kind);
  EXPECT_EQ(injection.lba, lba);
  EXPECT_EQ(injection.blocks, blocks);
  EXPECT_EQ(injection.lbaStep, 1U);
  EXPECT_FALSE(injection.altered.empty());
  for (const AlteredBlock& block : injection.altered) {
    EXPECT_EQ(block.was, bench.honest(block.lba, 1)) << block.lba;
    EXPECT_NE(block.was, block.is) << block.lba;
  }
}

/// Checks that reads of these blocks return the altered ones as the ledger has them and all others as they are
/// beneath; then that a good write ends it.
void expectShownUntilOverwritten(FaultBench& bench, uint64_t lba, uint32_t blocks) {
  for (int look = 0; look < 2; ++look) {
    Bytes expected = bench.honest(lba, blocks);
    for (const AlteredBlock& block : bench.only().altered) {
      ASSERT_GE(block.lba, lba);
      ASSERT_LT(block.lba, lba + blocks);
      std::ranges::copy(block.is, expected.begin() + static_cast<std::ptrdiff_t>((block.lba - lba) * block.is.size()));
    }
    EXPECT_EQ(bench.read(lba, blocks), expected);
  }
  EXPECT_EQ(bench.only().overwritten, 0U);
  const Bytes data = bench.write(lba, blocks);
  EXPECT_EQ(bench.only().overwritten, bench.only().altered.size());
  EXPECT_EQ(bench.read(lba, blocks), data);
  EXPECT_EQ(bench.only().interrupted, 0U);
}

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

TEST(FaultyDriveStrikes, ABitFlipsOnceOnTheWayFromTheMedium) {
  FaultBench bench("bit-flip-read:at=command:1");
  const Bytes data = bench.write(10, 4);
  const Bytes found = bench.read(10, 4);
  EXPECT_NE(found, data);
  expectHonestLedger(bench, 2, CommandKind::read, 10, 4);
  const AlteredBlock block = bench.only().altered.at(0);
  EXPECT_EQ(bench.only().altered.size(), 1U);
  EXPECT_EQ(block.was, bench.block(data, block.lba - 10));
  EXPECT_EQ(block.is, bench.block(found, block.lba - 10));
  EXPECT_EQ(bench.only().delivered, 1U);
  EXPECT_EQ(bench.only().visible, 1U);
  EXPECT_EQ(bench.only().firstDelivery, 2U);
  EXPECT_EQ(bench.read(10, 4), data);
}

TEST(FaultyDriveStrikes, AReadThatNobodyWaitsForIsNotStruck) {
  for (const char* spec : {"bit-flip-read:at=command:2", "misdirected-read:at=command:2"}) {
    FaultBench bench(spec);
    const Bytes data = bench.write(0, 64);
    bench.read(500, 4);
    EXPECT_EQ(bench.injections(), 0U);
    bool struck = false;
    for (int tries = 0; tries < 20 && !struck; ++tries) {
      struck = bench.read(4 * static_cast<uint64_t>(tries) % 60, 2) !=
               bench.honest(4 * static_cast<uint64_t>(tries) % 60, 2);
    }
    EXPECT_TRUE(struck) << spec;
    EXPECT_EQ(bench.injections(), 1U);
    EXPECT_EQ(bench.read(0, 64), data);
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

TEST(FaultyDriveStrikes, AStaleReadReturnsTheContentBeforeTheLastWriteOnce) {
  FaultBench bench("stale-read:at=command:2");
  const Bytes old = bench.write(10, 4);
  const Bytes data = bench.write(10, 4);
  EXPECT_EQ(bench.injections(), 0U);  // nobody has seen anything yet
  EXPECT_EQ(bench.read(11, 2), Bytes(old.begin() + 512, old.begin() + 3 * 512));
  expectHonestLedger(bench, 2, CommandKind::write, 10, 4);
  EXPECT_EQ(bench.only().delivered, 2U);
  EXPECT_EQ(bench.only().visible, 2U);
  EXPECT_EQ(bench.only().firstDelivery, 3U);
  EXPECT_EQ(bench.read(11, 2), Bytes(data.begin() + 512, data.begin() + 3 * 512));
  Bytes mixed = data;
  std::copy_n(old.begin(), 512, mixed.begin());
  std::copy_n(old.begin() + 3 * 512, 512, mixed.begin() + 3 * 512);
  EXPECT_EQ(bench.read(10, 4), mixed);
  EXPECT_EQ(bench.only().delivered, 4U);
  EXPECT_EQ(bench.only().visible, 4U);
  EXPECT_EQ(bench.read(10, 4), data);
}

TEST(FaultyDriveStrikes, AVerifyTakesStaleContentToo) {
  FaultBench bench("stale-read:at=command:2");
  bench.write(10, 2);
  const Bytes data = bench.write(10, 2);
  const DriveCompletion first = bench.verify(10, 2, data);
  EXPECT_EQ(senseNumber(first), miscompare);
  EXPECT_EQ(senseInformation(first), 10U);
  EXPECT_EQ(bench.only().delivered, 2U);
  EXPECT_EQ(bench.only().visibleVerify, 2U);
  EXPECT_EQ(bench.verify(10, 2, data).status, scsi_status::good);
}

TEST(FaultyDriveStrikes, StaleContentThatIsOverwrittenFirstWasNoFault) {
  FaultBench bench("stale-read:at=command:2");
  bench.write(10, 4);
  bench.write(10, 4);
  const Bytes newest = bench.write(10, 4);
  EXPECT_EQ(bench.injections(), 0U);
  EXPECT_EQ(bench.read(10, 4), newest);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(10, 4);  // the strike is free again
  EXPECT_EQ(bench.read(10, 4), newest);
  EXPECT_EQ(bench.only().command, 5U);
}

TEST(FaultyDriveStrikes, TwoStaleReadsAreNotMixedUp) {
  FaultBench bench("stale-read:rate=1");
  bench.commands.run(CommandKind::trim, 0, 100);
  Bytes here = bench.fresh(4);
  Bytes there = bench.fresh(4);
  DriveCommand second = bench.commands.make(CommandKind::write, 50, 4, &there);
  second.tag = 4;
  bench.drive.submit(bench.commands.make(CommandKind::write, 10, 4, &here));
  bench.drive.submit(second);
  DriveCompletion completion;
  ASSERT_TRUE(bench.drive.poll(completion, true));
  ASSERT_TRUE(bench.drive.poll(completion, true));
  std::set<uint64_t> stale;
  if (bench.read(10, 4) != here) {
    stale.insert(10);
  }
  if (bench.read(50, 4) != there) {
    stale.insert(50);
  }
  std::set<uint64_t> told;
  for (const Injection& injection : bench.ledger.injections()) {
    EXPECT_EQ(injection.delivered, 4U);
    told.insert(injection.lba);
  }
  EXPECT_FALSE(stale.empty());
  EXPECT_EQ(told, stale);
  EXPECT_EQ(bench.read(10, 4), here);
  EXPECT_EQ(bench.read(50, 4), there);
}

TEST(FaultyDriveStrikes, AReadSoonAfterAWriteOvertakesIt) {
  FaultBench bench("read-overtakes:at=command:2");
  const Bytes old = bench.write(10, 4);
  const Bytes data = bench.write(10, 4);
  for (int others = 0; others < 127; ++others) {
    bench.read(500, 1);
  }
  EXPECT_EQ(bench.injections(), 0U);
  EXPECT_EQ(bench.read(10, 4), old);  // the 128th command behind it
  expectHonestLedger(bench, 2, CommandKind::write, 10, 4);
  EXPECT_EQ(bench.only().delivered, 4U);
  EXPECT_EQ(bench.only().visible, 4U);
  EXPECT_EQ(bench.only().firstDelivery, 130U);
  EXPECT_EQ(bench.read(10, 4), data);
}

TEST(FaultyDriveStrikes, AReadLongAfterAWriteDoesNotOvertakeIt) {
  FaultBench bench("read-overtakes:at=command:2");
  bench.write(10, 4);
  const Bytes data = bench.write(10, 4);
  for (int others = 0; others < 128; ++others) {
    bench.read(500, 1);
  }
  EXPECT_EQ(bench.read(10, 4), data);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(10, 4);  // the strike is free again
  EXPECT_EQ(bench.read(10, 4), data);
  EXPECT_EQ(bench.only().command, 132U);
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

TEST(FaultyDriveStrikes, AReadIsMisdirected) {
  FaultBench bench("misdirected-read:at=command:2");
  const Bytes around = bench.write(0, 128);
  Bytes found;
  for (uint64_t lba = 0; bench.injections() == 0; lba += 4) {
    ASSERT_LT(lba, 128U);
    found = bench.read(lba, 4);
  }
  const Injection injection = bench.only();
  EXPECT_EQ(injection.kind, CommandKind::read);
  ASSERT_THAT(injection.note, testing::StartsWith("came from LBA "));
  const uint64_t source = std::stoull(injection.note.substr(14));
  EXPECT_NE(source, injection.lba);
  EXPECT_EQ(found, bench.honest(source, 4));
  EXPECT_THAT(alteredLbas(injection),
              ElementsAre(injection.lba, injection.lba + 1, injection.lba + 2, injection.lba + 3));
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(injection.altered[i].was, bench.honest(injection.lba + i, 1));
    EXPECT_EQ(injection.altered[i].is, bench.block(found, i));
  }
  EXPECT_EQ(injection.delivered, 4U);
  EXPECT_EQ(injection.visible, 4U);
  EXPECT_EQ(injection.firstDelivery, injection.command);
  EXPECT_EQ(bench.read(0, 128), around);
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

TEST(FaultyDriveStrikes, AFlushLiesUntilThePowerIsCut) {
  FaultBench bench("lying-flush:at=command:3", volatileSettings());
  const Bytes old = bench.write(0, 64);
  bench.flush();
  const Bytes data = bench.write(0, 64);
  EXPECT_EQ(bench.flush().status, scsi_status::good);
  EXPECT_EQ(bench.read(0, 64), data);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(0, 0);  // takes no part
  bench.drive.powerCycle();
  ASSERT_EQ(bench.injections(), 1U);
  const Injection injection = bench.only();
  EXPECT_EQ(injection.command, 4U);
  EXPECT_EQ(injection.kind, CommandKind::syncCache);
  EXPECT_GT(injection.altered.size(), 10U);
  EXPECT_LT(injection.altered.size(), 54U);
  Bytes expected = data;
  for (const AlteredBlock& block : injection.altered) {
    EXPECT_EQ(block.was, bench.block(data, block.lba));
    EXPECT_EQ(block.is, bench.block(old, block.lba));
    std::ranges::copy(block.is, expected.begin() + static_cast<std::ptrdiff_t>(block.lba * 512));
  }
  EXPECT_EQ(bench.read(0, 64), expected);
  EXPECT_EQ(bench.only().delivered, injection.altered.size());
  expectShownUntilOverwritten(bench, 0, 64);
}

TEST(FaultyDriveStrikes, AnHonestFlushAfterALyingOneKeepsTheData) {
  FaultBench bench("lying-flush:at=command:2", volatileSettings());
  const Bytes data = bench.write(0, 64);
  bench.flush();
  bench.flush();
  bench.drive.powerCycle();
  EXPECT_EQ(bench.read(0, 64), data);
  EXPECT_EQ(bench.injections(), 0U);
  // The strike that came to nothing is free again.
  bench.write(0, 64);
  bench.flush();
  bench.drive.powerCycle();
  EXPECT_EQ(bench.only().command, 6U);
}

TEST(FaultyDriveStrikes, WhatNeedsNoFlushSurvivesALyingOne) {
  FaultBench bench("lying-flush:at=command:1", volatileSettings());
  Bytes through = bench.fresh(32);
  DriveCommand write = bench.commands.make(CommandKind::write, 0, 32, &through);
  write.forceUnitAccess = true;
  bench.commands.run(write);
  const Bytes atomic = bench.write(32, 32, CommandKind::writeAtomic);
  bench.flush();
  bench.drive.powerCycle();
  EXPECT_EQ(bench.injections(), 0U);
  EXPECT_EQ(bench.read(0, 32), through);
  EXPECT_EQ(bench.read(32, 32), atomic);
}

TEST(FaultyDriveStrikes, WhatWasWrittenAfterALyingFlushIsNotItsFault) {
  FaultBench bench("lying-flush:at=command:3", volatileSettings());
  bench.write(0, 64);
  bench.flush();
  bench.flush();  // lies about nothing
  bench.write(0, 64);
  bench.drive.powerCycle();  // which may lose the write, as nobody flushed it
  EXPECT_EQ(bench.injections(), 0U);
  EXPECT_EQ(bench.read(0, 64), bench.honest(0, 64));
}

TEST(FaultyDriveStrikes, ABlockThatWasRewrittenAfterALyingFlushGoesBackBehindBoth) {
  FaultBench bench("lying-flush:at=command:4", volatileSettings());
  const Bytes old = bench.write(0, 64);
  bench.flush();
  bench.write(0, 64);
  bench.flush();
  bench.write(0, 64);
  bench.drive.powerCycle();
  ASSERT_EQ(bench.injections(), 1U);
  for (const AlteredBlock& block : bench.only().altered) {
    EXPECT_EQ(block.is, bench.block(old, block.lba));
    EXPECT_EQ(block.was, bench.honest(block.lba, 1));
  }
}

TEST(FaultyDriveStrikes, VerifiesLieFromThenOn) {
  FaultBench bench("verify-always-equal:at=command:1");
  const Bytes data = bench.write(10, 4);
  expectHonestLedger(bench, 1, CommandKind::write, 10, 4);
  EXPECT_EQ(bench.only().altered.size(), 1U);
  EXPECT_EQ(bench.verify(10, 4, data).status, scsi_status::good);
  EXPECT_EQ(bench.only().delivered, 1U);
  EXPECT_EQ(bench.only().visible, 1U);
  EXPECT_EQ(bench.only().visibleVerify, 1U);
  EXPECT_EQ(bench.only().firstDelivery, 2U);
  const DriveCompletion garbage = bench.verify(500, 4, bench.fresh(4));
  EXPECT_EQ(garbage.status, scsi_status::good);
  EXPECT_EQ(garbage.senseBytes, 0U);
  EXPECT_EQ(bench.only().delivered, 1U);
  bench.write(20, 4);  // one damaged block is enough
  expectShownUntilOverwritten(bench, 10, 4);
  EXPECT_EQ(bench.verify(10, 4, data).status, scsi_status::good);
}

TEST(FaultyDriveStrikes, AVerifyThatCannotBeIsRefusedByALiarToo) {
  FaultBench bench("verify-always-equal:at=command:1");
  const Bytes data = bench.write(10, 4);
  EXPECT_EQ(senseNumber(bench.verify(998, 4, data)), 0x052100U);
  EXPECT_EQ(senseNumber(bench.verify(10, 5, data)), 0x052400U);
}

TEST(FaultyDriveStrikes, AVerifyRaisesAFalseAlarm) {
  FaultBench bench("verify-false-alarm:at=command:1");
  const Bytes data = bench.write(10, 4);
  const DriveCompletion alarm = bench.verify(10, 4, data);
  EXPECT_EQ(senseNumber(alarm), miscompare);
  EXPECT_GE(senseInformation(alarm), 10U);
  EXPECT_LT(senseInformation(alarm), 14U);
  EXPECT_EQ(bench.only().command, 2U);
  EXPECT_EQ(bench.only().kind, CommandKind::verify);
  EXPECT_EQ(bench.only().note, "reports LBA " + std::to_string(senseInformation(alarm)));
  EXPECT_THAT(bench.only().altered, IsEmpty());
  EXPECT_EQ(bench.only().delivered, 1U);
  EXPECT_EQ(bench.only().visible, 1U);
  EXPECT_EQ(bench.only().visibleVerify, 1U);
  EXPECT_EQ(bench.only().firstDelivery, 2U);
  EXPECT_EQ(bench.verify(10, 4, data).status, scsi_status::good);
  EXPECT_EQ(bench.injections(), 1U);
}

TEST(FaultyDriveStrikes, AFalseAlarmIsOverDataThatSomebodyWaitsFor) {
  FaultBench bench("verify-false-alarm:at=command:1");
  const Bytes data = bench.write(10, 4);
  bench.read(10, 4);
  EXPECT_EQ(bench.verify(10, 4, data).status, scsi_status::good);
  EXPECT_EQ(senseNumber(bench.verify(10, 4, bench.fresh(4))), miscompare);  // a true one
  EXPECT_EQ(bench.injections(), 0U);
  const Bytes again = bench.write(10, 4);
  EXPECT_EQ(senseNumber(bench.verify(10, 4, again)), miscompare);
  EXPECT_EQ(bench.only().command, 6U);
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
