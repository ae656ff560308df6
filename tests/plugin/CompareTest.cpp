#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <utility>

#include "BlockStamp.h"
#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using vdl::Corvane;
using vdl::TraceType;

constexpr uint64_t lba = 100;
constexpr uint32_t length = 8;
constexpr size_t sector = 512;

/// Write 1 of blocks 100 to 107 stands on the medium.
struct Compare : ::testing::Test {
  Compare() {
    bench.start();
    bench.finishedWrite(lba, length, 1);
    bucket = bench.bucketOf(lba);
  }

  /// Its read-back, with the blocks as the test left them on the medium.
  int readBack() {
    read = bench.readBack(4);
    bench.takeTrace();
    bench.takeLog();
    return bench.completeRead(4);
  }

  CompletionBench bench;
  vdl::BlockNum bucket = 0;
  uint64_t read = 0;
};

TEST_F(Compare, IntactBlocksPassSilently) {
  EXPECT_EQ(readBack(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_FALSE(bench.data().miscompareSeen);
  EXPECT_EQ(bench.trace().history(), "");
}

TEST_F(Compare, FlippedBitIsAMiscompareOfOneByte) {
  Bytes cdb(16);
  for (size_t i = 0; i < cdb.size(); ++i) {
    cdb[i] = static_cast<uint8_t>(0xA0 + i);
  }
  bench.setCdb(4, cdb);
  const Bytes written = bench.block(0x65);
  bench.block(0x65)[40] ^= 0x04;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Miscompare Detected at LBA 0x0000000000000065, first_offset = 40, num_bytes = 1"},
                          LogLine{2, "Miscompare CDB: A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF"},
                          bench.failure("compareBlock", -1046), bench.failure("doCompares", -1046),
                          bench.failure("execute", -1046)));
  const auto entry = bench.lastEntry();
  EXPECT_EQ(entry.type, TraceType::Miscompare);
  EXPECT_EQ(entry.lba, 0x65U);
  EXPECT_EQ(entry.cmd_id, read);
  EXPECT_EQ(entry.block, bucket + 1);
  EXPECT_EQ(entry.tag, bucket + 1);
  EXPECT_EQ(entry.flag, 0);
  EXPECT_TRUE(bench.data().miscompareSeen);
  EXPECT_EQ(bench.data().miscompareLBA, 0x65U);
  const vdl::Buffer& drive = *bench.data().driveCompareData;
  const vdl::Buffer& reference = *bench.data().referenceCompareData;
  EXPECT_EQ(Bytes(drive.data, drive.data + drive.size), bench.block(0x65));
  EXPECT_EQ(Bytes(reference.data, reference.data + reference.size), written);
  EXPECT_THAT(bench.trace().history(), StartsWith("Context History for lba 0x65:\n"));
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(Compare, DifferingBytesAreCountedFromTheFirst) {
  bench.block(lba)[30] ^= 1;
  bench.block(lba)[31] ^= 1;
  bench.block(lba)[511] ^= 0x80;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.takeLog().front().text,
            "Miscompare Detected at LBA 0x0000000000000064, first_offset = 30, num_bytes = 3");
}

TEST_F(Compare, FirstDifferingBlockEndsTheRead) {
  bench.block(102)[20] ^= 1;
  bench.block(105)[20] ^= 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, 102U);
}

TEST_F(Compare, ShortCdbIsNotDumped) {
  bench.setCdb(4, Bytes(10, 0x88));
  bench.block(lba)[20] ^= 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.takeLog()[1], (LogLine{2, "Could not dump CDB: cdb_size = 10"}));
}

TEST_F(Compare, MissingCdbIsNotDumped) {
  bench.block(lba)[20] ^= 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.takeLog()[1], (LogLine{2, "Could not dump CDB: cdb_size = 0"}));
}

