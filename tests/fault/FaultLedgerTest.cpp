#include "host/fault/FaultLedger.h"

#include <gtest/gtest.h>

namespace corvane::host {
namespace {

Injection lostWrite() {
  Injection injection;
  injection.what = FaultClass::lostWrite;
  injection.command = 17;
  injection.kind = CommandKind::write;
  injection.lba = 100;
  injection.blocks = 2;
  injection.altered = {{.lba = 100, .was = {1, 2, 3, 4}, .is = {1, 0, 3, 0}},
                       {.lba = 101, .was = {1, 2, 3, 4}, .is = {0, 2, 3, 4}}};
  return injection;
}

TEST(FaultLedger, EveryEntryHasAnIdAndTheLedgersDrive) {
  FaultLedger ledger(3);
  EXPECT_EQ(ledger.drive(), 3U);
  EXPECT_TRUE(ledger.injections().empty());
  const FaultLedger::Id first = ledger.add(lostWrite());
  const FaultLedger::Id second = ledger.add({});
  EXPECT_NE(first, second);
  ASSERT_EQ(ledger.injections().size(), 2U);
  EXPECT_EQ(ledger.at(first).drive, 3U);
  EXPECT_EQ(ledger.at(first).command, 17U);
  EXPECT_EQ(ledger.at(second).drive, 3U);
  ledger.at(second).delivered = 5;
  EXPECT_EQ(ledger.injections()[1].delivered, 5U);
}

TEST(FaultLedger, ADriveIsTheFirstUnlessSaidOtherwise) {
  FaultLedger ledger;
  EXPECT_EQ(ledger.at(ledger.add(lostWrite())).drive, 0U);
}

TEST(Injection, TheEndIsOnePastTheLastBlock) {
  Injection injection;
  injection.lba = 100;
  EXPECT_EQ(injection.endLba(), 100U);
  injection.blocks = 1;
  EXPECT_EQ(injection.endLba(), 101U);
  injection.blocks = 4;
  EXPECT_EQ(injection.endLba(), 104U);
  injection.lbaStep = 2;
  EXPECT_EQ(injection.endLba(), 107U);
}

TEST(InjectionText, NamesTheFirstAlteredBlockAndItsFirstDifference) {
  EXPECT_EQ(injectionText(lostWrite()),
            "lost-write at command 17, a write of 2 blocks at LBA 100: 2 blocks altered, LBA 100 differs in 2 bytes "
            "from byte 1");
}

TEST(InjectionText, EndsWithTheNote) {
  Injection injection = lostWrite();
  injection.what = FaultClass::misdirectedWrite;
  injection.note = "went to LBA 90";
  EXPECT_EQ(injectionText(injection),
            "misdirected-write at command 17, a write of 2 blocks at LBA 100: 2 blocks altered, LBA 100 differs in 2 "
            "bytes from byte 1; went to LBA 90");
}

TEST(InjectionText, SaysWhenABlockCannotBeRead) {
  Injection injection = lostWrite();
  injection.what = FaultClass::writeSplice;
  injection.altered.front().is.clear();
  EXPECT_EQ(injectionText(injection),
            "write-splice at command 17, a write of 2 blocks at LBA 100: 2 blocks altered, LBA 100 cannot be read");
}

TEST(InjectionText, NeedsNoAlteredBlock) {
  Injection injection;
  injection.what = FaultClass::verifyFalseAlarm;
  injection.command = 4;
  injection.kind = CommandKind::verify;
  injection.lba = 8;
  injection.blocks = 16;
  injection.note = "reports LBA 9";
  EXPECT_EQ(injectionText(injection),
            "verify-false-alarm at command 4, a verify of 16 blocks at LBA 8: 0 blocks altered; reports LBA 9");
}

TEST(InjectionText, AFlushHasNoRange) {
  Injection injection = lostWrite();
  injection.what = FaultClass::lyingFlush;
  injection.kind = CommandKind::syncCache;
  EXPECT_EQ(injectionText(injection),
            "lying-flush at command 17, a sync: 2 blocks altered, LBA 100 differs in 2 bytes from byte 1");
}

}  // namespace
}  // namespace corvane::host
