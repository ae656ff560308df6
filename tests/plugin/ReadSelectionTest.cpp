#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::TraceType;
using vdl::agent::ActiveConditions;

constexpr uint32_t tag = 3;

struct ReadSelection : ::testing::Test {
  ReadSelection() {
    bench.start();
    bench.takeTrace();
    bench.takeLog();
  }

  int select(bool read = false, bool verify = false) {
    ActiveConditions active;
    active.read = read;
    active.verify = verify;
    vdl::agent::Step step = bench.step();
    return vdl::agent::doAReadOrVerify(step, tag, active);
  }
  void bothConfigured() { bench.config().verifyCondition = onBit(bit::verify); }
  void onlyVerify() {
    bench.config().readCondition = {};
    bothConfigured();
  }
  void finishWrite(uint64_t lba = 100) {
    bench.finishedWrite(lba, 4, 1);
    bench.takeTrace();
  }

  SchedulingBench bench;
};

TEST_F(ReadSelection, OldestFinishedWriteComesFirstAndIsTaken) {
  bench.write(50, 4, 2);
  finishWrite(200);
  finishWrite(100);
  ASSERT_EQ(select(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 200U);
  ASSERT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeFinished.front().lba, 100U);
  EXPECT_EQ(bench.data().writeSent.front().readCmdId, 0U);
}

TEST_F(ReadSelection, WithoutAFinishedWriteTheFirstUnlinkedOutstandingOneIsLinkedAndStays) {
  bench.write(50, 4, 1);
  bench.write(60, 4, 2);
  bench.write(70, 4, 4);
  bench.write(80, 4, 5);
  auto record = bench.data().writeSent.begin();
  record->readCmdId = 99;
  (++record)->readBack = 0;
  ++record;
  ASSERT_EQ(select(), 0);
  EXPECT_EQ(bench.lastEntry().lba, 70U);
  EXPECT_EQ(bench.lastEntry().cmd_id, 5U);
  EXPECT_EQ(record->readCmdId, 5U);
  EXPECT_EQ(bench.data().writeSent.size(), 4U);
  EXPECT_EQ(bench.data().writeSent.back().readCmdId, 0U);
  ASSERT_EQ(bench.data().readSent.size(), 1U);
  EXPECT_EQ(bench.data().readSent.front().spliceCheck, 0);
  EXPECT_EQ(bench.data().readSent.front().spliceRetries, 0);
}

TEST_F(ReadSelection, OneConfiguredKindIsTakenWhateverIsSelected) {
  finishWrite();
  ASSERT_EQ(select(false, true), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::ReadIssued);
  EXPECT_EQ(bench.thread().conditions & bit::read, bit::read);
  onlyVerify();
  bench.thread().conditions = 0;
  finishWrite(200);
  ASSERT_EQ(select(true, false), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::VerifyIssued);
  EXPECT_EQ(bench.thread().conditions, bit::verify);
}

TEST_F(ReadSelection, BothConfiguredTheSelectedOneIsTaken) {
  bothConfigured();
  finishWrite(100);
  finishWrite(200);
  ASSERT_EQ(select(true, false), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::ReadIssued);
  ASSERT_EQ(select(false, true), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::VerifyIssued);
}

TEST_F(ReadSelection, BothSelectedAreRefusedAndTheWriteIsNotPutBack) {
  bothConfigured();
  finishWrite();
  const uint64_t id = bench.data().nextCmdId;
  bench.thread().conditions = 0;
  EXPECT_EQ(select(true, true), -1050);
  EXPECT_THAT(bench.takeLog(),
              ElementsAre(LogLine{2, "Both Read and Verify condition selected during same execution loop."}));
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_EQ(bench.data().nextCmdId, id + 1);
  EXPECT_THAT(bench.data().writeFinished, IsEmpty());
  EXPECT_THAT(bench.data().readSent, IsEmpty());
  EXPECT_EQ(bench.thread().conditions, 0U);
}

TEST_F(ReadSelection, NeitherSelectedIsRefused) {
  bothConfigured();
  finishWrite();
  EXPECT_EQ(select(), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Niether read nor verify selected during execution loop."}));
}

TEST_F(ReadSelection, NeitherConfiguredIsRefused) {
  bench.config().readCondition = {};
  finishWrite();
  EXPECT_EQ(select(true, true), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Niether read nor verify selected during execution loop."}));
}

TEST_F(ReadSelection, ReadWithoutAWriteSaysSoAndFails) {
  const uint64_t id = bench.data().nextCmdId;
  bench.thread().conditions = 0;
  EXPECT_EQ(select(), -1200);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAReadOrVerify(): failed to select write to read"},
                                           LogLine{2, "doARead(): Invalid WriteSent and WriteFinished"}));
  EXPECT_EQ(bench.data().nextCmdId, id + 1);
  EXPECT_EQ(bench.thread().conditions, 0U);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
}

TEST_F(ReadSelection, VerifyWithoutAWriteSaysSoAndFails) {
  onlyVerify();
  EXPECT_EQ(select(), -1200);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAReadOrVerify(): failed to select write to read"},
                                           LogLine{2, "doAVerify(): Invalid WriteSent and WriteFinished"}));
}

TEST_F(ReadSelection, WrongSelectionWithoutAWriteSaysBoth) {
  bothConfigured();
  EXPECT_EQ(select(), -1050);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "doAReadOrVerify(): failed to select write to read"},
                                           LogLine{2, "Niether read nor verify selected during execution loop."}));
}

TEST_F(ReadSelection, SpliceCheckIsReadAlsoWhenOnlyTheVerifyIsSelected) {
  bothConfigured();
  finishWrite();
  bench.data().writeFinished.front().spliceCheck = 1;
  bench.data().writeFinished.front().spliceRetries = 1;
  bench.thread().conditions = 0;
  ASSERT_EQ(select(false, true), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::ReadIssued);
  EXPECT_EQ(bench.thread().conditions, bit::read);
  ASSERT_EQ(bench.data().readSent.size(), 1U);
  EXPECT_EQ(bench.data().readSent.front().spliceCheck, 1);
  EXPECT_EQ(bench.data().readSent.front().spliceRetries, 1);
  EXPECT_THAT(bench.data().verifySent, IsEmpty());
}

TEST_F(ReadSelection, SpliceCheckIsReadAlsoWhenOnlyTheVerifyIsConfigured) {
  finishWrite();
  onlyVerify();
  bench.data().writeFinished.front().spliceCheck = 1;
  ASSERT_EQ(select(), 0);
  EXPECT_EQ(bench.lastEntry().type, TraceType::ReadIssued);
}

TEST_F(ReadSelection, TakingTheRangeFromAListHoldsTheGenerator) {
  finishWrite(100);
  finishWrite(200);
  *bench.data().skipGen = 0;
  ASSERT_EQ(select(), 0);
  EXPECT_EQ(*bench.data().skipGen, 1U);
  bench.data().skipGenOnList = false;
  *bench.data().skipGen = 0;
  ASSERT_EQ(select(), 0);
  EXPECT_EQ(*bench.data().skipGen, 0U);
}

}  // namespace
}  // namespace benchtest
