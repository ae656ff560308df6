#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "support/SchedulingBench.h"
#include "support_model/FakeClock.h"

namespace benchtest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vdl::Corvane;
using vdl::TraceType;

constexpr uint32_t noTag = 0xFFFFFFFF;

struct Execute : ::testing::Test {
  Execute() {
    bench.startWithRangeQueues();
    bench.takeLog();
    bench.takeTrace();
  }

  int execute() { return Corvane::execute(&bench.thread(), &bench.config(), &bench.data()); }
  std::vector<TraceType> tracedTypes() {
    std::vector<TraceType> types;
    for (const Traced& entry : bench.takeTrace()) {
      types.push_back(entry.type);
    }
    return types;
  }
  /// A read of blocks 100 to 107, wrong in one byte and ready to be compared in the next step.
  void keepWrongRead() {
    bench.write(100, 8, 1);
    bench.store(1);
    bench.readBack(2);
    bench.block(103)[40] ^= 1;
    ASSERT_EQ(bench.completeRead(2), 0);
    ASSERT_EQ(bench.data().comparableReads.size(), 1U) << "it waits for the write";
    bench.data().comparableReads.front().pendingWrites.clear();
    bench.takeLog();
    bench.takeTrace();
  }

  SchedulingBench bench;
};

TEST_F(Execute, DeferredInitialisationRunsOnceAndBeforeAnythingElse) {
  int calls = 0;
  *bench.data().epo = 1;
  bench.data().firstExecute = [&](vdl::DriveThread* thread, Corvane::DriveData* data,
                                  const Corvane::ConfigData* config) {
    ++calls;
    EXPECT_EQ(thread, &bench.thread());
    EXPECT_EQ(data, &bench.data());
    EXPECT_EQ(config, &bench.config());
    EXPECT_EQ(*data->epo, 1U);
    return 0;
  };
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(bench.data().firstExecute);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::PowerToggleOn)) << "the same call goes on";
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_EQ(calls, 1);
}

TEST_F(Execute, FailedDeferredInitialisationReturnsItsCodeAndDoesNothingElse) {
  bench.write(100, 8, 1);
  bench.takeTrace();
  bench.freeTag(0);
  bench.shareRange(200, 4);
  bench.thread().conditions = bit::read;
  *bench.data().epo = 1;
  bench.variables().ranges("CSZoneReset").push({100, 108});
  bench.data().firstExecute = [](auto*, auto*, const auto*) { return -77; };
  EXPECT_EQ(bench.complete(1), -77);
  EXPECT_FALSE(bench.data().firstExecute);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_EQ(*bench.data().epo, 1U);
  EXPECT_FALSE(bench.variables().ranges("CSZoneReset").empty());
  EXPECT_EQ(bench.data().writeSent.size(), 1U);
  EXPECT_EQ(bench.thread().conditions, bit::read);

  EXPECT_EQ(bench.complete(1), 0);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::PowerToggleOn, TraceType::ZoneReset, TraceType::WriteFinished,
                                         TraceType::WriteIssued));
}

TEST_F(Execute, OneStepGoesFromPowerOverRangesAndTheCompletionToTheNextCommand) {
  bench.finishedWrite(100, 8, 1);
  bench.readBack(1);
  bench.takeTrace();
  *bench.data().epo = 7;
  bench.variables().ranges("CVNInvalidateRanges").push({400, 408});
  bench.variables().ranges("CSZoneReset").push({300, 308});
  bench.freeTag(2);
  bench.shareRange(200, 4);
  EXPECT_EQ(bench.completeRead(1), 0);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::PowerToggleOn, TraceType::ZoneReset, TraceType::InvalidateRange,
                                         TraceType::ReadFinished, TraceType::WriteIssued));
  EXPECT_THAT(bench.data().comparableReads, IsEmpty()) << "compared in the same step";
  EXPECT_EQ(bench.data().spareReads.size(), 1U);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(Execute, PowerOnIsTracedBeforeTheCompletionAndRestartsTheInterval) {
  modeltest::FakeClock clock(1700000000, 123456);
  bench.write(100, 8, 1);
  bench.takeTrace();
  *bench.data().epo = 1;
  EXPECT_EQ(bench.complete(1), 0);
  const uint32_t lowMilliseconds = 3487918203;
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::PowerToggleOn, 0, 0, 0, lowMilliseconds},
                                             Traced{TraceType::WriteFinished, 100, 8, 1, 1}));
  EXPECT_EQ(*bench.data().epo, 0U);
  EXPECT_DOUBLE_EQ(bench.data().powerOnTime, 1700000000123.456);
}

