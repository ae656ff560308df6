#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "RecordTable.h"
#include "support/ScarceMemory.h"
#include "support/SchedulingBench.h"

namespace benchtest {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using Kind = ScarceMemory::Kind;

/// What came of a step of which one allocation failed.
struct Outcome {
  int result = 0;
  std::vector<LogLine> log;
  bool operator==(const Outcome&) const = default;
};
void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.result << " " << ::testing::PrintToString(outcome.log);
}

const LogLine stepLine{2, "execute(): out of memory (-1002)"};
/// Memory that throws ends the step wherever it is.
const Outcome thrown{-1002, {stepLine}};
/// An event that cannot be had is left out.
const Outcome leftOut{};

/// Memory that an operation asks for, and refuses without.
Outcome refusedBy(const std::string& operation) {
  return {-1002, {LogLine{2, operation + "(): out of memory (-1002)"}, stepLine}};
}

/// Runs a step once for each of its allocations of a kind, in a new test each time, and lets that one fail.
class Shortage {
 public:
  using Prepare = std::function<void(SchedulingBench&)>;
  using Run = std::function<int(SchedulingBench&)>;

  explicit Shortage(
      Prepare prepare, Run run = [](SchedulingBench& bench) { return bench.idle(); })
      : prepare_(std::move(prepare)), run_(std::move(run)) {}

  /// One outcome for each allocation; the run behind them, in which none failed, must go well.
  std::vector<Outcome> of(Kind kind, const Prepare& after = {}) const {
    std::vector<Outcome> outcomes;
    for (uint64_t number = 1; number < 100; ++number) {
      SchedulingBench bench;
      prepare_(bench);
      bench.takeLog();
      bench.takeTrace();
      Outcome outcome;
      if (!runWithout(bench, kind, number, outcome)) {
        EXPECT_EQ(outcome, Outcome{}) << "nothing failed";
        return outcomes;
      }
      outcomes.push_back(outcome);
      if (after) {
        after(bench);
      }
      EXPECT_EQ(bench.stopTest(), 0);
    }
    ADD_FAILURE() << "the step never ran out of allocations";
    return outcomes;
  }

 private:
  bool runWithout(SchedulingBench& bench, Kind kind, uint64_t number, Outcome& outcome) const {
    bool failed = false;
    ::testing::internal::CaptureStderr();
    {
      const ScarceMemory scarce(kind, 0, number);
      outcome.result = run_(bench);
      failed = scarce.failed() != 0;
    }
    ::testing::internal::GetCapturedStderr();
    outcome.log = bench.takeLog();
    return failed;
  }

  Prepare prepare_;
  Run run_;
};

/// Tag 3 is free, the test shows 8 blocks from LBA 100, and whatever can be written is.
void startAndFree(SchedulingBench& bench) {
  bench.start();
  bench.config().minQueueSize = 0;
  bench.config().randomSelection = false;
  bench.shareRange(100, 8, 4);
  bench.freeTag(3);
}

void finishWriteAndFree(SchedulingBench& bench, uint32_t xferLength = 8) {
  bench.start();
  bench.finishedWrite(100, xferLength, 1);
  bench.config().minQueueSize = 0;
  bench.config().randomSelection = false;
  bench.data().readPhase = true;
  bench.freeTag(3);
}

/// The next record that awaits its read-back needs memory.
void fillFinishedWrites(SchedulingBench& bench) {
  for (uint64_t lba = 200; bench.data().writeFinished.size() < bench.data().writeFinished.capacity(); ++lba) {
    bench.finishedWrite(lba, 1, 5);
  }
}

void selectAtomicWrite(SchedulingBench& bench) {
  bench.config().writeAtomicCondition = onBit(bit::atomic);
  bench.thread().conditions = bit::atomic;
}

void onlyVerify(SchedulingBench& bench) {
  bench.config().verifyCondition = onBit(bit::verify);
  bench.config().readCondition = {};
}

TEST(AllocationFailure, TagBuffersOfTheFirstStep) {
  const Shortage first([](SchedulingBench& bench) {
    ASSERT_EQ(bench.startTest(), 0);
    bench.holdTags();
  });
  const Outcome refused{-1002, {LogLine{2, "Corvane: Failed memory allocation of local write buffers"}}};
  EXPECT_THAT(first.of(Kind::nothrow), AllOf(::testing::SizeIs(8), Each(refused)));
  EXPECT_THAT(first.of(Kind::throwing), ElementsAre(thrown, thrown));
}

