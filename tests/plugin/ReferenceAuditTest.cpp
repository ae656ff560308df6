#include "ReferenceAudit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include "support/CompletionBench.h"
#include "support/ScarceMemory.h"

namespace benchtest {
namespace {

using vdl::agent::auditRecords;
using vdl::agent::auditReferences;

struct ReferenceAudit : ::testing::Test {
  ReferenceAudit() { bench.start(); }

  void expectBalanced(const char* when) {
    EXPECT_EQ(auditReferences(bench.data()), "") << when;
    EXPECT_EQ(auditRecords(bench.data()), "") << when;
  }

  CompletionBench bench;
};

TEST_F(ReferenceAudit, EmptyTableIsBalanced) { expectBalanced("at the start"); }

TEST_F(ReferenceAudit, RoadOfAWriteIsBalancedAtEveryStep) {
  bench.write(100, 8, 1);
  EXPECT_EQ(bench.table().references(), 8U);
  expectBalanced("issued");
  bench.store(1);
  EXPECT_EQ(bench.complete(1), 0);
  expectBalanced("finished");
  bench.readBack(2);
  EXPECT_EQ(bench.table().references(), 0U);
  expectBalanced("reading");
  EXPECT_EQ(bench.completeRead(2), 0);
  expectBalanced("compared");
  EXPECT_TRUE(bench.table().records().empty());
}

TEST_F(ReferenceAudit, OutstandingWriteThatIsReadAlreadyOwesNothing) {
  bench.write(100, 8, 1);
  bench.readBack(2);
  EXPECT_EQ(bench.table().references(), 0U);
  expectBalanced("linked");
  EXPECT_EQ(bench.complete(1), 0);
  expectBalanced("write finished");
}

TEST_F(ReferenceAudit, FinishedPreReadOwesItsHashes) {
  bench.atomicWrite(100, 4, 4, 1);
  expectBalanced("pre-read issued");
  EXPECT_EQ(bench.completeRead(1, Bytes(2048, 0x11)), 0);
  EXPECT_EQ(bench.table().references(), 4U);
  expectBalanced("pre-read finished");
  bench.atomicWrite(300, 8, 8, 2);
  EXPECT_EQ(bench.table().references(), 4U);
  expectBalanced("consumed");
}

TEST_F(ReferenceAudit, ClaimedPreReadOwesNothingBesideItsWrite) {
  bench.atomicWrite(100, 4, 4, 1);
  bench.atomicWrite(300, 8, 8, 2);
  expectBalanced("claimed");
  EXPECT_EQ(bench.completeRead(1, Bytes(2048, 0x11)), 0);
  EXPECT_EQ(bench.table().references(), 4U);
  expectBalanced("hashes saved");
}

TEST_F(ReferenceAudit, LostReadOwesItsRepetition) {
  bench.finishedWrite(100, 8, 1);
  bench.readBack(2);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(bench.deviceReset(), 0);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(bench.table().references(), 8U);
  expectBalanced("reset");
}

TEST_F(ReferenceAudit, SkipCommandsOweOneReferencePerBlock) {
  bench.config().useSkipCommands = true;
  bench.finishedWrite(100, 4, 1);
  EXPECT_EQ(bench.table().references(), 4U);
  expectBalanced("finished");
}

TEST_F(ReferenceAudit, LeakedReferenceIsNamedWithBothSums) {
  bench.finishedWrite(100, 8, 1);
  bench.data().writeFinished.front().xferLength = 5;
  EXPECT_EQ(auditReferences(bench.data()), "the table holds 8 references, commands account for 5");
}

TEST_F(ReferenceAudit, StolenReferenceIsNamedWithBothSums) {
  bench.finishedWrite(100, 8, 1);
  EXPECT_EQ(bench.table().readSkip(103), 0);
  EXPECT_EQ(auditReferences(bench.data()), "the table holds 7 references, commands account for 8");
}

TEST_F(ReferenceAudit, RecordWithoutAClaimIsNamed) {
  EXPECT_EQ(bench.table().saveHash(5, 77, 0x1234, false), 0);
  EXPECT_EQ(auditReferences(bench.data()), "");
  EXPECT_EQ(auditRecords(bench.data()), "LBA 77 has a record without a reference or a waiting read");
}

TEST_F(ReferenceAudit, ReadThatSlidAwayFromAWriteWithoutBlocksEndsTheAudit) {
  bench.config().slideReads = true;
  for (int i = 0; i < 10; ++i) {
    bench.finishedWrite(7, 0, 1);
  }
  bench.finishedWrite(0, 7, 2);
  // About every second read slides.
  for (int i = 0; i < 10 && bench.table().references() == 7; ++i) {
    expectBalanced("not slid yet");
    EXPECT_TRUE(bench.data().referencesBalanced);
    *bench.data().xferLength = 0;
    bench.readBack(3);
  }
  EXPECT_LT(bench.table().references(), 7U);
  EXPECT_FALSE(bench.data().referencesBalanced);
  EXPECT_EQ(bench.idle(), 0);
}

TEST_F(ReferenceAudit, FailedStepEndsTheAudit) {
  bench.finishedWrite(100, 8, 1);
  bench.data().writeFinished.clear();
  bench.data().referencesBalanced = true;
  *bench.data().lastTagID = 3;
  bench.trace().traceWriteIssued(1, 1, 1, 3, 0);
  EXPECT_EQ(bench.complete(3), -1200);
  EXPECT_FALSE(bench.data().referencesBalanced);
  EXPECT_EQ(bench.idle(), 0);
}

TEST_F(ReferenceAudit, StepThatAnExceptionLeavesEndsTheAudit) {
  // The step gets as far as the write's record, and finds no buffer for the tag.
  *bench.data().xferLength = 4;
  auto buffers = std::exchange(bench.data().tagBuffers, {});
  bench.host().tags().release(2);
  EXPECT_THROW(bench.idle(), std::out_of_range);
  bench.data().tagBuffers = std::move(buffers);
  EXPECT_NE(auditReferences(bench.data()), "");
  EXPECT_FALSE(bench.data().referencesBalanced);
  bench.holdTags();
  EXPECT_EQ(bench.idle(), 0);
}

TEST_F(ReferenceAudit, StepThatRanOutOfMemoryEndsTheAudit) {
  bench.write(100, 8, 1);
  bench.takeLog();
  {
    // The finished write's entry cannot be had.
    const ScarceMemory scarce(ScarceMemory::Kind::throwing, 40);
    EXPECT_EQ(bench.complete(1), -1002);
    EXPECT_EQ(scarce.failed(), 1U);
  }
  EXPECT_EQ(bench.takeLog().front(), bench.failure("execute", -1002));
  EXPECT_NE(auditReferences(bench.data()), "");
  EXPECT_FALSE(bench.data().referencesBalanced);
  EXPECT_EQ(bench.idle(), 0);
}

#ifndef NDEBUG
TEST_F(ReferenceAudit, LeakStopsTheStepThatMadeItInDebugBuilds) {
  bench.finishedWrite(100, 8, 1);
  bench.data().writeFinished.clear();
  EXPECT_DEATH(bench.idle(), "auditReferences");
}
#endif

}  // namespace
}  // namespace benchtest