TEST_F(Compare, FindingWithoutAFinishedTagHasNoCdb) {
  bench.setCdb(4, Bytes(16, 0x77));
  bench.write(lba, 1, 2);
  bench.readBack(4);
  bench.block(103)[20] ^= 1;
  EXPECT_EQ(bench.completeRead(4), 0);
  bench.deviceReset();
  bench.holdTags();
  bench.takeLog();
  EXPECT_EQ(bench.idle(), -1046);
  EXPECT_EQ(bench.takeLog()[1], (LogLine{2, "Could not dump CDB: cdb_size = 0"}));
}

TEST_F(Compare, LongCdbIsDumpedWithItsFirstSixteenBytes) {
  Bytes cdb(32, 0x77);
  cdb[15] = 0x01;
  bench.setCdb(4, cdb);
  bench.block(lba)[20] ^= 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.takeLog()[1].text, "Miscompare CDB: 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 01");
}

TEST_F(Compare, LostWriteShowsTheOlderBucket) {
  const Bytes older = bench.block(lba);
  EXPECT_EQ(readBack(), 0);
  bench.write(lba, 1, 2);
  const vdl::BlockNum newer = bench.bucketOf(lba);
  ASSERT_NE(newer, bucket);
  EXPECT_EQ(bench.complete(2), 0);
  EXPECT_EQ(bench.block(lba), older);
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.lastEntry().block, newer);
  EXPECT_EQ(bench.lastEntry().tag, bucket);
}

TEST_F(Compare, MisdirectedBlocksShowTheOtherBucket) {
  std::swap(bench.block(100), bench.block(103));
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.lastEntry().lba, lba);
  EXPECT_EQ(bench.lastEntry().block, bucket);
  EXPECT_EQ(bench.lastEntry().tag, bucket + 3);
  EXPECT_THAT(bench.takeLog().front().text, HasSubstr("first_offset = 2,"));
}

TEST_F(Compare, StampCoversOnlyItsOwnBytesOfTheBucket) {
  const Bytes& block = bench.block(lba);
  const uint8_t* pool = bench.data().buckets + uint64_t{bucket} * sector;
  for (size_t i = 0; i < sector; ++i) {
    if (i < 8 || i > 17) {
      EXPECT_EQ(block[i], pool[i]) << i;
    }
  }
  EXPECT_EQ(block[15], lba);
  EXPECT_EQ(block[16], 1);
  EXPECT_EQ(block[17], 1);
  EXPECT_EQ(readBack(), 0);
}

TEST_F(Compare, IdStampedWithMoreBytesThanItNeedsIsAMiscompare) {
  for (const uint64_t id : {0x7FU, 0x80U, 0xFFU, 0x100U, 0x1234U, 0xFFFFU, 0xFFFFFFU}) {
    CompletionBench other;
    other.start();
    other.data().nextCmdId = id;
    ASSERT_EQ(other.finishedWrite(lba, 1, 1), id);
    // The same id, with a zero before it: a drive that gives this back has not kept what was written.
    Bytes& block = other.block(lba);
    block.insert(block.begin() + 17, 0);
    ++block[16];
    const auto behind = static_cast<size_t>(17 + block[16]);
    const uint8_t* pool = other.data().buckets + size_t{other.bucketOf(lba)} * sector;
    block.assign(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(behind));
    block.insert(block.end(), pool + behind, pool + sector);
    other.readBack(4);
    EXPECT_EQ(other.completeRead(4), -1046) << id;
  }
}

TEST_F(Compare, EveryByteOfABlockWithAnIdOfEightBytesCounts) {
  constexpr uint64_t id = uint64_t{0xAB} << 56 | 0x77;
  for (const size_t offset : {0U, 3U, 8U, 15U, 16U, 17U, 23U, 24U, 25U, 511U}) {
    CompletionBench other;
    other.start();
    // The id's last byte is the only one behind the first 24, and says nothing when the pool holds the same there.
    for (size_t k = 0; k < 64; ++k) {
      other.data().buckets[k * sector + 24] = 0x77;
    }
    other.data().nextCmdId = id;
    ASSERT_EQ(other.finishedWrite(lba, 1, 1), id);
    other.block(lba)[offset] ^= 1;
    other.readBack(4);
    EXPECT_EQ(other.completeRead(4), -1046) << offset;
  }
}