TEST(AllocationFailure, Write) {
  const Shortage write(startAndFree);
  EXPECT_THAT(write.of(Kind::throwing,
                       [](SchedulingBench& bench) {
                         EXPECT_THAT(bench.data().writeSent, IsEmpty());
                         EXPECT_THAT(bench.takeTrace(), IsEmpty());
                         EXPECT_TRUE(bench.table().records().empty());
                       }),
              ElementsAre(thrown));
  EXPECT_THAT(write.of(Kind::nothrow,
                       [](SchedulingBench& bench) {
                         EXPECT_EQ(bench.data().writeSent.size(), 1U);
                         EXPECT_EQ(bench.lastEntry().type, vdl::TraceType::WriteIssued);
                       }),
              ElementsAre(refusedBy("doAWrite"), leftOut));
}

TEST(AllocationFailure, WriteThatNeedsALargerTagBuffer) {
  const Shortage write([](SchedulingBench& bench) {
    startAndFree(bench);
    bench.shareRange(100, 32);
  });
  EXPECT_THAT(write.of(Kind::throwing), ElementsAre(thrown));
  EXPECT_THAT(write.of(Kind::nothrow), ElementsAre(refusedBy("doAWrite"), refusedBy("doAWrite"), leftOut));
}

TEST(AllocationFailure, Trim) {
  const Shortage trim([](SchedulingBench& bench) {
    startAndFree(bench);
    bench.config().writeCondition = {};
    bench.config().trimCondition = onBit(bit::trim);
  });
  EXPECT_THAT(trim.of(Kind::throwing), ElementsAre(thrown));
  EXPECT_THAT(trim.of(Kind::nothrow), ElementsAre(refusedBy("doAWrite"), leftOut));
}

TEST(AllocationFailure, PreRead) {
  const Shortage preRead([](SchedulingBench& bench) {
    startAndFree(bench);
    selectAtomicWrite(bench);
  });
  EXPECT_THAT(
      preRead.of(Kind::throwing, [](SchedulingBench& bench) { EXPECT_THAT(bench.data().preReadSent, IsEmpty()); }),
      ElementsAre(thrown));
  EXPECT_THAT(preRead.of(Kind::nothrow), IsEmpty());
}

TEST(AllocationFailure, AtomicWriteOverAPreReadInFlight) {
  const Shortage write([](SchedulingBench& bench) {
    bench.start();
    bench.atomicWrite(100, 8, 4, 1);
    bench.freeTag(3);
    selectAtomicWrite(bench);
  });
  EXPECT_THAT(write.of(Kind::throwing), ElementsAre(thrown));
  EXPECT_THAT(write.of(Kind::nothrow), ElementsAre(refusedBy("doAWriteAtomic"), leftOut));
}

TEST(AllocationFailure, Read) {
  const Shortage read([](SchedulingBench& bench) { finishWriteAndFree(bench); });
  EXPECT_THAT(read.of(Kind::throwing,
                      [](SchedulingBench& bench) {
                        EXPECT_THAT(bench.data().readSent, IsEmpty());
                        EXPECT_THAT(bench.data().writeFinished, IsEmpty()) << "taken and not put back";
                      }),
              ElementsAre(thrown));
  EXPECT_THAT(read.of(Kind::nothrow), ElementsAre(refusedBy("doARead")));
}

TEST(AllocationFailure, Verify) {
  const Shortage verify([](SchedulingBench& bench) {
    finishWriteAndFree(bench);
    onlyVerify(bench);
  });
  EXPECT_THAT(verify.of(Kind::throwing), ElementsAre(thrown));
  EXPECT_THAT(verify.of(Kind::nothrow), ElementsAre(refusedBy("doAVerify")));
}

TEST(AllocationFailure, VerifyThatNeedsALargerTagBuffer) {
  const Shortage verify([](SchedulingBench& bench) {
    finishWriteAndFree(bench, 32);
    onlyVerify(bench);
  });
  EXPECT_THAT(verify.of(Kind::nothrow), ElementsAre(refusedBy("doAVerify"), refusedBy("doAVerify")));
}

TEST(AllocationFailure, CompletionOfAWrite) {
  const Shortage done(
      [](SchedulingBench& bench) {
        bench.start();
        bench.write(100, 8, 1);
      },
      [](SchedulingBench& bench) { return bench.complete(1); });
  EXPECT_THAT(done.of(Kind::throwing), ElementsAre(thrown));
  EXPECT_THAT(done.of(Kind::nothrow), IsEmpty());
}

