// Classes of faults that leave the medium alone: what reads return once, what verifies and flushes claim.
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
using testing::IsEmpty;

constexpr uint32_t miscompare = 0x0E1D00;

TEST(FaultyDriveLies, ABitFlipsOnceOnTheWayFromTheMedium) {
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

TEST(FaultyDriveLies, AReadThatNobodyWaitsForIsNotStruck) {
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

TEST(FaultyDriveLies, AStaleReadReturnsTheContentBeforeTheLastWriteOnce) {
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

TEST(FaultyDriveLies, AVerifyTakesStaleContentToo) {
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

TEST(FaultyDriveLies, StaleContentThatIsOverwrittenFirstWasNoFault) {
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

TEST(FaultyDriveLies, TwoStaleReadsAreNotMixedUp) {
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

TEST(FaultyDriveLies, AReadSoonAfterAWriteOvertakesIt) {
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

TEST(FaultyDriveLies, AReadLongAfterAWriteDoesNotOvertakeIt) {
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

TEST(FaultyDriveLies, AReadIsMisdirected) {
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

TEST(FaultyDriveLies, AFlushLiesUntilThePowerIsCut) {
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

TEST(FaultyDriveLies, AnHonestFlushAfterALyingOneKeepsTheData) {
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

TEST(FaultyDriveLies, WhatNeedsNoFlushSurvivesALyingOne) {
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

TEST(FaultyDriveLies, WhatWasWrittenAfterALyingFlushIsNotItsFault) {
  FaultBench bench("lying-flush:at=command:3", volatileSettings());
  bench.write(0, 64);
  bench.flush();
  bench.flush();  // lies about nothing
  bench.write(0, 64);
  bench.drive.powerCycle();  // which may lose the write, as nobody flushed it
  EXPECT_EQ(bench.injections(), 0U);
  EXPECT_EQ(bench.read(0, 64), bench.honest(0, 64));
}

TEST(FaultyDriveLies, ABlockThatWasRewrittenAfterALyingFlushGoesBackBehindBoth) {
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

TEST(FaultyDriveLies, VerifiesLieFromThenOn) {
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

TEST(FaultyDriveLies, AVerifyThatCannotBeIsRefusedByALiarToo) {
  FaultBench bench("verify-always-equal:at=command:1");
  const Bytes data = bench.write(10, 4);
  EXPECT_EQ(senseNumber(bench.verify(998, 4, data)), 0x052100U);
  EXPECT_EQ(senseNumber(bench.verify(10, 5, data)), 0x052400U);
}

TEST(FaultyDriveLies, AVerifyRaisesAFalseAlarm) {
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

TEST(FaultyDriveLies, AFalseAlarmIsOverDataThatSomebodyWaitsFor) {
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

}  // namespace
}  // namespace corvane::host