TEST_F(Compare, MiscompareOfTheLastBlockIsFoundWhereTheDataEnd) {
  bench.block(lba + length - 1)[511] ^= 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, lba + length - 1);
}

TEST_F(Compare, ReadsThatWereComparedLeaveNothingBehind) {
  for (int i = 0; i < 5; ++i) {
    readBack();
    bench.finishedWrite(lba, length, 1);
  }
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_EQ(bench.data().spareReads.size(), 1U) << "its memory serves the next read";
}

TEST_F(Compare, ForeignStampIsAMiscompare) {
  vdl::agent::stampBlock(bench.block(lba).data(), lba, 9);
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.takeLog().front().text,
            "Miscompare Detected at LBA 0x0000000000000064, first_offset = 17, num_bytes = 1");
}

TEST(CompareWithoutStamps, BucketsArePlain) {
  CompletionBench bench;
  bench.config().embedData = false;
  bench.start();
  bench.finishedWrite(lba, 2, 1);
  const uint8_t* pool = bench.data().buckets + uint64_t{bench.bucketOf(lba)} * sector;
  EXPECT_EQ(bench.block(lba), Bytes(pool, pool + sector));
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
}

TEST_F(Compare, ReadWaitsForEveryOverlappingWrite) {
  const uint64_t second = bench.write(lba, 2, 2);
  const uint64_t third = bench.write(lba + 4, 2, 3);
  Bytes old = bench.media(lba, length);
  old[7 * sector + 100] ^= 1;
  read = bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4, old), 0);
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(bench.idle(), 0);
    ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  }
  EXPECT_EQ(bench.complete(3), 0);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  EXPECT_THAT(bench.data().comparableReads.front().pendingWrites, ElementsAre(second));
  EXPECT_EQ(bench.data().writeFinished.front().cmdId, third);
  // The old content below two newer writes is a miscompare of the first of their blocks.
  bench.takeLog();
  EXPECT_EQ(bench.complete(2), -1046);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_EQ(bench.data().miscompareLBA, lba);
}

TEST_F(Compare, WaitingReadDoesNotHoldBackLaterOnes) {
  bench.finishedWrite(300, 2, 5);
  bench.write(lba, 1, 2);
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_EQ(bench.data().comparableReads.size(), 1U);
  bench.readBack(6);
  bench.takeLog();
  bench.block(300)[20] ^= 1;
  EXPECT_EQ(bench.completeRead(6), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, 300U);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  EXPECT_EQ(bench.data().comparableReads.front().lba, lba);
}

TEST_F(Compare, ReadsBehindAFailureStayForTheNextStep) {
  bench.finishedWrite(300, 2, 5);
  bench.write(lba, 1, 2);
  bench.write(300, 1, 3);
  bench.readBack(4);
  bench.readBack(6);
  Bytes wrong = bench.media(lba, length);
  wrong[5 * sector] ^= 1;
  EXPECT_EQ(bench.completeRead(4, wrong), 0);
  EXPECT_EQ(bench.completeRead(6), 0);
  ASSERT_EQ(bench.data().comparableReads.size(), 2U);
  // Both become comparable at once.
  bench.data().writeSent.clear();
  bench.data().referencesBalanced = false;
  EXPECT_EQ(bench.idle(), -1046);
  ASSERT_EQ(bench.data().comparableReads.size(), 1U);
  EXPECT_EQ(bench.data().comparableReads.front().lba, 300U);
}

TEST_F(Compare, RecordOfNoBlocksIsDroppedWithoutATableCall) {
  Corvane::ComparableReadData none;
  none.cmdId = 99;
  none.lba = lba;
  none.xferLength = length;
  bench.data().comparableReads.push_back(std::move(none));
  bench.takeLog();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(Compare, RefusalOfTheTableIsTheReadsStatus) {
  read = bench.readBack(4);
  EXPECT_EQ(bench.table().readFinished(read, 102, false).status, 0);
  bench.takeLog();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.completeRead(4), -1003);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "<E> readFinished couldn't find record lba:66 cmd_id:2\n");
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("doCompares", -1003), bench.failure("execute", -1003)));
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_FALSE(bench.hasRecord(101));
  EXPECT_EQ(bench.waitingReads(103), 1U);
}

