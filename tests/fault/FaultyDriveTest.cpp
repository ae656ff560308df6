#include "host/fault/FaultyDrive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/fault/FaultBench.h"

namespace corvane::host {
namespace {

using testing::ElementsAre;

constexpr uint32_t miscompare = 0x0E1D00;
constexpr uint32_t writeError = 0x030C00;
constexpr uint32_t unrecoveredRead = 0x031100;
constexpr uint32_t invalidField = 0x052400;
constexpr uint32_t lbaOutOfRange = 0x052100;

TEST(FaultyDrive, IsTheDriveBeneathAndSaysWhatIsWrongWithIt) {
  FaultBench bench("lost-write:rate=0.5,most=3");
  EXPECT_EQ(bench.drive.description(), "stage, with lost-write:rate=0.5,most=3");
  EXPECT_EQ(&bench.drive.geometry(), &bench.stage->geometry());
  EXPECT_EQ(&bench.drive.capabilities(), &bench.stage->capabilities());
  EXPECT_EQ(bench.drive.maxOutstanding(), 64U);
}

TEST(FaultyDrive, CompletionsCarryTheTagAndTheIdOfTheirCommand) {
  FaultBench bench("lost-write:at=command:2");
  for (int count = 0; count < 4; ++count) {
    Bytes data = bench.fresh(4);
    DriveCommand command = bench.commands.make(CommandKind::write, 10, 4, &data);
    command.tag = 7;
    command.id = 123'456'789'000 + static_cast<uint64_t>(count);
    const DriveCompletion end = bench.commands.run(command);
    EXPECT_EQ(end.tag, 7U);
    EXPECT_EQ(end.id, command.id);
    EXPECT_EQ(end.status, scsi_status::good);
  }
  DriveCompletion none;
  EXPECT_FALSE(bench.drive.poll(none, true));
}

TEST(FaultyDrive, ACompletionThatNobodyWaitsForKeepsAForeignId) {
  FaultBench bench("lost-write:at=command:1");
  DriveCompletion stray;
  bench.stage->answerStray(900, 1);  // a tag that was never used
  ASSERT_TRUE(bench.drive.poll(stray, true));
  EXPECT_EQ(stray.tag, 900U);
  EXPECT_EQ(stray.id, UINT64_MAX);
  const Bytes data = bench.write(10, 4);
  bench.stage->answerStray(3, 1);  // a tag that is idle
  ASSERT_TRUE(bench.drive.poll(stray, true));
  EXPECT_EQ(stray.tag, 3U);
  EXPECT_EQ(stray.id, UINT64_MAX);
  Bytes found(4 * 512);
  const DriveCommand read = bench.commands.make(CommandKind::read, 10, 4, &found);
  bench.drive.submit(read);
  bench.stage->answerStray(3, 999'999);  // a tag under which another command is outstanding
  ASSERT_TRUE(bench.drive.poll(stray, true));
  EXPECT_EQ(stray.id, UINT64_MAX);
  DriveCompletion own;
  ASSERT_TRUE(bench.drive.poll(own, true));
  EXPECT_EQ(own.id, read.id);
}

TEST(FaultyDrive, AFaultOfAnotherDriveNeverStrikes) {
  FaultBench first("lost-write:rate=1,drive=2", benchSettings(), 1, nullptr, 0);
  FaultBench second("lost-write:rate=1,drive=2", benchSettings(), 1, nullptr, 1);
  const Bytes data = first.write(10, 4);
  EXPECT_EQ(first.read(10, 4), data);
  EXPECT_EQ(first.injections(), 0U);
  second.write(10, 4);
  EXPECT_EQ(second.only().drive, 1U);
}

TEST(FaultyDrive, AVerifyJudgesTheAlteredContent) {
  FaultBench bench("bit-flip-rest:at=command:1");
  const Bytes data = bench.write(10, 4);
  const AlteredBlock block = bench.only().altered.at(0);
  const DriveCompletion alarm = bench.verify(10, 4, data);
  EXPECT_EQ(alarm.status, scsi_status::checkCondition);
  EXPECT_EQ(senseNumber(alarm), miscompare);
  EXPECT_EQ(senseInformation(alarm), block.lba);
  EXPECT_EQ(alarm.bytesTransferred, 0U);
  EXPECT_EQ(bench.only().delivered, 1U);
  EXPECT_EQ(bench.only().visible, 1U);
  EXPECT_EQ(bench.only().visibleVerify, 1U);
  EXPECT_EQ(bench.only().firstDelivery, 2U);
  Bytes altered = data;
  std::ranges::copy(block.is, altered.begin() + static_cast<std::ptrdiff_t>((block.lba - 10) * 512));
  const DriveCompletion equal = bench.verify(10, 4, altered);
  EXPECT_EQ(equal.status, scsi_status::good);
  EXPECT_EQ(equal.senseBytes, 0U);
  EXPECT_EQ(equal.bytesTransferred, 0U);
  EXPECT_EQ(bench.only().delivered, 2U);
  EXPECT_EQ(bench.only().visible, 1U);
}

TEST(FaultyDrive, AVerifyReportsTheFirstDifference) {
  FaultBench bench("lost-write:at=command:1");
  const Bytes data = bench.write(10, 4);
  EXPECT_EQ(senseInformation(bench.verify(10, 4, data)), 10U);
  EXPECT_EQ(bench.only().delivered, 4U);
  Bytes partly = bench.read(10, 4);
  partly[3 * 512 + 5] ^= 1U;
  EXPECT_EQ(senseInformation(bench.verify(10, 4, partly)), 13U);
}

TEST(FaultyDrive, AnImpossibleVerifyOfAlteredBlocksIsRefused) {
  FaultBench bench("lost-write:at=command:1");
  const Bytes data = bench.write(10, 4);
  EXPECT_EQ(senseNumber(bench.verify(10, 5, data)), invalidField);
  EXPECT_EQ(senseNumber(bench.commands.run(CommandKind::verify, 10, 4)), invalidField);
  EXPECT_EQ(bench.only().delivered, 0U);
}

TEST(FaultyDrive, ImpossibleCommandsAreRefusedAndEndNothing) {
  FaultBench bench("lost-write:at=command:1");
  Bytes data = bench.fresh(4);
  DriveCommand beyond = bench.commands.make(CommandKind::write, 998, 4, &data);
  EXPECT_EQ(senseNumber(bench.commands.run(beyond)), lbaOutOfRange);
  beyond.lba = UINT64_MAX;
  EXPECT_EQ(senseNumber(bench.commands.run(beyond)), lbaOutOfRange);
  DriveCommand stepless = bench.commands.make(CommandKind::write, 10, 4, &data);
  stepless.lbaStep = 0;
  EXPECT_EQ(senseNumber(bench.commands.run(stepless)), invalidField);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(10, 4);
  EXPECT_EQ(bench.only().command, 4U);
  EXPECT_EQ(senseNumber(bench.commands.run(stepless)), invalidField);
  bench.drive.submit(stepless);
  bench.drive.reset();
  bench.read(10, 4);
  EXPECT_EQ(bench.only().delivered, 4U);
  EXPECT_EQ(bench.only().interrupted, 0U);
}

TEST(FaultyDrive, AFailedWriteEndsTheAlterationsBeneathIt) {
  for (const bool aborted : {false, true}) {
    FaultBench bench("lost-write:at=command:1");
    const Bytes data = bench.write(10, 4);
    if (aborted) {
      bench.stage->abortNext(CommandKind::write);
    } else {
      bench.stage->failNext(CommandKind::write, sense::writeError);
    }
    Bytes failing = bench.fresh(2);
    const DriveCompletion end = bench.commands.run(CommandKind::write, 11, 2, &failing);
    EXPECT_EQ(end.status, aborted ? scsi_status::aborted : scsi_status::checkCondition);
    EXPECT_EQ(senseNumber(end), aborted ? 0 : writeError);
    EXPECT_EQ(bench.only().interrupted, 2U);
    EXPECT_EQ(bench.only().overwritten, 0U);
    EXPECT_EQ(bench.read(11, 2), Bytes(data.begin() + 512, data.begin() + 3 * 512));
    EXPECT_EQ(bench.only().delivered, 0U);
    bench.read(10, 4);
    EXPECT_EQ(bench.only().delivered, 2U);
  }
}

TEST(FaultyDrive, ABlockOfAFailedWriteNeedNotBeNoticed) {
  FaultBench bench("misdirected-write:at=command:3");
  bench.write(0, 128);
  // Whoever wrote the blocks near by does not know any more what they hold.
  bench.stage->failNext(CommandKind::write, sense::writeError);
  Bytes failing = bench.fresh(128);
  bench.commands.run(CommandKind::write, 0, 128, &failing);
  while (bench.injections() == 0) {
    bench.write(60, 4);
  }
  bench.read(0, 60);
  bench.read(64, 64);
  EXPECT_GT(bench.only().delivered, 0U);
  EXPECT_EQ(bench.only().visible, 0U);
  bench.read(60, 4);
  EXPECT_EQ(bench.only().visible, 4U);
}

TEST(FaultyDrive, AReadOfAFailedRangeMayOnlyProbe) {
  FaultBench bench("lost-write:at=command:2");
  bench.stage->failNext(CommandKind::write, sense::writeError);
  Bytes failing = bench.fresh(4);
  bench.commands.run(CommandKind::write, 10, 4, &failing);
  bench.write(12, 2);
  bench.read(10, 4);
  EXPECT_EQ(bench.only().delivered, 2U);
  EXPECT_EQ(bench.only().visible, 0U);
  bench.read(12, 2);
  EXPECT_EQ(bench.only().delivered, 4U);
  EXPECT_EQ(bench.only().visible, 2U);
}

TEST(FaultyDrive, TheReadAheadOfAnAtomicWriteNeedNotNotice) {
  FaultBench bench("lost-write:at=command:1");
  bench.write(10, 4);
  bench.read(10, 4);
  EXPECT_EQ(bench.only().visible, 4U);
  EXPECT_EQ(bench.only().preReads, 0U);
  bench.write(50, 4, CommandKind::writeAtomic);
  EXPECT_EQ(bench.only().visible, 4U);
  bench.write(10, 4, CommandKind::writeAtomic);
  EXPECT_EQ(bench.only().visible, 0U);
  EXPECT_EQ(bench.only().preReads, 4U);
  EXPECT_EQ(bench.only().delivered, 4U);
}

TEST(FaultyDrive, AStruckCommandThatFailsGivesItsTurnAway) {
  FaultBench bench("lost-write:at=command:1");
  bench.stage->failNext(CommandKind::write, sense::writeError);
  Bytes data = bench.fresh(4);
  EXPECT_EQ(senseNumber(bench.commands.run(CommandKind::write, 10, 4, &data)), writeError);
  EXPECT_EQ(bench.injections(), 0U);
  bench.write(10, 4);
  EXPECT_EQ(bench.only().command, 2U);
}

TEST(FaultyDrive, AStruckReadOrVerifyThatFailsGivesItsTurnAway) {
  for (const auto& [spec, kind] : {std::pair("bit-flip-read:at=command:1", CommandKind::read),
                                   std::pair("misdirected-read:at=command:1", CommandKind::read),
                                   std::pair("verify-false-alarm:at=command:1", CommandKind::verify)}) {
    FaultBench bench(spec);
    Bytes data = bench.write(100, 4);
    bench.write(60, 40);
    bench.stage->failNext(kind, sense::internalFailure);
    EXPECT_EQ(bench.commands.run(kind, 100, 4, &data).status, scsi_status::checkCondition) << spec;
    EXPECT_EQ(bench.injections(), 0U) << spec;
    while (bench.injections() == 0) {  // a misdirected read may come home by chance
      data = bench.write(100, 4);
      bench.commands.run(kind, 100, 4, &data);
    }
    EXPECT_EQ(bench.only().kind, kind);
  }
}

TEST(FaultyDrive, WithoutKnowingWhatIsThereNothingIsStruck) {
  for (const uint64_t skip : {0U, 1U}) {  // the read before the write, and the one behind it
    FaultBench bench("lost-write:at=command:1");
    bench.stage->failNext(CommandKind::read, sense::unrecoveredRead, skip);
    const Bytes data = bench.write(10, 4);
    EXPECT_EQ(bench.injections(), 0U);
    EXPECT_EQ(bench.read(10, 4), data);
    bench.write(10, 4);
    EXPECT_EQ(bench.only().command, 3U);
  }
}

TEST(FaultyDrive, AMisdirectedReadThatCannotReadElsewhereReadsWell) {
  FaultBench bench("misdirected-read:at=command:2");
  const Bytes data = bench.write(10, 4);
  bench.stage->failNext(CommandKind::read, sense::unrecoveredRead, 1);
  EXPECT_EQ(bench.read(10, 4), data);
  EXPECT_EQ(bench.injections(), 0U);
}

TEST(FaultyDrive, AVerifyOverAlteredBlocksThatFailsStaysFailed) {
  FaultBench bench("lost-write:at=command:1");
  const Bytes data = bench.write(10, 4);
  bench.stage->failNext(CommandKind::read, sense::unrecoveredRead);
  EXPECT_EQ(senseNumber(bench.verify(10, 4, data)), unrecoveredRead);
  EXPECT_EQ(bench.only().delivered, 0U);
}

TEST(FaultyDrive, AResetInAnyPhaseOfAStruckWriteTakesTheStrikeBack) {
  for (const uint64_t answers : {0U, 1U, 2U}) {
    for (const bool powerCut : {false, true}) {
      FaultBench bench("lost-write:at=command:2");
      bench.write(10, 4);
      bench.read(10, 4);
      bench.stage->silenceAfter(answers);
      Bytes data = bench.fresh(4);
      bench.drive.submit(bench.commands.make(CommandKind::write, 10, 4, &data));
      DriveCompletion none;
      ASSERT_FALSE(bench.drive.poll(none, true)) << answers;
      powerCut ? bench.drive.powerCycle() : bench.drive.reset();
      bench.stage->speakAgain();
      EXPECT_FALSE(bench.drive.poll(none, true));
      EXPECT_EQ(bench.injections(), 0U);
      EXPECT_EQ(bench.read(10, 4), bench.honest(10, 4));
      bench.write(10, 4);
      EXPECT_EQ(bench.only().command, 5U);
      bench.read(10, 4);
      EXPECT_EQ(bench.only().visible, 4U);
    }
  }
}

TEST(FaultyDrive, AResetTakesAStruckReadWithWhatItWouldHaveShown) {
  for (const auto& [spec, answers] :
       {std::pair("bit-flip-read:at=command:1", 0U), std::pair("misdirected-read:at=command:1", 0U),
        std::pair("misdirected-read:at=command:1", 1U)}) {
    FaultBench bench(spec);
    bench.write(0, 128);
    bench.stage->silenceAfter(answers);
    Bytes data(4 * 512);
    bench.drive.submit(bench.commands.make(CommandKind::read, 60, 4, &data));
    DriveCompletion none;
    ASSERT_FALSE(bench.drive.poll(none, true));
    bench.drive.reset();
    bench.stage->speakAgain();
    EXPECT_EQ(bench.injections(), 0U);
    for (uint64_t lba = 60; bench.injections() == 0 && lba < 128; lba += 4) {
      bench.read(lba, 4);
    }
    EXPECT_GE(bench.only().command, 3U) << spec;
  }
}

TEST(FaultyDrive, AResetTakesAStruckVerifyOrFlush) {
  FaultBench verifying("verify-false-alarm:at=command:1");
  Bytes data = verifying.write(10, 4);
  verifying.drive.submit(verifying.commands.make(CommandKind::verify, 10, 4, &data));
  verifying.drive.reset();
  EXPECT_EQ(verifying.injections(), 0U);
  EXPECT_EQ(senseNumber(verifying.verify(10, 4, data)), miscompare);
  EXPECT_EQ(verifying.only().command, 3U);

  FaultBench flushing("lying-flush:at=command:1", volatileSettings());
  flushing.drive.submit(flushing.commands.make(CommandKind::syncCache, 0, 0));
  flushing.drive.reset();
  flushing.write(0, 64);
  flushing.flush();
  flushing.drive.powerCycle();
  EXPECT_EQ(flushing.only().command, 3U);
}

TEST(FaultyDrive, AResetLeavesAlterationsOfOtherBlocksAndOfReads) {
  FaultBench bench("lost-write:at=command:1");
  const Bytes old = bench.honest(10, 4);
  bench.write(10, 4);
  Bytes elsewhere = bench.fresh(4);
  Bytes found(4 * 512);
  DriveCommand read = bench.commands.make(CommandKind::read, 10, 4, &found);
  read.tag = 5;
  bench.drive.submit(bench.commands.make(CommandKind::write, 50, 4, &elsewhere));
  bench.drive.submit(read);
  bench.drive.reset();
  EXPECT_EQ(bench.only().delivered, 0U);
  EXPECT_EQ(bench.only().interrupted, 0U);
  EXPECT_EQ(bench.read(10, 4), old);
  EXPECT_EQ(bench.only().visible, 4U);
}

TEST(FaultyDrive, AResetOfAWriteEndsTheAlterationsBeneathIt) {
  for (const bool powerCut : {false, true}) {
    FaultBench bench("lost-write:at=command:1");
    bench.write(10, 4);
    Bytes data = bench.fresh(2);
    bench.drive.submit(bench.commands.make(CommandKind::write, 11, 2, &data));
    powerCut ? bench.drive.powerCycle() : bench.drive.reset();
    EXPECT_EQ(bench.only().interrupted, 2U);
    EXPECT_EQ(bench.read(11, 2), bench.honest(11, 2));
    EXPECT_EQ(bench.only().delivered, 0U);
    bench.read(10, 4);
    EXPECT_EQ(bench.only().delivered, 2U);
  }
}

TEST(FaultyDrive, AResetDuringAVerifyOfAlteredBlocksDeliversNothing) {
  FaultBench bench("lost-write:at=command:1");
  Bytes data = bench.write(10, 4);
  bench.drive.submit(bench.commands.make(CommandKind::verify, 10, 4, &data));
  bench.drive.reset();
  EXPECT_EQ(bench.only().delivered, 0U);
  EXPECT_EQ(senseNumber(bench.verify(10, 4, data)), miscompare);
  EXPECT_EQ(bench.only().delivered, 4U);
}

TEST(FaultyDrive, APowerCutBetweenOldContentAndItsReadKeepsIt) {
  FaultBench bench("stale-read:at=command:2");
  const Bytes old = bench.write(10, 4);
  const Bytes data = bench.write(10, 4);
  bench.drive.powerCycle();
  EXPECT_EQ(bench.read(10, 4), old);
  EXPECT_EQ(bench.only().delivered, 4U);
  EXPECT_EQ(bench.read(10, 4), data);
}

TEST(FaultyDrive, EndToEndBytesAreSteppedOver) {
  constexpr uint32_t trailer = 8;
  constexpr uint64_t unit = 512 + trailer;
  FaultBench bench("swapped-block:at=command:1");
  Bytes data = randomBytes(99, 4 * unit);
  DriveCommand write = bench.commands.make(CommandKind::write, 10, 4, &data);
  write.trailerBytes = trailer;
  EXPECT_EQ(bench.commands.run(write).status, scsi_status::good);
  ASSERT_EQ(bench.only().altered.size(), 2U);
  const uint64_t first = bench.only().altered[0].lba - 10;
  const auto sectorOf = [&](const Bytes& from, uint64_t index) {
    const auto begin = from.begin() + static_cast<std::ptrdiff_t>(index * unit);
    return Bytes(begin, begin + 512);
  };
  EXPECT_EQ(bench.only().altered[0].was, sectorOf(data, first));
  EXPECT_EQ(bench.only().altered[0].is, sectorOf(data, first + 1));

  Bytes found(4 * unit, 0xEE);
  DriveCommand read = bench.commands.make(CommandKind::read, 10, 4, &found);
  read.trailerBytes = trailer;
  EXPECT_EQ(bench.commands.run(read).bytesTransferred, 4 * unit);
  for (uint64_t i = 0; i < 4; ++i) {
    const uint64_t source = i == first ? i + 1 : i == first + 1 ? i - 1 : i;
    EXPECT_EQ(sectorOf(found, i), sectorOf(data, source)) << i;
    EXPECT_THAT(Bytes(found.begin() + static_cast<std::ptrdiff_t>(i * unit + 512),
                      found.begin() + static_cast<std::ptrdiff_t>((i + 1) * unit)),
                testing::Each(0));
  }
  DriveCommand verify = bench.commands.make(CommandKind::verify, 10, 4, &found);
  verify.trailerBytes = trailer;
  EXPECT_EQ(bench.commands.run(verify).status, scsi_status::good);
  verify.data = data.data();
  EXPECT_EQ(senseInformation(bench.commands.run(verify)), 10 + first);
}

TEST(FaultyDrive, ReadsAreSpoiledBetweenEndToEndBytes) {
  constexpr uint32_t trailer = 8;
  constexpr uint64_t unit = 512 + trailer;
  for (const char* spec : {"bit-flip-read:at=command:2", "misdirected-read:at=command:2"}) {
    FaultBench bench(spec);
    const Bytes all = bench.write(0, 128);
    Bytes found(4 * unit);
    DriveCommand read = bench.commands.make(CommandKind::read, 60, 4, &found);
    read.trailerBytes = trailer;
    for (int tries = 0; bench.injections() == 0 && tries < 20; ++tries) {
      bench.write(0, 128);
      bench.commands.run(read);
    }
    std::map<uint64_t, Bytes> altered;
    for (const AlteredBlock& block : bench.only().altered) {
      altered[block.lba] = block.is;
    }
    for (uint64_t i = 0; i < 4; ++i) {
      const auto begin = found.begin() + static_cast<std::ptrdiff_t>(i * unit);
      const Bytes expected = altered.contains(60 + i) ? altered[60 + i] : bench.honest(60 + i, 1);
      EXPECT_EQ(Bytes(begin, begin + 512), expected) << spec;
      EXPECT_EQ(Bytes(begin + 512, begin + unit), Bytes(trailer)) << spec;
    }
  }
}

TEST(FaultyDrive, AStepLeavesTheBlocksBetweenAlone) {
  FaultBench bench("lost-write:at=command:2");
  const Bytes old = bench.write(10, 8);
  Bytes data = bench.fresh(4);
  DriveCommand write = bench.commands.make(CommandKind::write, 10, 4, &data);
  write.lbaStep = 2;
  EXPECT_EQ(bench.commands.run(write).status, scsi_status::good);
  EXPECT_EQ(bench.only().lbaStep, 2U);
  EXPECT_EQ(bench.only().endLba(), 17U);
  EXPECT_THAT(alteredLbas(bench.only()), ElementsAre(10, 12, 14, 16));
  EXPECT_EQ(bench.read(10, 8), old);
  EXPECT_EQ(bench.only().delivered, 4U);
  DriveCommand verify = bench.commands.make(CommandKind::verify, 10, 4, &data);
  verify.lbaStep = 2;
  EXPECT_EQ(senseInformation(bench.commands.run(verify)), 10U);
  // Between the altered blocks nothing is judged or replaced.
  DriveCommand between = bench.commands.make(CommandKind::write, 11, 3, &data);
  between.lbaStep = 2;
  between.dataBytes = 3 * 512;
  bench.commands.run(between);
  EXPECT_EQ(bench.only().overwritten, 0U);
  between.kind = CommandKind::verify;
  EXPECT_EQ(bench.commands.run(between).status, scsi_status::good);
  bench.commands.run(write);
  EXPECT_EQ(bench.only().overwritten, 4U);
}

TEST(FaultyDrive, FaultyDrivesGoAroundEachOther) {
  auto stage = std::make_unique<StageDrive>(benchSettings());
  StageDrive& beneath = *stage;
  FaultLedger innerLedger;
  FaultLedger outerLedger;
  FaultyDrive drive(
      std::make_unique<FaultyDrive>(std::move(stage), parseFaultSpec("lost-write:at=command:1"), 1, innerLedger),
      parseFaultSpec("bit-flip-rest:at=command:2"), 2, outerLedger);
  EXPECT_EQ(drive.description(), "stage, with lost-write:at=command:1, with bit-flip-rest:at=command:2");
  CommandMaker commands(drive);
  Bytes lost = randomBytes(1, 4 * 512);
  Bytes flipped = randomBytes(2, 4 * 512);
  Bytes old(4 * 512);
  beneath.medium().read(10, 4, old.data());
  commands.run(CommandKind::write, 10, 4, &lost);
  commands.run(CommandKind::write, 50, 4, &flipped);
  ASSERT_EQ(innerLedger.injections().size(), 1U);
  ASSERT_EQ(outerLedger.injections().size(), 1U);
  EXPECT_EQ(innerLedger.injections()[0].lba, 10U);
  EXPECT_EQ(outerLedger.injections()[0].lba, 50U);
  EXPECT_EQ(commands.read(10, 4), old);
  Bytes expected = flipped;
  const AlteredBlock block = outerLedger.injections()[0].altered.at(0);
  std::ranges::copy(block.is, expected.begin() + static_cast<std::ptrdiff_t>((block.lba - 50) * 512));
  EXPECT_EQ(commands.read(50, 4), expected);
  EXPECT_EQ(innerLedger.injections()[0].visible, 4U);
  EXPECT_EQ(outerLedger.injections()[0].visible, 1U);
  // The outer one takes for honest what the inner one shows.
  EXPECT_EQ(senseNumber(commands.run(CommandKind::verify, 10, 4, &lost)), miscompare);
  EXPECT_EQ(commands.run(CommandKind::verify, 10, 4, &old).status, scsi_status::good);
  drive.reset();
  EXPECT_EQ(commands.read(10, 4), old);
}

/// Works a drive with many commands at once, each tag within blocks of its own, and calls `seen` with every command
/// as it ends.
class Bustle {
 public:
  Bustle(Drive& drive, uint64_t seed) : drive_(drive), random_(seed) {}

  template <typename Seen>
  void run(uint64_t commands, Seen seen) {
    std::vector<DriveCommand> outstanding(tags);
    std::vector<Bytes> data(tags);
    DriveCompletion end;
    for (uint64_t count = 0; count < commands; ++count) {
      const auto tag = static_cast<uint32_t>(count % tags);
      if (count >= tags) {
        while (outstanding[tag].id != 0 && drive_.poll(end, true)) {
          seen(outstanding[end.tag], end);
          outstanding[end.tag].id = 0;
        }
      }
      outstanding[tag] = next(tag, count + 1, data[tag]);
      drive_.submit(outstanding[tag]);
    }
    while (drive_.poll(end, true)) {
      seen(outstanding[end.tag], end);
      outstanding[end.tag].id = 0;
    }
  }

 private:
  static constexpr uint32_t tags = 8;
  static constexpr uint64_t blocksPerTag = 40;

  DriveCommand next(uint32_t tag, uint64_t id, Bytes& data) {
    DriveCommand command;
    command.tag = tag;
    command.id = id;
    constexpr std::array kinds{CommandKind::write,     CommandKind::write, CommandKind::read,       CommandKind::read,
                               CommandKind::writeSame, CommandKind::trim,  CommandKind::writeAtomic};
    command.kind = kinds[random_.below(kinds.size())];
    command.atomicBound = 4;
    command.lbaStep = random_.below(4) == 0 ? 2 : 1;
    command.blocks = static_cast<uint32_t>(random_.between(1, 12));
    command.lba = tag * blocksPerTag + random_.below(12);
    const uint64_t sectors = command.kind == CommandKind::trim        ? 0
                             : command.kind == CommandKind::writeSame ? 1
                                                                      : command.blocks;
    data = randomBytes(id, sectors * drive_.geometry().sectorBytes());
    command.data = sectors == 0 ? nullptr : data.data();
    command.dataBytes = data.size();
    return command;
  }

  Drive& drive_;
  Random random_;
};

TEST(FaultyDrive, WithoutAStrikeEveryByteIsThatOfTheDriveBeneath) {
  using Record = std::vector<std::pair<uint64_t, Bytes>>;
  const auto recordOf = [](Drive& drive) {
    Record record;
    Bustle(drive, 5).run(2000, [&](const DriveCommand& command, const DriveCompletion& end) {
      EXPECT_EQ(end.status, scsi_status::good);
      EXPECT_EQ(end.id, command.id);
      const bool read = command.kind == CommandKind::read;
      EXPECT_EQ(end.bytesTransferred, read ? command.dataBytes : 0);
      record.emplace_back(end.id, read ? Bytes(command.data, command.data + command.dataBytes) : Bytes());
    });
    return record;
  };
  StageDrive alone(benchSettings());
  const Record expected = recordOf(alone);
  for (const FaultClassInfo& info : faultClasses()) {
    if (info.what != FaultClass::lyingFlush) {  // which reads ahead of every write, so that answers come in other order
      FaultBench bench(std::string(info.name) + ":rate=0");
      EXPECT_EQ(recordOf(bench.drive), expected) << info.name;
      EXPECT_EQ(bench.injections(), 0U);
    }
  }
}

TEST(FaultyDrive, TheLedgerKnowsEveryBlockThatIsNotHonest) {
  for (const FaultClassInfo& info : faultClasses()) {
    SCOPED_TRACE(info.name);
    FaultExchange exchange;
    exchange.publish(randomBytes(4711, 520));
    FaultBench bench(std::string(info.name) + ":rate=0.2", benchSettings(512, 8), 9, &exchange, 1);
    uint64_t foreign = 0;
    uint64_t unreadable = 0;
    Bustle(bench.drive, 5).run(3000, [&](const DriveCommand& command, const DriveCompletion& end) {
      if (command.kind != CommandKind::read) {
        return;
      }
      if (end.status != scsi_status::good) {
        EXPECT_EQ(senseNumber(end), unrecoveredRead);
        ++unreadable;
        return;
      }
      for (uint32_t block = 0; block < command.blocks; ++block) {
        const uint8_t* sector = command.data + uint64_t{block} * 520;
        foreign += bench.honest(command.lba + uint64_t{block} * command.lbaStep, 1) != Bytes(sector, sector + 520);
      }
    });
    uint64_t delivered = 0;
    for (const Injection& injection : bench.ledger.injections()) {
      EXPECT_LE(injection.visible, injection.delivered);
      EXPECT_EQ(injection.visibleVerify, 0U);
      EXPECT_EQ(injection.firstDelivery != 0, injection.delivered != 0);
      EXPECT_LE(injection.overwritten + injection.interrupted, injection.altered.size());
      EXPECT_LE(injection.preReads, injection.delivered);
      EXPECT_TRUE(canStrike(info.what,
                            {.kind = injection.kind,
                             .lba = injection.lba,
                             .blocks = injection.blocks,
                             .lbaStep = injection.lbaStep,
                             .atomicBound = 4},
                            bench.drive.geometry()));
      delivered += injection.delivered;
    }
    if (info.what == FaultClass::writeSplice) {
      EXPECT_GT(unreadable, 0U);
      EXPECT_GE(delivered, unreadable + foreign);  // blocks before the unreadable one of the same read were shown too
    } else {
      EXPECT_EQ(unreadable, 0U);
      EXPECT_EQ(delivered, foreign);
    }
    const bool neverComesUp = info.what == FaultClass::lyingFlush || info.what == FaultClass::verifyFalseAlarm ||
                              info.what == FaultClass::zoneResetIgnored || info.what == FaultClass::invalidateIgnored;
    EXPECT_EQ(bench.injections() == 0, neverComesUp);
    if (info.what != FaultClass::verifyAlwaysEqual) {  // whose one block may be overwritten before it is read
      EXPECT_EQ(foreign == 0, neverComesUp);
    }
  }
}

TEST(FaultyDrive, ASeedRepeatsTheInjections) {
  const auto storyOf = [](const FaultClassInfo& info, uint64_t seed) {
    FaultExchange exchange;
    exchange.publish(randomBytes(4711, 520));
    FaultBench bench(std::string(info.name) + ":rate=0.1", benchSettings(512, 8), seed, &exchange, 1);
    Bustle(bench.drive, 5).run(1000, [](const DriveCommand&, const DriveCompletion&) {});
    std::vector<std::string> story;
    for (const Injection& injection : bench.ledger.injections()) {
      story.push_back(injectionText(injection) + ", " + std::to_string(injection.delivered) + ", " +
                      std::to_string(injection.visible) + ", " + std::to_string(injection.overwritten));
    }
    return story;
  };
  for (const FaultClassInfo& info : faultClasses()) {
    const std::vector<std::string> once = storyOf(info, 1);
    EXPECT_EQ(once, storyOf(info, 1)) << info.name;
    if (once.size() > 3) {
      EXPECT_NE(once, storyOf(info, 2)) << info.name;
    }
  }
  EXPECT_GT(storyOf(faultClassInfo(FaultClass::lostWrite), 1).size(), 3U);
}

}  // namespace
}  // namespace corvane::host