TEST(AllocationFailure, CompletionOfAReadAndItsCompare) {
  const Shortage done(
      [](SchedulingBench& bench) {
        bench.start();
        bench.finishedWrite(100, 8, 1);
        bench.readBack(2);
        bench.setReadData(2, bench.media(100, 8));
      },
      [](SchedulingBench& bench) { return bench.complete(2); });
  EXPECT_THAT(done.of(Kind::throwing), AllOf(Not(IsEmpty()), Each(thrown)));
  EXPECT_THAT(done.of(Kind::nothrow), ElementsAre(refusedBy("recvRead")));
}

TEST(AllocationFailure, CompletionOfAPreRead) {
  const Shortage done(
      [](SchedulingBench& bench) {
        bench.start();
        bench.atomicWrite(100, 8, 4, 1);
        bench.setReadData(1, bench.media(100, 8));
      },
      [](SchedulingBench& bench) { return bench.complete(1); });
  EXPECT_THAT(done.of(Kind::throwing), ElementsAre(thrown));
  // A block whose hash cannot be kept fails nothing, in this step or, with its reference, in the next one's audit.
  EXPECT_THAT(done.of(Kind::nothrow,
                      [](SchedulingBench& bench) {
                        EXPECT_EQ(bench.data().preReadFinished.size(), 1U);
                        EXPECT_EQ(bench.idle(), 0);
                      }),
              AllOf(Not(IsEmpty()), Each(leftOut)));
}

/// A lost read that cannot be queued again stays on a tag that is free again: the step must not go well.
const Outcome unfinishedReset{-1002, {LogLine{2, "deviceReset(): out of memory (-1002)"}, stepLine}};

TEST(AllocationFailure, PowerCutWithALostRead) {
  const Shortage cut([](SchedulingBench& bench) {
    bench.start();
    bench.finishedWrite(100, 8, 1);
    bench.readBack(2);
    fillFinishedWrites(bench);
    bench.config().powerToggleCondition = onBit(bit::power);
    bench.config().powerToggleFreq = 0;
    bench.freeTag(3);
  });
  EXPECT_THAT(cut.of(Kind::throwing), ElementsAre(unfinishedReset));
}

TEST(AllocationFailure, RequestedResetWithALostRead) {
  const Shortage reset([](SchedulingBench& bench) {
    bench.start();
    bench.finishedWrite(100, 8, 1);
    bench.readBack(2);
    fillFinishedWrites(bench);
    *bench.data().deviceReset = true;
    bench.freeTag(3);
  });
  EXPECT_THAT(reset.of(Kind::throwing), ElementsAre(unfinishedReset));
}

TEST(AllocationFailure, CompletionOfAVerifyNeedsNoMemory) {
  const Shortage done(
      [](SchedulingBench& bench) {
        bench.start();
        bench.finishedWrite(100, 8, 1);
        bench.verifyBack(2);
      },
      [](SchedulingBench& bench) { return bench.complete(2); });
  EXPECT_THAT(done.of(Kind::throwing), IsEmpty());
  EXPECT_THAT(done.of(Kind::nothrow), IsEmpty());
}

TEST(AllocationFailure, AWalkWithoutMemoryForItsOrderShowsTheSameRecords) {
  const std::vector<uint64_t> ascending{3, 5, 6400, uint64_t{1} << 30, uint64_t{1} << 40, ~uint64_t{0} - 1};
  vdl::RecordTable table;
  for (auto lba = ascending.rbegin(); lba != ascending.rend(); ++lba) {
    ASSERT_NE(table.reserve(*lba / 64, uint64_t{1} << *lba % 64), nullptr);
  }
  std::vector<uint64_t> seen;
  seen.reserve(ascending.size());
  const auto note = [&seen](uint64_t lba, const vdl::LBARecord&) { seen.push_back(lba); };
  {
    const ScarceMemory none(Kind::throwing, 0, 1, ~uint64_t{0});
    table.visit(0, ~uint64_t{0}, note);
    EXPECT_GT(none.failed(), 0U);
  }
  EXPECT_EQ(seen, ascending);
  seen.clear();
  {
    const ScarceMemory none(Kind::throwing, 0, 1, ~uint64_t{0});
    table.visit(5, uint64_t{1} << 30, note);
  }
  EXPECT_THAT(seen, ElementsAre(5, 6400, uint64_t{1} << 30));
}

}  // namespace
}  // namespace benchtest