TEST_F(Execute, WithoutPowerCycleTheIntervalRunsOn) {
  bench.data().powerOnTime = 42;
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_EQ(bench.data().powerOnTime, 42);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
}

TEST_F(Execute, WithoutATagNoHandlerRunsButTheNextCommandDoes) {
  bench.write(100, 8, 1);
  bench.takeTrace();
  bench.freeTag(0);
  bench.shareRange(200, 4);
  bench.config().minQueueSize = 9;
  EXPECT_EQ(bench.report(noTag, 0), 0);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::WriteIssued));
  EXPECT_EQ(bench.data().writeSent.size(), 2U);
}

TEST_F(Execute, WithoutAStatusNoHandlerRunsButTheNextCommandDoes) {
  bench.write(100, 8, 1);
  bench.takeTrace();
  bench.freeTag(0);
  bench.shareRange(200, 4);
  bench.config().minQueueSize = 9;
  EXPECT_EQ(bench.report(1, 0xFFFFFFFF), 0);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::WriteIssued));
  EXPECT_EQ(bench.data().writeSent.size(), 2U);
}

TEST_F(Execute, WithoutATagReadsAreStillCompared) {
  keepWrongRead();
  EXPECT_EQ(bench.report(noTag, 0), -1046);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
}

TEST_F(Execute, WithoutAStatusReadsAreStillCompared) {
  keepWrongRead();
  EXPECT_EQ(bench.report(1, 0xFFFFFFFF), -1046);
  EXPECT_EQ(bench.data().writeSent.size(), 1U);
}

TEST_F(Execute, FailedCompareLogsTwoLinesAndPreparesNothing) {
  keepWrongRead();
  bench.freeTag(0);
  bench.thread().conditions = bit::read;
  EXPECT_EQ(bench.idle(), -1046);
  std::vector<LogLine> lines = bench.takeLog();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[lines.size() - 2], (LogLine{2, "doCompares(): data miscompare (-1046)"}));
  EXPECT_EQ(lines.back(), (LogLine{2, "execute(): data miscompare (-1046)"}));
  EXPECT_EQ(bench.thread().conditions, bit::read);
  EXPECT_EQ(bench.data().writeSent.size(), 1U);
}

TEST_F(Execute, FailedHandlerLogsItsLineThenTheStepsAndEndsTheStep) {
  bench.write(100, 8, 1);
  bench.data().writeSent.clear();
  bench.freeTag(0);
  bench.thread().conditions = bit::read;
  bench.takeTrace();
  EXPECT_EQ(bench.complete(1), -1200);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "recvWrite(): Couldn't find write"},
                                           LogLine{2, "execute(): no record of a command in flight (-1200)"}));
  EXPECT_EQ(bench.thread().conditions, bit::read);
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
}

TEST_F(Execute, FailedHandlerLeavesReadsUncompared) {
  keepWrongRead();
  bench.data().writeSent.clear();
  EXPECT_EQ(bench.complete(1), -1200);
  EXPECT_EQ(bench.data().comparableReads.size(), 1U);
}

TEST_F(Execute, FailedPreparationLogsTheStepsLineAfterItsOwn) {
  bench.freeTag(0);
  bench.shareRange(0, 65);
  EXPECT_EQ(bench.idle(), -1022);
  EXPECT_THAT(bench.takeLog(), ElementsAre(LogLine{2, "Requested buffer too large: need=65, max=63"},
                                           LogLine{2, "doAWrite(): buffer too large or missing (-1022)"},
                                           LogLine{2, "execute(): buffer too large or missing (-1022)"}));
}

