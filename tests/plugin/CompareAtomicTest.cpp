#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "LazyHasher.h"
#include "support/CompletionBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using vdl::TraceType;

constexpr uint64_t lba = 100;
constexpr uint32_t sector = 512;

/// An atomic write over content that only a pre-read knows.
struct CompareHash : ::testing::Test {
  static constexpr uint32_t blocks = 4;

  CompareHash() {
    bench.start();
    for (uint64_t x = lba; x < lba + blocks; ++x) {
      bench.block(x).assign(sector, static_cast<uint8_t>(x));
    }
    bench.atomicWrite(lba, blocks, blocks, 2);
    EXPECT_EQ(bench.completeRead(2), 0);
    atomic = bench.atomicWrite(300, blocks, blocks, 3);
    EXPECT_EQ(*bench.data().lba, lba);
  }

  CompletionBench bench;
  uint64_t atomic = 0;
};

TEST_F(CompareHash, OldContentUnderAnAbortedAtomicWriteMatchesItsHash) {
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(CompareHash, NewContentOfAnAbortedAtomicWriteMatches) {
  bench.store(3);
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  bench.readBack(4);
  EXPECT_EQ(bench.completeRead(4), 0);
}

TEST_F(CompareHash, NeitherOldNorNewContentIsAHashMismatch) {
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  const uint64_t expected = vdl::blockHash(bench.block(101).data(), bench.block(101).data() + sector);
  bench.block(101)[200] ^= 1;
  const uint64_t computed = vdl::blockHash(bench.block(101).data(), bench.block(101).data() + sector);
  const uint64_t read = bench.readBack(4);
  bench.takeLog();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(bench.completeRead(4), -1046);
  std::fflush(stdout);
  char line[128];
  std::snprintf(line, sizeof line, "hash compare fail %lx != %lx\n", static_cast<unsigned long>(expected),
                static_cast<unsigned long>(computed));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), line);
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("doCompares", -1046), bench.failure("execute", -1046)));
  const auto entry = bench.lastEntry();
  EXPECT_EQ(entry.type, TraceType::Miscompare);
  EXPECT_EQ(entry.lba, 101U);
  EXPECT_EQ(entry.block, vdl::block_num::unknown);
  EXPECT_EQ(entry.tag, vdl::block_num::unknown);
  EXPECT_EQ(entry.cmd_id, read);
  EXPECT_EQ(bench.data().driveCompareData->size, 0U);
  EXPECT_EQ(bench.data().referenceCompareData->size, 0U);
  EXPECT_THAT(bench.trace().history(), StartsWith("Context History for lba 0x65:\n"));
}

/// An atomic write of blocks 100 to 103 over written content.
struct CompareAtomic : ::testing::Test {
  CompareAtomic() {
    bench.start();
    bench.finishedWrite(lba, 4, 1);
    bench.finishedWrite(lba + 4, 1, 2);
    atomic = bench.atomicWrite(lba, 4, 4, 3);
    EXPECT_EQ(bench.table().peek(lba).block_type, vdl::BlockType::Atomic);
  }

  /// Reads back what the first write left, now below the atomic write.
  int readBack() {
    bench.readBack(4);
    bench.takeLog();
    return bench.completeRead(4);
  }

  CompletionBench bench;
  uint64_t atomic = 0;
};

TEST_F(CompareAtomic, AbortedWriteMayHaveLeftTheOldContent) {
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_EQ(readBack(), 0);
}

TEST_F(CompareAtomic, AbortedWriteMayHaveLeftTheNewContent) {
  bench.store(3);
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  EXPECT_EQ(readBack(), 0);
}

TEST_F(CompareAtomic, TornWriteIsAnOrderingFailure) {
  bench.store(3, 2);
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  bench.readBack(4);
  bench.takeLog();
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.completeRead(4), -1063);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "atomic data ordering failure lba:0x66\n");
  const std::string& history = bench.trace().history();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), history + "\n");
  EXPECT_THAT(history, StartsWith("atomic data ordering failure\nContext History for lba 0x65:\n"));
  EXPECT_THAT(history, HasSubstr("Context History for lba 0x66:\n"));
  EXPECT_THAT(history, HasSubstr("Context History for lba 0x67:\n"));
  EXPECT_THAT(bench.takeLog(), ElementsAre(bench.failure("doCompares", -1063), bench.failure("execute", -1063)));
  const auto entry = bench.lastEntry();
  EXPECT_EQ(entry.type, TraceType::Miscompare);
  EXPECT_EQ(entry.lba, 0x66U);
  EXPECT_EQ(entry.block, vdl::block_num::unknown);
  EXPECT_EQ(entry.tag, vdl::block_num::unknown);
  EXPECT_EQ(entry.cmd_id, 0U);
  EXPECT_EQ(entry.flag, 0);
  EXPECT_TRUE(bench.data().miscompareSeen);
  EXPECT_EQ(bench.data().miscompareLBA, 0x66U);
}

TEST_F(CompareAtomic, FinishedWriteMustBeThere) {
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, lba);
}

TEST_F(CompareAtomic, PartlyStoredFinishedWriteIsAMiscompareNotAnOrderingFailure) {
  bench.store(3, 2);
  EXPECT_EQ(bench.complete(3), 0);
  EXPECT_EQ(readBack(), -1046);
  EXPECT_EQ(bench.data().miscompareLBA, lba + 2);
}

TEST(CompareAtomicAtZero, HistoryOfBlockZeroHasNoNeighbourBelow) {
  CompletionBench bench;
  bench.start();
  bench.finishedWrite(0, 2, 1);
  bench.finishedWrite(2, 1, 2);
  bench.atomicWrite(0, 2, 2, 3);
  // Block 0 old, block 1 new: the failure stands at block 0.
  const Bytes old = bench.block(0);
  bench.store(3);
  bench.block(0) = old;
  EXPECT_EQ(bench.complete(3, CompletionBench::aborted), 0);
  bench.readBack(4);
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(bench.completeRead(4), -1063);
  std::fflush(stdout);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "atomic data ordering failure lba:0x0\n");
  EXPECT_THAT(bench.trace().history(), StartsWith("atomic data ordering failure\nContext History for lba 0x0:\n"));
}

}  // namespace
}  // namespace benchtest