TEST_F(Compare, RecordWithoutDataIsRefused) {
  read = bench.readBack(4);
  bench.data().readSent.clear();
  Corvane::ComparableReadData empty;
  empty.cmdId = read;
  empty.lba = lba;
  empty.xferLength = length;
  empty.blockCount = length;
  bench.data().comparableReads.push_back(std::move(empty));
  bench.takeLog();
  EXPECT_EQ(bench.idle(), -1022);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Read Buffer == NULL"}, bench.failure("doCompares", -1022),
                                           bench.failure("execute", -1022)));
}

TEST_F(Compare, ShortDataAreRefusedBehindTheirEnd) {
  read = bench.readBack(4);
  Bytes bytes = bench.media(lba, 3);
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4, bytes), -1057);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "dataCompare() Read pointer: offset > buff size"},
                                           bench.failure("doCompares", -1057), bench.failure("execute", -1057)));
  EXPECT_FALSE(bench.data().miscompareSeen);
}

TEST_F(Compare, DataThatEndInsideABlockAreRefused) {
  read = bench.readBack(4);
  Bytes bytes = bench.media(lba, length);
  bytes.pop_back();
  EXPECT_EQ(bench.completeRead(4, bytes), -1057);
}

TEST_F(Compare, EightMoreBytesPerBlockAreSkipped) {
  read = bench.readBack(4);
  Bytes bytes;
  for (uint64_t x = lba; x < lba + length; ++x) {
    bytes.insert(bytes.end(), bench.block(x).begin(), bench.block(x).end());
    bytes.insert(bytes.end(), 8, static_cast<uint8_t>(x));
  }
  EXPECT_EQ(bench.completeRead(4, bytes), 0);
  EXPECT_FALSE(bench.data().miscompareSeen);
}

TEST_F(Compare, EightMoreBytesInAllAreNoStride) {
  read = bench.readBack(4);
  Bytes bytes = bench.media(lba, length);
  bytes.resize(bytes.size() + 8, 0x5A);
  EXPECT_EQ(bench.completeRead(4, bytes), 0);
}

TEST(CompareWithProtection, ProtectionBytesAreCompared) {
  CompletionBench bench({.protectionEnabled = true, .protectionBytes = 8});
  bench.start();
  bench.finishedWrite(lba, 2, 1);
  ASSERT_EQ(bench.block(lba).size(), 520U);
  bench.block(lba + 1)[519] ^= 1;
  bench.readBack(4);
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4), -1046);
  EXPECT_EQ(bench.takeLog().front().text,
            "Miscompare Detected at LBA 0x0000000000000065, first_offset = 519, num_bytes = 1");
  EXPECT_EQ(bench.data().driveCompareData->size, 520U);
}