TEST_F(Execute, FailedPreparationDoesNotRollTheCompletionBack) {
  bench.write(100, 8, 1);
  bench.freeTag(0);
  bench.shareRange(0, 65);
  bench.config().minQueueSize = 9;
  EXPECT_EQ(bench.complete(1), -1022);
  EXPECT_EQ(bench.data().writeFinished.size(), 1U);
  EXPECT_EQ(bench.data().writeSent.size(), 1U) << "the refused one";
}

TEST_F(Execute, EveryKindOfWriteGoesToTheWriteHandler) {
  bench.write(100, 4, 1, WriteKind::plain);
  bench.write(110, 4, 2, WriteKind::same);
  bench.write(120, 4, 3, WriteKind::trim);
  // A record at the end of the range is asked for, too.
  bench.write(134, 1, 4);
  for (uint32_t tag = 1; tag <= 4; ++tag) {
    ASSERT_EQ(bench.complete(tag), 0);
  }
  bench.finishedWrite(130, 4, 5);
  bench.atomicWrite(130, 4, 4, 6);
  ASSERT_EQ(bench.data().writeSent.size(), 1U);
  bench.takeTrace();
  EXPECT_EQ(bench.complete(6), 0);
  EXPECT_THAT(bench.data().writeSent, IsEmpty());
  EXPECT_EQ(bench.data().writeFinished.size(), 6U);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::WriteFinished));
}

TEST_F(Execute, PreReadGoesToThePreReadHandler) {
  bench.atomicWrite(100, 4, 4, 1);
  ASSERT_EQ(bench.data().preReadSent.size(), 1U);
  EXPECT_EQ(bench.completeRead(1), 0);
  EXPECT_THAT(bench.data().preReadSent, IsEmpty());
  EXPECT_EQ(bench.data().preReadFinished.size(), 1U);
}

TEST_F(Execute, VerifyGoesToTheVerifyHandler) {
  bench.finishedWrite(100, 4, 1);
  bench.verifyBack(2);
  bench.takeTrace();
  EXPECT_EQ(bench.complete(2), 0);
  EXPECT_THAT(bench.data().verifySent, IsEmpty());
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::VerifyFinished));
}

TEST_F(Execute, ReadGoesToTheReadHandlerWithItsStatus) {
  bench.finishedWrite(100, 4, 1);
  bench.readBack(2);
  bench.takeTrace();
  EXPECT_EQ(bench.complete(2, CompletionBench::aborted), 0);
  EXPECT_THAT(bench.data().readSent, IsEmpty());
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::ReadAborted));
}

TEST_F(Execute, CommandsThatAreOverAlreadyAreIgnored) {
  vdl::CommandTrace& trace = bench.trace();
  bench.write(100, 4, 1);
  const auto stays = [&](TraceType last) {
    bench.takeTrace();
    EXPECT_EQ(bench.complete(1), 0) << vdl::traceTypeName(last);
    EXPECT_EQ(bench.data().writeSent.size(), 1U) << vdl::traceTypeName(last);
    EXPECT_THAT(bench.takeTrace(), IsEmpty()) << vdl::traceTypeName(last);
    EXPECT_THAT(bench.takeLog(), IsEmpty()) << vdl::traceTypeName(last);
    EXPECT_EQ(trace.slot(1).type, last);
  };
  trace.traceWriteFinished(100, 4, 1, 1, 0, {});
  stays(TraceType::WriteFinished);
  trace.traceWriteAborted(100, 4, 1, 1);
  stays(TraceType::WriteAborted);
  trace.traceReadFinished(100, 4, 1, 1, 0, {});
  stays(TraceType::ReadFinished);
  trace.traceReadAborted(100, 4, 1, 1);
  stays(TraceType::ReadAborted);
  trace.traceVerifyFinished(100, 4, 1, 1, 0, {});
  stays(TraceType::VerifyFinished);
  trace.traceVerifyAborted(100, 4, 1, 1);
  stays(TraceType::VerifyAborted);
  trace.traceSyncFinished(1, 0, {});
  stays(TraceType::SyncFinished);
}

TEST_F(Execute, TagThatWasNeverUsedIsIgnored) {
  EXPECT_EQ(bench.complete(7), 0);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST(FirstExecute, VariablesThatNobodyHasSetYetAreNoCompletion) {
  SchedulingBench bench;
  ASSERT_EQ(bench.startTest(), 0);
  *bench.data().lastTagID = 0;
  *bench.data().lastStatusByte = 0;
  bench.shareRange(200, 4);
  const uint32_t peeked = bench.host().tags().front();
  bench.takeLog();
  EXPECT_EQ(Corvane::execute(&bench.thread(), &bench.config(), &bench.data()), 0);
  EXPECT_THAT(bench.takeTrace(), ElementsAre(Traced{TraceType::WriteIssued, 200, 4, 1, peeked}));
  EXPECT_THAT(bench.takeLog(), IsEmpty());
}

TEST_F(Execute, AfterAShowstopCompletionsAreNotProcessed) {
  bench.write(100, 4, 1);
  bench.finishedWrite(200, 4, 2);
  const uint64_t read = bench.readBack(3);
  bench.data().miscompareSeen = true;
  bench.takeTrace();
  EXPECT_EQ(bench.complete(1), 0);
  EXPECT_EQ(bench.completeRead(3), 0);
  ASSERT_EQ(bench.data().writeSent.size(), 1U);
  ASSERT_EQ(bench.data().readSent.size(), 1U);
  EXPECT_EQ(bench.data().readSent.front().cmdId, read);
  EXPECT_THAT(bench.takeTrace(), IsEmpty());
  EXPECT_TRUE(bench.data().miscompareSeen);
}

TEST_F(Execute, AfterAShowstopComparesAndTheNextCommandStillRun) {
  bench.write(100, 8, 1);
  bench.store(1);
  bench.readBack(2);
  ASSERT_EQ(bench.completeRead(2), 0);
  bench.data().comparableReads.front().pendingWrites.clear();
  bench.data().miscompareSeen = true;
  bench.freeTag(0);
  bench.shareRange(200, 4);
  bench.takeTrace();
  EXPECT_EQ(bench.complete(1), 0);
  EXPECT_THAT(bench.data().comparableReads, IsEmpty());
  EXPECT_EQ(bench.data().writeSent.size(), 2U);
  EXPECT_THAT(tracedTypes(), ElementsAre(TraceType::WriteIssued));
}

TEST_F(Execute, SyncDoneLivesForOneStep) {
  bench.trace().traceSyncIssued(1);
  bench.data().syncIssued = true;
  EXPECT_EQ(bench.complete(1), 0);
  EXPECT_TRUE(bench.data().syncDone);
  EXPECT_FALSE(bench.data().syncIssued);
  EXPECT_EQ(bench.idle(), 0);
  EXPECT_FALSE(bench.data().syncDone);
}

TEST_F(Execute, SyncDoneIsClearedAlsoWithoutATagAndAfterAShowstop) {
  bench.data().syncDone = true;
  EXPECT_EQ(bench.report(noTag, 0), 0);
  EXPECT_FALSE(bench.data().syncDone);
  bench.data().syncDone = true;
  bench.data().miscompareSeen = true;
  EXPECT_EQ(bench.complete(1), 0);
  EXPECT_FALSE(bench.data().syncDone);
}

TEST_F(Execute, SuccessfulStepLogsNothing) {
  bench.freeTag(0);
  bench.shareRange(200, 4);
  EXPECT_EQ(execute(), 0);
  EXPECT_THAT(bench.takeLog(), IsEmpty());
  EXPECT_EQ(bench.data().writeSent.size(), 1U);
}

}  // namespace
}  // namespace benchtest