TEST_F(Compare, UnknownContentIsNotCompared) {
  bench.write(lba, length, 2);
  EXPECT_EQ(bench.complete(2, CompletionBench::aborted), 0);
  ASSERT_EQ(bench.bucketOf(lba), vdl::block_num::unknown);
  read = bench.readBack(4);
  bench.takeLog();
  EXPECT_EQ(bench.completeRead(4, Bytes(length * sector, 0xEE)), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST(CompareNumbers, OnlyBucketsAndTheZeroBlockAreCompared) {
  for (const vdl::BlockNum number : {0x80000U, 0x80001U, 0x80002U, 0xFEFFFFU, 0xFF0001U, 0xFFFFFFU, 0xFFFFFFFFU}) {
    CompletionBench bench;
    bench.start();
    EXPECT_EQ(bench.table().writeIssued(1, lba, number, {}), 0);
    bench.data().nextCmdId = 2;
    bench.data().writeFinished.push_back({1, lba, 1, 0, 0});
    bench.readBack(4);
    bench.takeLog();
    EXPECT_EQ(bench.completeRead(4, Bytes(sector, 0xEE)), 0) << std::hex << number;
    EXPECT_THAT(bench.takeLog(), IsEmpty());
  }
}

TEST_F(Compare, TrimmedBlocksMustBeZero) {
  bench.finishedWrite(lba, length, 2, WriteKind::trim);
  EXPECT_EQ(readBack(), 0);
  EXPECT_EQ(readBack(), 0);
  bench.finishedWrite(200, 4, 2, WriteKind::trim);
  bench.block(203)[9] = 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.lastEntry().lba, 203U);
  EXPECT_EQ(bench.lastEntry().block, vdl::block_num::zero);
  EXPECT_EQ(bench.takeLog().front().text,
            "Miscompare Detected at LBA 0x00000000000000CB, first_offset = 9, num_bytes = 1");
}

TEST_F(Compare, WriteSameRepeatsItsFirstBlockWithOneStamp) {
  EXPECT_EQ(readBack(), 0);
  bench.finishedWrite(200, 4, 2, WriteKind::same);
  EXPECT_EQ(bench.block(200), bench.block(203));
  EXPECT_EQ(readBack(), 0);
}

TEST_F(Compare, WriteSameOfOnlyItsFirstBlockIsFound) {
  EXPECT_EQ(readBack(), 0);
  bench.write(200, 4, 2, WriteKind::same);
  bench.store(2, 1);
  EXPECT_EQ(bench.complete(2), 0);
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, 201U);
}

TEST_F(Compare, InvalidatedBlocksMustNotHoldTheirLastContent) {
  bench.table().invalidate(lba, lba + length - 1, vdl::AtomicHash::InvalidateKeepPrior);
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.takeLog().front(), (LogLine{2, "Data match on invalidated block at LBA 0x0000000000000064"}));
  EXPECT_EQ(bench.lastEntry().flag, 1);
  EXPECT_EQ(bench.data().driveCompareData->size, sector);
  EXPECT_EQ(bench.data().referenceCompareData->size, sector);
}

TEST_F(Compare, InvalidatedBlocksMayHoldAnythingElse) {
  bench.table().invalidate(lba, lba + length - 1, vdl::AtomicHash::InvalidateKeepPrior);
  for (uint64_t x = lba; x < lba + length; ++x) {
    bench.block(x)[100] ^= 1;
  }
  EXPECT_EQ(readBack(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(Compare, ReplacedContentIsNotCompared) {
  bench.table().invalidate(lba, lba + length - 1, vdl::AtomicHash::InvalidateReplace);
  for (uint64_t x = lba; x < lba + length; ++x) {
    bench.block(x).assign(sector, 0xEE);
  }
  EXPECT_EQ(readBack(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(Compare, SecondMiscompareOverwritesTheFirst) {
  bench.finishedWrite(300, 1, 2);
  bench.readBack(4);
  bench.readBack(5);
  bench.block(lba)[20] ^= 1;
  bench.block(300)[21] ^= 1;
  EXPECT_EQ(bench.completeRead(4), -1046);
  bench.data().miscompareSeen = false;
  EXPECT_EQ(bench.completeRead(5), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, 300U);
  EXPECT_EQ(bench.data().driveCompareData->data[21], bench.block(300)[21]);
}

TEST_F(Compare, BorrowedMiscompareBufferIsReplacedNotWritten) {
  Bytes borrowed(sector, 0xAA);
  bench.data().driveCompareData->view(borrowed.data(), borrowed.size());
  bench.block(lba)[20] ^= 1;
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(borrowed, Bytes(sector, 0xAA));
  EXPECT_TRUE(bench.data().driveCompareData->owned);
  EXPECT_EQ(bench.data().driveCompareData->size, sector);
}

}  // namespace
}  // namespace benchtest
